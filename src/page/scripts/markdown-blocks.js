// Part of the renderer script: what the blocks of a growing Markdown text do to each other, and which of
// them no later text can change. Knows tokens only, nothing of the page.
(renderer, lex, groupSize) => {
    'use strict';
    /// Items or rows of a list or table under way that stay unfrozen.
    const margin = 3;

    // ---- what a block may do to its neighbours --------------------------------------------------

    const phrasing = new Set(['abbr', 'b', 'big', 'cite', 'code', 'del', 'em', 'i', 'ins', 'kbd', 'mark',
        'q', 's', 'samp', 'small', 'span', 'strong', 'sub', 'sup', 'tt', 'u', 'var']);
    const empty = new Set(['br', 'img', 'wbr']);
    const tag = /^<(\/?)([a-z][a-z0-9]*)\b[^<>]*>$/i;

    const htmlOf = token => {
        const found = [];
        renderer.walkTokens([token], inner => {
            if (inner.type === 'html')
                found.push(inner);
        });
        return found;
    };

    /// Whether the HTML of a block ends where the block ends.
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

    const opener = /^( {0,3})(`{3,}|~{3,})/;

    const isClosedFence = token => {
        const start = token.type === 'code' && opener.exec(token.raw);
        if (!start)
            return false;
        const raw = token.raw.trimEnd();
        const last = raw.slice(raw.lastIndexOf('\n') + 1).trim();
        return raw.includes('\n') && last.length >= start[2].length && last === start[2][0].repeat(last.length);
    };

    /// Whether a block is final as soon as something follows it.
    const endsByItself = token => isClosedFence(token) ||
        (token.type === 'heading' && /^ {0,3}#/.test(token.raw) && token.raw.endsWith('\n'));

    /// Number of leading tokens, of @p count, that are final: the last border that is a blank line with
    /// two more blocks behind it, or a block that ends by itself with one more behind it.
    const finalTokens = (tokens, count) => {
        let blocksAfter = 0;
        for (let i = tokens.length - 1; i >= 0; --i) {
            const token = tokens[i];
            const isBorder = token.type === 'space' ? token.raw.length > 1 && blocksAfter > 1
                : blocksAfter > 0 && endsByItself(token);
            if (isBorder && i < count)
                return i + 1;
            if (token.type !== 'space')
                ++blocksAfter;
        }
        return 0;
    };

    // ---- link definitions -----------------------------------------------------------------------

    const changedLabels = (a, b) => {
        const changed = [];
        for (const label of new Set([...Object.keys(a), ...Object.keys(b)])) {
            if (!a[label] || !b[label] || a[label].href !== b[label].href || a[label].title !== b[label].title)
                changed.push(label);
        }
        return changed;
    };

    /// Whether a block's source may refer to a label; rather too often than too rarely.
    const mentions = (raw, labels) => {
        if (labels.length === 0 || !raw.includes('['))
            return false;
        const lower = raw.toLowerCase();
        return labels.some(label => !/^[!-~]+$/.test(label) || lower.includes(`[${label}]`));
    };

    const addDefinitions = (links, tokens) => {
        renderer.walkTokens(tokens, token => {
            if (token.type === 'def' && !links[token.tag])
                links[token.tag] = { href: token.href, title: token.title };
        });
    };

    // ---- lists and tables under way -------------------------------------------------------------

    const bulletOf = list => /^ {0,3}([*+-]|\d{1,9}[.)])/.exec(list.items[0].raw)[1];

    /// Two items that stand for the frozen ones of a list; the rest is lexed after them.
    const standIn = (bullet, loose) => `${bullet} x\n${loose ? '\n' : ''}${bullet} x\n`;

    /// How to go on after the first items of a list or rows of a table; null when that cannot be done.
    const containerAfter = (token, text, from, unit) => {
        const old = unit.container;
        const dropped = old && token.type === 'list' ? 2 : 0;
        const pieces = token.type === 'list' ? token.items.slice(dropped).map(item => item.raw)
            : token.raw.trimEnd().split('\n').slice(2).map(line => line + '\n');
        const count = pieces.length - margin;
        if (count < groupSize || htmlOf(token).length > 0)
            return null;
        const batch = pieces.slice(0, count).join('');
        const kept = (old ? old.kept : 0) + count;
        const head = old ? old.head : token.raw.split('\n', 2).join('\n') + '\n';
        if (token.type === 'table') {
            const start = old ? from : from + head.length;
            return { type: 'table', kept, head, lead: head, drop: 0, keep: 2 * kept, end: start + batch.length };
        }
        const bullet = old ? old.bullet : bulletOf(token);
        // An indented item could count as part of the stand-in.
        if (/^\s/.test(pieces[count]))
            return null;
        // Whether the list is loose so far must not depend on items that may still change.
        const before = lex((old ? old.lead : '') + batch + `${bullet} x\n`, {});
        if (before.length !== 1 || before[0].type !== 'list' || before[0].loose !== token.loose)
            return null;
        return { type: 'list', kept, head: '', bullet, loose: token.loose, lead: standIn(bullet, token.loose),
            drop: 5, keep: 1 + 2 * kept, end: from + batch.length };
    };

    const containerFits = (container, token) => token && token.type === container.type &&
        (token.type === 'list' ? token.items.length > 2 && token.loose === container.loose : token.rows.length > 0);

    const bodyOf = root => root.nodeName === 'TABLE' ? root.tBodies[0] : root;

    return { isSelfContained, finalTokens, changedLabels, mentions, addDefinitions, containerAfter, containerFits, bodyOf };
}
