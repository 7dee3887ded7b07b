// Part of the renderer script: formulas in answers. The Markdown renderer turns one into a code element of
// a language of its own, which passes the sanitizer like any code; only then it is typeset. The typesetter
// is loaded with the first formula; until then, and if it refuses a formula, the source is shown.
//
// Recognised are $…$ and \(…\) within a line of text, $$…$$ and \[…\] on their own. A formula has no blank
// line in it, so that one whose end is missing affects its own paragraph only.

const mathLanguage = 'language-math-';
const mathScript = 'quellora-asset://page/math.js';
/// Longer formulas are shown as text: typesetting takes milliseconds per thousand characters.
const longestFormula = 4000;

// ---- recognising ------------------------------------------------------------------------------------

const blankLine = /\n[ \t]*\n/;
/// A line that is a block of its own in Markdown and means nothing in a formula.
const otherBlock = /^ {0,3}(?:#{1,6}(?:[ \t]|$)|`{3,}|~{3,}|(?:[-*_][ \t]*){3,}$)/m;
const isFormula = tex => tex.trim() !== '' && tex.length <= longestFormula && !blankLine.test(tex) &&
    !otherBlock.test(tex);

const marks = /[\\^_{}=+<>|]/;
/// Whether text between two dollar signs is prose with prices or variables in it.
const isProse = tex => !marks.test(tex) &&
    (/^[\d.,]+(?:[ \t\n]|$)(?=.*\p{L}{2})/su.test(tex) || /\p{L}{2}[,;:.]?[ \t\n]+\p{L}{2}/u.test(tex));

const formulaToken = (raw, tex, isDisplayed) => ({ type: 'formula', raw, text: tex, isDisplayed });

const inlineFormula = src => {
    const display = /^\$\$(?!\$)((?:\\[\s\S]|[^\\$])+?)\$\$(?!\$)/.exec(src) || /^\\\[([\s\S]+?)\\\]/.exec(src);
    if (display)
        return isFormula(display[1]) ? formulaToken(display[0], display[1], true) : undefined;
    const dollar = /^\$(?![\s$])((?:\\[\s\S]|[^\\$])*?)\$(?![\p{L}\p{N}$])/u.exec(src);
    if (dollar && /\S$/.test(dollar[1]) && isFormula(dollar[1]) && !isProse(dollar[1]))
        return formulaToken(dollar[0], dollar[1], false);
    const bracket = /^\\\(([\s\S]+?)\\\)/.exec(src);
    return bracket && isFormula(bracket[1]) ? formulaToken(bracket[0], bracket[1], false) : undefined;
};

const blockFormula = src => {
    const match = /^ {0,3}(?:\$\$(?!\$)((?:\\[\s\S]|[^\\$])+?)\$\$|\\\[([\s\S]+?)\\\])[ \t]*(?:\n|$)/.exec(src);
    const tex = match && (match[1] ?? match[2]);
    return match && isFormula(tex) ? { ...formulaToken(match[0], tex, true), isBlock: true } : undefined;
};

const escapedForHtml = text => text.replace(/[&<>"]/g, character => `&#${character.charCodeAt(0)};`);

const codeOf = token => {
    const code = `<code class="${mathLanguage}${token.isDisplayed ? 'display' : 'inline'}">` +
        `${escapedForHtml(token.raw.trim())}</code>`;
    return token.isBlock ? `<p>${code}</p>\n` : code;
};

renderer.use({
    extensions: [
        {
            name: 'formulaBlock',
            level: 'block',
            start: src => /\n {0,3}(?:\$\$|\\\[)/.exec(src)?.index,
            tokenizer: blockFormula,
        },
        {
            name: 'formula',
            level: 'inline',
            start: src => /\$|\\[([]/.exec(src)?.index,
            tokenizer: inlineFormula,
            renderer: codeOf,
        },
    ],
});

// ---- typesetting ------------------------------------------------------------------------------------

let typesetter = null;
let isTypesetterAsked = false;
/// Typeset formulas by mode and source: a growing block is rendered again with every piece.
const typeset = new Map();
const typesetLimit = 500;

const askForTypesetter = () => {
    if (isTypesetterAsked)
        return;
    isTypesetterAsked = true;
    const script = document.createElement('script');
    script.src = mathScript;
    script.onload = () => {
        typesetter = globalThis.katex;
        delete globalThis.katex;
        const { body } = document;
        const isAtEnd = body.scrollTop + body.clientHeight >= body.scrollHeight - 2;
        document.querySelectorAll('.formula').forEach(fillFormula);
        if (isAtEnd)
            body.scrollTop = body.scrollHeight;
    };
    document.head.append(script);
};

const inner = source => /^(?:\$\$|\\\[|\\\()([\s\S]*)(?:\$\$|\\\]|\\\))$/.exec(source)?.[1] ?? source.slice(1, -1);

/// Commands for links, pictures and attributes make the whole formula refused.
const refuse = ({ command }) => {
    throw new Error(`${command} is not allowed`);
};

/// What the typesetter makes of a source; null if it refuses.
const typesetSource = (source, isDisplayed) => {
    const key = (isDisplayed ? 'd' : 'i') + source;
    if (!typeset.has(key)) {
        if (typeset.size >= typesetLimit)
            typeset.clear();
        const holder = document.createElement('span');
        try {
            typesetter.render(inner(source), holder, { displayMode: isDisplayed, output: 'html', strict: 'ignore',
                throwOnError: true, trust: refuse, maxSize: 20, maxExpand: 500 });
            // The page's policy does not apply style attributes that are set as text.
            for (const picture of holder.querySelectorAll('[style^="width:"]'))
                picture.style.width = picture.getAttribute('style').slice(6).replace(';', '');
            typeset.set(key, holder.firstChild);
        } catch {
            typeset.set(key, null);
        }
    }
    return typeset.get(key)?.cloneNode(true) ?? null;
};

const fillFormula = shown => {
    const source = shown.dataset.source;
    const nodes = typesetSource(source, shown.classList.contains('display'));
    if (nodes)
        shown.replaceChildren(nodes);
};

/// Replaces the code elements of formulas below the nodes by formulas.
const withFormulas = nodes => {
    for (const node of nodes) {
        if (node.nodeType !== Node.ELEMENT_NODE)
            continue;
        // An answer may name any language; what follows the prefix becomes a class of the page.
        for (const code of node.querySelectorAll(
            `code[class="${mathLanguage}inline"], code[class="${mathLanguage}display"]`)) {
            if (code.parentNode.nodeName === 'PRE')
                continue;
            const source = code.textContent;
            const shown = document.createElement('span');
            shown.className = `formula ${code.className.slice(mathLanguage.length)}`;
            shown.dataset.source = source;
            shown.setAttribute('role', 'math');
            shown.setAttribute('aria-label', inner(source).trim());
            shown.textContent = source;
            if (typesetter)
                fillFormula(shown);
            else
                askForTypesetter();
            code.replaceWith(shown);
        }
    }
    return nodes;
};
