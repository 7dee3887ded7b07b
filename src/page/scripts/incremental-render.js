// Part of the renderer script: what marked.parse returns, and how the slot of a streamed answer
// takes it. The page assigns the whole answer again for every chunk; the result must be the same as
// if that were really rendered as a whole, at the cost of the last blocks only.
//
// Blocks that no later text can change are kept as they are ("frozen") and only the rest is lexed
// again; of the rest, only blocks whose source has changed are rendered. Three things reach back:
// - Link definitions: the frozen blocks that name the label are rendered again.
// - Raw HTML that may leave elements open: nothing is frozen from there on.
// - A list or table that goes on and on: its first items or rows are frozen inside it. The rest is
//   lexed behind a stand-in for them, which is dropped from the result.
//
// Frozen blocks are nested in plain groups, so that the engine lays out the last group only. Who asks
// for the page's code blocks or the slot's markup, as the page does at the end, finds no groups.
(renderer, sanitizedFragment, sanitizedText) => {
    'use strict';
    const slotId = 'streaming-response';
    const groupSize = 24;
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

    const lex = (source, links) => {
        const lexer = new renderer.Lexer();
        Object.assign(lexer.tokens.links, links);
        return lexer.lex(source);
    };

    const {
        isSelfContained, finalTokens, changedLabels, mentions, addDefinitions, containerAfter,
        containerFits, bodyOf,
    } = (%markdown-blocks%)(renderer, lex, groupSize);

    const render = tokens => [...sanitizedFragment(renderer.parser(tokens)).childNodes];

    /// As render(), for what may begin with blanks or comments: at the beginning of a document they
    /// would get lost.
    const renderBehindOthers = tokens =>
        [...sanitizedFragment('<p></p>' + renderer.parser(tokens)).childNodes].slice(1);

    // ---- changing the page ----------------------------------------------------------------------

    const sameShell = (a, b) => a.nodeName === b.nodeName && a.nodeType === b.nodeType &&
        a.cloneNode(false).isEqualNode(b.cloneNode(false));

    /// Makes a node equal to another one, keeping what is equal, so that the engine lays out only what
    /// has changed and a selection lives on. Returns the node that is in the page afterwards.
    const morphNode = (old, next) => {
        if (old.isEqualNode(next))
            return old;
        if (old.nodeType === Node.TEXT_NODE && next.nodeType === Node.TEXT_NODE) {
            if (next.data.startsWith(old.data))
                old.appendData(next.data.slice(old.data.length));
            else
                old.data = next.data;
            return old;
        }
        if (old.nodeType === Node.ELEMENT_NODE && sameShell(old, next)) {
            morph(old, 0, [...next.childNodes]);
            return old;
        }
        old.replaceWith(next);
        return next;
    };

    /// Makes the children of @p parent from @p first on equal to @p wanted.
    const morph = (parent, first, wanted) => {
        let old = parent.childNodes[first] || null;
        for (const next of wanted) {
            if (!old) {
                parent.append(next);
                continue;
            }
            const following = old.nextSibling;
            morphNode(old, next);
            old = following;
        }
        while (old) {
            const following = old.nextSibling;
            old.remove();
            old = following;
        }
    };

    /// The slot's blocks in order, nested in groups of groups.
    class Blocks {
        constructor(slot) {
            this.slot = slot;
            this.start();
        }
        clear() {
            this.slot.textContent = '';
            this.start();
        }
        start() {
            this.groups = new Set();
            this.group = this.slot;
            this.outer = null;
            this.inGroup = 0;
            this.inOuter = 0;
        }
        append(node) {
            if (node.nodeType === Node.ELEMENT_NODE && ++this.inGroup > groupSize) {
                this.inGroup = 1;
                if (!this.outer || ++this.inOuter > groupSize) {
                    this.inOuter = 1;
                    this.outer = document.createElement('div');
                    this.slot.append(this.outer);
                    this.groups.add(this.outer);
                }
                this.group = document.createElement('div');
                this.outer.append(this.group);
                this.groups.add(this.group);
            }
            this.group.append(node);
        }
        /// Leaves the blocks as the slot's own children.
        flatten() {
            if (this.groups.size === 0)
                return;
            const selection = document.getSelection();
            const { anchorNode, anchorOffset, focusNode, focusOffset } = selection;
            for (const group of this.groups)
                group.replaceWith(...group.childNodes);
            this.start();
            if (anchorNode && anchorNode.isConnected && focusNode.isConnected)
                selection.setBaseAndExtent(anchorNode, anchorOffset, focusNode, focusOffset);
        }
        /// The slot's markup without groups.
        markup() {
            const copy = document.createElement('div');
            const add = parent => parent.childNodes.forEach(node => {
                if (this.groups.has(node))
                    add(node);
                else
                    copy.append(node.cloneNode(true));
            });
            add(this.slot);
            return innerHTML.get.call(copy);
        }
    }

    class Answer {
        constructor(slot) {
            this.slot = slot;
            this.blocks = new Blocks(slot);
            this.start();
            // What the slot holds now is the page's own.
            this.isFinished = true;
        }

        reset() {
            this.blocks.clear();
            this.start();
        }

        start() {
            this.text = '';
            this.frozenEnd = 0;
            this.frozen = [];
            /// Definitions in the frozen part, and all with which the page has been rendered.
            this.frozenLinks = {};
            this.links = {};
            this.tail = [];
            this.openFence = null;
            this.isFinished = false;
        }

        finish() {
            this.blocks.flatten();
            this.isFinished = true;
        }

        isIntact() {
            const units = [this.frozen[this.frozen.length - 1], this.tail[0], this.tail[this.tail.length - 1]];
            return units.every(unit => !unit || unit.nodes.every(node => this.slot.contains(node)));
        }

        update(source) {
            const text = source.includes('\r') ? source.replace(/\r\n?/g, '\n') : source;
            if (this.isFinished || this.frozen.length + this.tail.length === 0 || !this.isIntact() ||
                !text.startsWith(this.text.slice(0, this.frozenEnd)))
                this.reset();
            if (!this.appendToFence(text)) {
                this.text = text;
                this.renderTail();
            }
        }

        renderTail() {
            let container = this.tail[0] && this.tail[0].container;
            let tokens = this.lexTail(container);
            if (container && (!containerFits(container, tokens[0]) ||
                mentions(this.text.slice(this.tail[0].start, this.frozenEnd), changedLabels(this.links, tokens.links)))) {
                this.frozenEnd = this.tail[0].start;
                this.tail[0].container = container = null;
                this.tail[0].raw = '';
                tokens = this.lexTail(null);
            }
            this.followLinks(tokens.links);

            const safe = tokens.findIndex(token => !isSelfContained(token));
            const count = safe < 0 ? tokens.length : safe;
            this.showUnits(tokens, count, container);
            this.freeze(tokens, finalTokens(tokens, count));
            this.openFence = this.fenceUnderWay();
        }

        lexTail(container) {
            const rest = this.text.slice(this.frozenEnd);
            return lex(container ? container.lead + rest : rest, this.frozenLinks);
        }

        /// Renders again what refers to definitions that came, changed or went.
        followLinks(links) {
            const changed = changedLabels(this.links, links);
            this.links = { ...links };
            if (changed.length === 0)
                return;
            for (const unit of this.frozen) {
                if (mentions(unit.raw, changed))
                    unit.nodes = this.replace(unit.nodes, render(lex(unit.raw, links)), null);
            }
            for (const unit of this.tail) {
                if (mentions(unit.raw, changed))
                    unit.raw = '';
            }
        }

        /// Makes the tail show the tokens: one unit each, what may leave elements open in one.
        showUnits(tokens, count, container) {
            const old = this.tail;
            const units = [];
            let end = this.frozenEnd;
            let previous = this.lastFrozenNode();
            const show = (part, raw, index, renderPart) => {
                const unit = old[index] || { raw: '', nodes: [], container: null };
                const carries = index === 0 ? container : null;
                unit.start = carries ? unit.start : end;
                if (unit.raw !== raw || unit.type !== part[0].type) {
                    const fresh = renderPart(part);
                    if (carries) {
                        const live = unit.nodes.find(node => node.nodeType === Node.ELEMENT_NODE);
                        const made = fresh.find(node => node.nodeType === Node.ELEMENT_NODE);
                        morph(bodyOf(live), carries.keep, [...bodyOf(made).childNodes].slice(carries.drop));
                    } else {
                        unit.nodes = this.replace(unit.nodes, fresh, previous, index >= old.length - 1);
                    }
                    unit.raw = raw;
                    unit.type = part[0].type;
                }
                end += raw.length - (carries ? carries.lead.length : 0);
                unit.end = end;
                previous = unit.nodes[unit.nodes.length - 1] || previous;
                units.push(unit);
            };
            for (let i = 0; i < count; ++i)
                show([tokens[i]], tokens[i].raw, i, render);
            if (count < tokens.length) {
                const rest = tokens.slice(count);
                show(rest, rest.map(token => token.raw).join(''), count, previous ? renderBehindOthers : render);
                // Joint blocks are never the same twice.
                units[count].type = '';
            }
            for (const unit of old.slice(units.length))
                unit.nodes.forEach(node => node.remove());
            this.tail = units;
        }

        lastFrozenNode() {
            for (let i = this.frozen.length - 1; i >= 0; --i) {
                const nodes = this.frozen[i].nodes;
                if (nodes.length > 0)
                    return nodes[nodes.length - 1];
            }
            return null;
        }

        /// Puts @p wanted in the place of @p nodes, which follow @p previous.
        replace(nodes, wanted, previous, isLast) {
            const result = [];
            let before = previous;
            wanted.forEach((next, i) => {
                const node = i < nodes.length ? morphNode(nodes[i], next) : next;
                if (i >= nodes.length) {
                    if (before && !(isLast && this.isAtEnd(before)))
                        before.after(node);
                    else if (!before && this.slot.firstChild)
                        this.slot.prepend(node);
                    else
                        this.blocks.append(node);
                }
                result.push(node);
                before = node;
            });
            nodes.slice(wanted.length).forEach(node => node.remove());
            return result;
        }

        isAtEnd(node) {
            return node.parentNode === this.blocks.group && !node.nextSibling;
        }

        freeze(tokens, count) {
            this.freezeUnits(tokens, count);
            for (let i = count; i < tokens.length && i - count < this.tail.length; ++i) {
                const token = tokens[i];
                const unit = this.tail[i - count];
                if ((token.type !== 'list' && token.type !== 'table') || unit.type !== token.type)
                    continue;
                const start = unit.container ? this.frozenEnd : unit.start;
                const next = containerAfter(token, this.text, start, unit);
                if (!next)
                    continue;
                this.freezeUnits(tokens.slice(count), i - count);
                if (token.type === 'list' && Object.keys(this.links).length > 0) {
                    const frozenItems = next.kept - (unit.container ? unit.container.kept : 0);
                    addDefinitions(this.frozenLinks, token.items.slice(0, frozenItems + 2));
                }
                unit.container = next;
                unit.raw = '';
                this.frozenEnd = next.end;
                return;
            }
        }

        freezeUnits(tokens, count) {
            if (count === 0)
                return;
            for (const unit of this.tail.splice(0, count)) {
                unit.raw = this.text.slice(unit.start, unit.end);
                unit.container = null;
                this.frozenEnd = unit.end;
                this.frozen.push(unit);
            }
            if (Object.keys(this.links).length > 0)
                addDefinitions(this.frozenLinks, tokens.slice(0, count));
        }

        // ---- a long code block under way: its text just grows -----------------------------------

        /// Where the text of a code block ends that has not been closed: of the line breaks at the end,
        /// the last two mean nothing yet.
        static codeEnd(text) {
            let end = text.length;
            for (let i = 0; i < 2 && text[end - 1] === '\n'; ++i)
                --end;
            return end;
        }

        fenceUnderWay() {
            const unit = this.tail[this.tail.length - 1];
            if (!unit || unit.type !== 'code' || unit.raw.length < 512 || unit.end !== this.text.length ||
                !/^(`{3,}|~{3,})/.test(unit.raw))
                return null;
            const line = unit.raw.indexOf('\n') + 1;
            if (line === 0 || /^ {0,3}(`{3,}|~{3,})/m.test(unit.raw.slice(line)))
                return null;
            const start = unit.start + line;
            const code = unit.nodes[0] && unit.nodes[0].firstChild;
            const node = code && code.firstChild;
            const isPlain = node && node.nodeType === Node.TEXT_NODE && !node.nextSibling &&
                node.data === this.text.slice(start, Answer.codeEnd(this.text)) + '\n';
            return isPlain ? { unit, node, start } : null;
        }

        appendToFence(text) {
            const fence = this.openFence;
            if (!fence || !text.startsWith(this.text))
                return false;
            const added = text.slice(this.text.lastIndexOf('\n') + 1);
            const known = fence.start + fence.node.length - 1;
            const end = Answer.codeEnd(text);
            if (/^ {0,3}[`~]/m.test(added) || added.includes('\0') || end < known)
                return false;
            fence.node.replaceData(fence.node.length - 1, 1, text.slice(known, end) + '\n');
            fence.unit.raw = '';
            fence.unit.end = text.length;
            this.text = text;
            return true;
        }
    }

    const install = slot => {
        const answer = new Answer(slot);
        Object.defineProperty(slot, 'innerHTML', {
            get() {
                return answer.blocks.groups.size > 0 ? answer.blocks.markup() : innerHTML.get.call(slot);
            },
            set(value) {
                if (value instanceof Rendering) {
                    answer.update(value.source);
                } else {
                    answer.reset();
                    innerHTML.set.call(slot, value);
                }
            },
        });
        const querySelectorAll = Document.prototype.querySelectorAll;
        // The page asks for its code blocks once, when the answer is complete.
        document.querySelectorAll = selectors => {
            if (selectors === 'pre code')
                answer.finish();
            return querySelectorAll.call(document, selectors);
        };
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
