// Part of the renderer script: what marked.parse returns, and how the slot of a streamed answer
// takes it. The page assigns the whole answer again for every chunk; the result must be the same as
// if that were really rendered as a whole, at the cost of the last blocks only.
//
// Blocks before a blank line that is followed by two more blocks cannot change any more: they are
// kept as they are ("frozen") and only the rest is lexed again. Two things reach back beyond such a
// border: link definitions, after which the whole answer is rendered, and raw HTML, which may leave
// elements open: nothing is frozen from there on.
(renderer, sanitizedFragment, sanitizedText) => {
    'use strict';
    const slotId = 'streaming-response';
    const innerHTML = Object.getOwnPropertyDescriptor(Element.prototype, 'innerHTML');

    /// Markdown that becomes HTML when somebody looks at it.
    class Rendering {
        constructor(source) {
            this.source = source;
        }
        toString() {
            return sanitizedText(renderer.parse(this.source));
        }
    }

    const containsHtml = token => {
        let found = false;
        renderer.walkTokens([token], inner => {
            found = found || inner.type === 'html';
        });
        return found;
    };

    /// Number of leading tokens that are final.
    const finalTokens = tokens => {
        let blocksAfter = 0;
        let border = tokens.length;
        while (border > 0) {
            const token = tokens[border - 1];
            if (token.type === 'space' && token.raw.length > 1 && blocksAfter > 1)
                break;
            if (token.type !== 'space')
                ++blocksAfter;
            --border;
        }
        const html = tokens.slice(0, border).findIndex(containsHtml);
        if (html < 0)
            return border;
        for (border = html; border > 0; --border) {
            if (tokens[border - 1].type === 'space' && tokens[border - 1].raw.length > 1)
                break;
        }
        return border;
    };

    const sameShell = (a, b) => a.nodeName === b.nodeName && a.nodeType === b.nodeType &&
        a.cloneNode(false).isEqualNode(b.cloneNode(false));

    /// Makes the children of @p parent from @p first on equal to @p wanted, keeping what is equal, so
    /// that the engine lays out only what has changed.
    const morph = (parent, first, wanted) => {
        let old = parent.childNodes[first] || null;
        for (const next of wanted) {
            if (!old) {
                parent.append(next);
                continue;
            }
            const following = old.nextSibling;
            if (!old.isEqualNode(next)) {
                if (old.nodeType === Node.TEXT_NODE && next.nodeType === Node.TEXT_NODE) {
                    if (next.data.startsWith(old.data))
                        old.appendData(next.data.slice(old.data.length));
                    else
                        old.data = next.data;
                } else if (old.nodeType === Node.ELEMENT_NODE && sameShell(old, next)) {
                    morph(old, 0, [...next.childNodes]);
                } else {
                    old.replaceWith(next);
                }
            }
            old = following;
        }
        while (old) {
            const following = old.nextSibling;
            old.remove();
            old = following;
        }
    };

    const install = slot => {
        let frozenSource = '';
        let frozenNodes = 0;

        const update = source => {
            const text = source.replace(/\r\n?/g, '\n');
            if (!text.startsWith(frozenSource) || slot.childNodes.length < frozenNodes) {
                frozenSource = '';
                frozenNodes = 0;
            }
            let tokens = renderer.lexer(text.slice(frozenSource.length));
            if (Object.keys(tokens.links).length > 0 && frozenSource) {
                frozenSource = '';
                frozenNodes = 0;
                tokens = renderer.lexer(text);
            }
            const count = Object.keys(tokens.links).length > 0 ? 0 : finalTokens(tokens);
            const final = count > 0 ? [...sanitizedFragment(renderer.parser(tokens.slice(0, count))).childNodes] : [];
            const rest = [...sanitizedFragment(renderer.parser(tokens.slice(count))).childNodes];
            morph(slot, frozenNodes, [...final, ...rest]);
            frozenNodes += final.length;
            for (let i = 0; i < count; ++i)
                frozenSource += tokens[i].raw;
        };

        Object.defineProperty(slot, 'innerHTML', {
            get() {
                return innerHTML.get.call(slot);
            },
            set(value) {
                if (value instanceof Rendering) {
                    update(value.source);
                } else {
                    frozenSource = '';
                    frozenNodes = 0;
                    innerHTML.set.call(slot, value);
                }
            },
        });
    };

    let known = null;
    return source => {
        const slot = document.getElementById(slotId);
        if (slot && slot !== known) {
            known = slot;
            install(slot);
        }
        return new Rendering(source);
    };
}
