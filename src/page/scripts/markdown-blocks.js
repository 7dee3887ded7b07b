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
const endsWithItsLine = token => token.type === 'hr' || isClosedFence(token) ||
    (token.type === 'heading' && /^ {0,3}#/.test(token.raw));

const endsAtBlankLine = new Set(['blockquote', 'heading', 'paragraph', 'table']);

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

// ---- unfinished lists and tables --------------------------------------------------------------------

const bulletOf = list => /^ {0,3}([*+-]|\d{1,9}[.)])/.exec(list.items[0].raw)[1];

/// Two items that stand for the final ones of a list when the rest is lexed.
const standIn = (bullet, loose) => `${bullet} x\n${loose ? '\n' : ''}${bullet} x\n`;

/// How to continue after the first items of a list or rows of a table: what to put before the rest of
/// its text, and what of the result to drop. Null when that cannot be done, or is not worth it yet.
/// @param old how it was continued so far, if it was
const containerAfter = (token, old) => {
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

const containerFits = (container, token) => token && token.type === container.type &&
    (token.type === 'list' ? token.items.length > 2 && token.loose === container.loose : token.rows.length > 0);
