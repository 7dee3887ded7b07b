// Part of the renderer script: how the blocks of a growing Markdown text affect each other, and which
// of them no later text can change. Works on the renderer's tokens only.

/// Items or rows at the end of an unfinished list or table that may still change.
const margin = 3;
/// How many blocks, items, rows or lines of code become final together.
const groupSize = 24;

const lex = (source, links) => {
    const lexer = new renderer.Lexer();
    Object.assign(lexer.tokens.links, links);
    return lexer.lex(source);
};

// ---- raw HTML ---------------------------------------------------------------------------------------

const phrasing = new Set(['abbr', 'b', 'big', 'cite', 'code', 'del', 'em', 'i', 'ins', 'kbd', 'mark',
    'q', 's', 'samp', 'small', 'span', 'strong', 'sub', 'sup', 'tt', 'u', 'var']);
const empty = new Set(['br', 'img', 'wbr']);
const tag = /^<(\/?)([a-z][a-z0-9]*)\b[^<>]*>$/i;

const htmlOf = token => {
    const found = [];
    if (token.raw.includes('<')) {
        renderer.walkTokens([token], inner => {
            if (inner.type === 'html')
                found.push(inner);
        });
    }
    return found;
};

/// Whether the HTML in a block ends where the block ends.
const isSelfContained = token => {
    if (token.type === 'text')
        return false;
    const open = [];
    for (const html of htmlOf(token)) {
        const match = html.block ? null : tag.exec(html.raw);
        const name = match && match[2].toLowerCase();
        if (match && empty.has(name))
            continue;
        if (!match || !phrasing.has(name))
            return false;
        if (!match[1])
            open.push(name);
        else if (open.pop() !== name)
            return false;
    }
    return open.length === 0;
};

// ---- final blocks -----------------------------------------------------------------------------------

const openingFence = /^ {0,3}(`{3,}|~{3,})/;

const isClosedFence = token => {
    const start = token.type === 'code' && openingFence.exec(token.raw);
    if (!start)
        return false;
    const raw = token.raw.replace(/\n$/, '');
    const last = /^ {0,3}(`+|~+) *$/.exec(raw.slice(raw.lastIndexOf('\n') + 1));
    return raw.includes('\n') && last !== null && last[1][0] === start[1][0] && last[1].length >= start[1].length;
};

/// Whether a block is final at the end of its last line, whatever follows.
const endsWithItsLine = token => token.type === 'hr' || token.type === 'footnote' || isClosedFence(token) ||
    (token.type === 'heading' && /^ {0,3}#/.test(token.raw));

const endsAtBlankLine = new Set(['blockquote', 'formula', 'heading', 'paragraph', 'table']);

/// Number of leading tokens, of @p count, that are final. A block is final at the end of its line if
/// nothing can continue it, at a blank line if only text directly behind can, and else at a blank line
/// with two more blocks behind it: the first of them is complete and has not continued it.
const finalTokens = (tokens, count) => {
    let blocksBehind = 0;
    for (let i = tokens.length - 1; i >= 0; --i) {
        const token = tokens[i];
        if (token.type === 'space') {
            const before = tokens[i - 1];
            // Blanks at the end may belong to the next line.
            const isFinal = token.raw.endsWith('\n') && (token.raw.length > 1 && blocksBehind > 1 ||
                before && endsAtBlankLine.has(before.type) && /\n[ \t]*\n/.test(token.raw));
            if (isFinal && i < count)
                return i + 1;
            continue;
        }
        const isLineOver = i + 1 < tokens.length || token.raw.endsWith('\n');
        if (isLineOver && i < count && endsWithItsLine(token))
            return i + 1;
        ++blocksBehind;
    }
    return 0;
};

// ---- link definitions -------------------------------------------------------------------------------

const changedLabels = (a, b) => {
    const changed = [];
    for (const label of new Set([...Object.keys(a), ...Object.keys(b)])) {
        if (!a[label] || !b[label] || a[label].href !== b[label].href || a[label].title !== b[label].title)
            changed.push(label);
    }
    return changed;
};

/// Whether a block's source may refer to a label; true also in some cases when it does not.
const mentions = (raw, labels) => {
    if (labels.length === 0 || !raw.includes('['))
        return false;
    // As the renderer compares labels.
    const folded = raw.toLowerCase().toUpperCase().toLowerCase();
    return labels.some(label => !/^[!-~]+$/.test(label) || folded.includes(`[${label}]`));
};

const addDefinitions = (links, tokens) => {
    renderer.walkTokens(tokens, token => {
        if (token.type === 'def' && !links[token.tag])
            links[token.tag] = { href: token.href, title: token.title };
    });
};

// ---- an unfinished paragraph ------------------------------------------------------------------------

/// Length of the text of a paragraph that becomes final at once, at least.
const textGroup = 512;

/// What later text may give a meaning, or another one: emphasis without an end, code, formulas, links,
/// HTML, cells. A "_" inside a word has none.
const unsettled = /[*~`$[<\\|]|(?<![\p{L}\p{N}])_|_(?![\p{L}\p{N}])/u;
/// Ends between two words. Nothing reaches across them but what is unsettled, and a line with a word is
/// neither a rule nor an underline nor the second line of a table.
const wordEnd = /[\p{L}\p{N}][.,:;!?]?[ \n](?=[\p{L}\p{N}])/gu;

/// Whether an inline token is the same whatever follows in its paragraph. Emphasis ends at the first
/// delimiter that can end it, and code in single backticks at the next one.
const isSettled = token => {
    switch (token.type) {
    case 'text':
        return !unsettled.test(token.raw);
    case 'codespan':
        return /^`[^`[<\\|]*`$/.test(token.raw);
    case 'br':
        return token.raw.startsWith(' ');
    case 'em':
    case 'strong':
    case 'del':
        return token.tokens.every(isSettled);
    default:
        return false;
    }
};

/// The paragraph that is all of a block: itself, or in a quote whose lines all begin with "> ". Its text
/// is the block's source without these.
const onlyParagraph = token => {
    const isQuote = token.type === 'blockquote';
    const paragraph = isQuote ? token.tokens[0] : token;
    // Separators begin a line for expressions only.
    if (/[\u2028\u2029]/.test(token.raw))
        return null;
    if (isQuote && (token.tokens.length !== 1 || paragraph.type !== 'paragraph' || /^(?!> \S)./m.test(token.raw)))
        return null;
    const source = isQuote ? token.raw.replace(/^> /gm, '') : token.raw;
    return source.startsWith(paragraph.text) ? paragraph : null;
};

/// As containerAfter(), for the beginning of a paragraph. It ends in the text behind a number of
/// elements, the last of the frozen ones, with @c run of that text.
const textAfter = (token, old) => {
    const drop = old ? old.drop : 0;
    const paragraph = token.raw.length < drop + 2 * textGroup ? null : onlyParagraph(token);
    if (!paragraph)
        return null;
    let end = 0;
    let elements = 0;
    let run = '';
    let offset = 0;
    let runStart = drop;
    let inRun = 0;
    for (const inner of paragraph.tokens) {
        if (inner.type === 'text') {
            const length = inner.raw.search(unsettled);
            const text = length < 0 ? inner.raw : inner.raw.slice(0, length);
            const last = [...text.matchAll(wordEnd)].pop();
            if (last && offset + last.index + last[0].length > drop) {
                end = offset + last.index + last[0].length;
                elements = inRun;
                run = paragraph.text.slice(runStart, end);
            }
            if (length >= 0)
                break;
        } else if (isSettled(inner)) {
            ++inRun;
            runStart = offset + inner.raw.length;
        } else {
            break;
        }
        offset += inner.raw.length;
    }
    if (end < drop + textGroup)
        return null;
    const frozen = paragraph.text.slice(0, end);
    // As the head of a table, a line is no longer part of the paragraph and could begin another block.
    const line = frozen.slice(frozen.lastIndexOf('\n') + 1);
    if (line !== '' && line !== frozen && !/^\*{0,2}`?\p{L}/u.test(line))
        return null;
    const text = 'x' + frozen.slice(-1);
    const quoted = source => token.type === 'paragraph' ? source : source.replace(/^(?=.)/gm, '> ');
    return { type: token.type, elements, run, lead: quoted(text), drop: text.length,
        size: quoted(frozen).length - (old ? old.lead.length : 0) };
};

// ---- unfinished lists and tables --------------------------------------------------------------------

const bulletOf = list => /^ {0,3}([*+-]|\d{1,9}[.)])/.exec(list.items[0].raw)[1];

/// Two items that stand for the final ones of a list when the rest is lexed.
const standIn = (bullet, loose) => `${bullet} x\n${loose ? '\n' : ''}${bullet} x\n`;

/// How to continue after the first items of a list or rows of a table: what to put before the rest of
/// its text, and what of the result to drop. Null when that cannot be done, or is not worth it yet.
/// @param old how it was continued so far, if it was
const containerAfter = (token, old) => {
    if (token.type === 'paragraph' || token.type === 'blockquote')
        return textAfter(token, old);
    const isList = token.type === 'list';
    const pieces = isList ? token.items.slice(old ? 2 : 0).map(item => item.raw)
        : token.raw.trimEnd().split('\n').slice(2).map(line => line + '\n');
    const count = pieces.length - margin;
    if (count < groupSize || htmlOf(token).length > 0)
        return null;
    const batch = pieces.slice(0, count).join('');
    if (!isList) {
        const head = old ? old.lead : token.raw.split('\n', 2).join('\n') + '\n';
        return { type: 'table', count, lead: head, drop: 0, size: batch.length + (old ? 0 : head.length) };
    }
    // An indented item could count as part of the stand-in.
    if (/^\s/.test(pieces[count]))
        return null;
    // Whether the list is loose so far must not depend on items that may still change.
    const bullet = old ? old.bullet : bulletOf(token);
    const before = lex((old ? old.lead : '') + batch + `${bullet} x\n`, {});
    if (before.length !== 1 || before[0].type !== 'list' || before[0].loose !== token.loose)
        return null;
    return { type: 'list', count, bullet, loose: token.loose, lead: standIn(bullet, token.loose), drop: 5,
        size: batch.length };
};

const containerFits = (container, token) => {
    if (!token || token.type !== container.type || !isSelfContained(token))
        return false;
    if (token.type === 'list')
        return token.items.length > 2 && token.loose === container.loose;
    if (token.type === 'table')
        return token.rows.length > 0;
    const paragraph = token.type === 'paragraph' ? token : token.tokens[0];
    return paragraph?.type === 'paragraph' && paragraph.text.length > container.drop;
};
