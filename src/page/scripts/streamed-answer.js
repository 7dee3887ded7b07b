// Part of the renderer script: shows answers, whole ones and one that grows piece by piece. The growing
// answer always looks as if all of its text were rendered at once, at the cost of its last blocks only.
//
// Blocks that no later text can change are frozen: their nodes stay and their text is not lexed again.
// Of the rest, only blocks whose source has changed are rendered. Three things reach back:
// - Link definitions: frozen blocks that refer to the label are rendered again.
// - Raw HTML that may leave elements open: nothing is frozen from there on.
// - A long list, table, code block or paragraph, also a paragraph in a quote: its first items, rows,
//   lines or words are frozen inside it. The rest, but of code, is lexed behind a stand-in for them,
//   which is dropped from the result.
//
// While the answer grows, frozen nodes are nested in <div class="group"> elements, so that the engine
// lays out the last group only. No element of an answer has this class, so they are unmistakable;
// finish() removes them.

const slotId = 'streaming-response';

const nodesOf = tokens => {
    const html = renderer.parser(tokens);
    const hasMore = tokens.some(token => token.type === 'text' || htmlOf(token).length > 0);
    return withFormulas(hasMore ? sanitizedNodes(html) : nodesOfBlocks(html));
};

/// As nodesOf(), for what may begin with blanks or comments and follows other blocks: at the beginning
/// of a document the sanitizer drops them.
const nodesBehindOthers = tokens =>
    withFormulas(sanitizedNodes('<p></p>' + renderer.parser(tokens)).slice(1));

// ---- changing the page ------------------------------------------------------------------------------

const newGroup = () => {
    const group = document.createElement('div');
    group.className = 'group';
    return group;
};

/// Runs @p change, which moves nodes without changing their text, and keeps the selection.
const keepingSelection = change => {
    const selection = document.getSelection();
    const { anchorNode, anchorOffset, focusNode, focusOffset } = selection;
    change();
    if (anchorNode && anchorNode.isConnected && focusNode.isConnected)
        selection.setBaseAndExtent(anchorNode, anchorOffset, focusNode, focusOffset);
};

const sameShell = (a, b) => a.nodeName === b.nodeName && a.cloneNode(false).isEqualNode(b.cloneNode(false));

/// Makes a code block with frozen lines equal to another one if those lines are the same.
const morphGroupedCode = (old, next) => {
    if (old.nodeName !== 'PRE' || next.nodeName !== 'PRE' || old.firstChild?.className !== 'group' ||
        !next.firstChild || !sameShell(old.lastChild, next.firstChild))
        return false;
    const code = old.lastChild;
    const frozenLength = old.textContent.length - code.textContent.length;
    if (!next.textContent.startsWith(old.textContent.slice(0, frozenLength)))
        return false;
    code.textContent = next.textContent.slice(frozenLength);
    return true;
};

/// Makes a node equal to another one, keeping what is equal, so that the engine lays out only what has
/// changed and a selection survives. Returns the node that is in the page afterwards.
const morphNode = (old, next) => {
    if (old.nodeType === Node.TEXT_NODE && next.nodeType === Node.TEXT_NODE) {
        if (next.data.startsWith(old.data)) {
            if (next.length > old.length)
                old.appendData(next.data.slice(old.length));
        } else {
            old.data = next.data;
        }
        return old;
    }
    if (old.isEqualNode(next) || morphGroupedCode(old, next))
        return old;
    if (old.nodeType === Node.ELEMENT_NODE && sameShell(old, next)) {
        morph(old, old.firstChild, [...next.childNodes]);
        return old;
    }
    old.replaceWith(next);
    return next;
};

/// Makes the children of @p parent from @p old on equal to @p wanted.
const morph = (parent, old, wanted) => {
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

/// The element whose children are the items or rows.
const bodyOf = root => root.nodeName === 'TABLE' ? root.tBodies[0] : root;

/// The paragraph that is the element or the first one in it.
const paragraphIn = root => root.nodeName === 'P' ? root : root.firstElementChild;

/// Makes the part of @p root behind the frozen one equal to that of @p next, which begins with a
/// stand-in.
const morphBehind = (container, root, next) => {
    if (container.type === 'list' || container.type === 'table') {
        const children = [...bodyOf(next).childNodes].slice(container.drop);
        morph(bodyOf(root), container.lastNode.nextSibling, children);
        return;
    }
    const { lastNode } = container;
    const [paragraph, wanted] = [paragraphIn(root), paragraphIn(next)];
    wanted.firstChild.replaceData(0, container.drop, lastNode.data.slice(0, container.length));
    morph(paragraph, lastNode, [...wanted.childNodes]);
    if (paragraph !== root) {
        const children = [...next.childNodes];
        morph(root, paragraph.nextSibling, children.slice(children.indexOf(wanted) + 1));
    }
};

const elementOf = nodes => nodes.find(node => node.nodeType === Node.ELEMENT_NODE);

/// The slot's blocks in order, nested in groups of groups.
class Blocks {
    constructor(slot) {
        this.slot = slot;
        this.clear();
    }
    clear() {
        this.slot.textContent = '';
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
                this.outer = newGroup();
                this.slot.append(this.outer);
            }
            this.group = newGroup();
            this.outer.append(this.group);
        }
        this.group.append(node);
    }
    isAtEnd(node) {
        return node.parentNode === this.group && !node.nextSibling;
    }
}

/// Removes the groups, and joins code that was split between them.
const removeGroups = slot => {
    keepingSelection(() => {
        for (const group of [...slot.querySelectorAll('.group')].reverse()) {
            if (group.parentNode.nodeName === 'PRE') {
                group.parentNode.lastChild.prepend(...group.firstChild.childNodes);
                group.remove();
            } else {
                group.replaceWith(...group.childNodes);
            }
        }
    });
    slot.normalize();
};

// ---- what the renderer or the highlighter cannot cope with ---------------------------------------------

/// Set by the host when rendering this page has taken too long before.
const isPlainPage = document.documentElement.hasAttribute('data-plain');

/// Longer answers are shown as text: rendering takes up to five seconds per million characters.
const longestRendered = 768 * 1024;

/// Length of a piece of plain text: the engine takes quadratic time to break a very long line.
const textPiece = 4096;

/// Appends to an element that shows text. Only lines longer than half a piece are parted.
const addText = (element, text) => {
    let rest = text;
    while (rest !== '') {
        let last = element.lastElementChild;
        const isFull = !last || last.textContent.length >= textPiece ||
            last.textContent.length >= textPiece / 2 && last.textContent.endsWith('\n');
        if (isFull) {
            last = document.createElement('div');
            element.append(last);
        }
        const { length } = last.textContent;
        const lineEnd = rest.indexOf('\n', Math.max(0, textPiece / 2 - length)) + 1;
        const room = textPiece - length;
        let end = lineEnd > 0 && lineEnd < room ? lineEnd : room;
        if (end > 1 && end < rest.length && /[\ud800-\udbff]/.test(rest[end - 1]))
            --end;
        last.append(rest.slice(0, end));
        last.normalize();
        rest = rest.slice(end);
    }
};

const showAsText = (element, text) => {
    element.classList.add('as-text');
    element.textContent = '';
    addText(element, text);
};

// ---- highlighting -----------------------------------------------------------------------------------
// The highlighter's rules take quadratic time for some texts. Pieces of long code are tried first: they
// show whether all of it can be highlighted at once. If not, they stand, and what the task has no time for
// stays plain.

/// Length of a piece, and of the beginning by which the language of code is found.
const pieceLength = 4096;
const detectedLength = 2048;
/// What one task may spend, in milliseconds; it then finishes the piece that it is at.
const highlightTime = 2000;
let highlightSpent = 0;

/// Length of the first piece of @p text, which ends at a blank line or, failing that, with a line.
const firstPiece = text => {
    if (text.length <= pieceLength)
        return text.length;
    for (const end of ['\n\n', '\n']) {
        const at = text.lastIndexOf(end, pieceLength - end.length);
        if (at > 0)
            return at + end.length;
    }
    return pieceLength - /[\ud800-\udbff]/.test(text[pieceLength - 1]);
};

const highlightLongCode = (code, language) => {
    const highlighted = text => hljs.highlight(text, { language, ignoreIllegals: true }).value;
    const text = code.textContent;
    const parts = [];
    let rest = text;
    let slowest = 0;
    const begin = performance.now();
    const spent = () => highlightSpent + performance.now() - begin;
    while (rest !== '' && spent() < highlightTime) {
        const piece = rest.slice(0, firstPiece(rest));
        rest = rest.slice(piece.length);
        const before = spent();
        parts.push(highlighted(piece));
        slowest = Math.max(slowest, spent() - before);
    }
    const isCheap = rest === '' && spent() + parts.length ** 2 * slowest < highlightTime;
    code.innerHTML = isCheap ? highlighted(text) : parts.join('');
    code.append(rest);
    code.classList.add('hljs', `language-${language}`);
};

const highlightBlock = code => {
    const name = /\blang(?:uage)?-([\w-]+)/i.exec(code.className)?.[1];
    const { length } = code.textContent;
    if (length <= (name ? pieceLength : detectedLength)) {
        hljs.highlightElement(code);
        return;
    }
    const language = name ?? hljs.highlightAuto(code.textContent.slice(0, detectedLength)).language ?? 'plaintext';
    if (hljs.getLanguage(language))
        highlightLongCode(code, language);
};

const highlightCode = root => {
    if (highlightSpent === 0)
        setTimeout(() => { highlightSpent = 0; });
    for (const code of root.querySelectorAll('pre code')) {
        const begin = performance.now();
        if (highlightSpent < highlightTime)
            highlightBlock(code);
        else
            code.classList.add('hljs');
        highlightSpent += performance.now() - begin;
    }
};

// ---- the growing answer -----------------------------------------------------------------------------

/// An unfinished code block shorter than this is rendered like any block.
const longCode = 512;
/// Length of the text of code that is frozen at once, at least.
const codeGroup = 1024;

/// Text is split behind a frozen part of this length: the engine copies the node that grows.
const longTextNode = 8192;

class GrowingAnswer {
    constructor(slot) {
        this.slot = slot;
        this.blocks = new Blocks(slot);
        this.text = '';
        this.endsWithReturn = false;
        /// The source behind the frozen blocks.
        this.rest = '';
        /// Frozen blocks that later link definitions may change.
        this.frozen = [];
        this.lastFrozenNode = null;
        /// Definitions in the frozen part, and all with which the page has been rendered.
        this.frozenLinks = {};
        this.links = {};
        /// The blocks behind the frozen ones: source, nodes, and how a frozen part of a block continues.
        this.tail = [];
        this.code = null;
        this.isShownAsText = false;
        slot.classList.remove('as-text');
        if (isPlainPage)
            this.showAsText();
    }

    append(added) {
        this.text += added;
        if (this.isShownAsText) {
            addText(this.slot, added);
            return;
        }
        if (this.text.length > longestRendered) {
            this.showAsText();
            return;
        }
        try {
            const text = this.withLineFeeds(added);
            this.rest += text;
            if (!this.appendToCode(text))
                this.renderRest();
        } catch {
            this.showAsText();
        }
    }

    finish() {
        removeGroups(this.slot);
        highlightCode(this.slot);
    }

    /// Too much for the renderer: the answer is shown as it was written.
    showAsText() {
        this.isShownAsText = true;
        showAsText(this.slot, this.text);
    }

    /// Returns @p added with all line ends as line feeds; the two characters of one may come apart.
    withLineFeeds(added) {
        const text = this.endsWithReturn && added.startsWith('\n') ? added.slice(1) : added;
        if (added !== '')
            this.endsWithReturn = added.endsWith('\r');
        return text.replace(/\r\n?/g, '\n');
    }

    renderRest() {
        let container = this.tail.length > 0 ? this.tail[0].container : null;
        let tokens = lex(container ? container.lead + this.rest : this.rest, this.frozenLinks);
        if (container && (!containerFits(container, tokens[0]) ||
            mentions(container.text, changedLabels(this.links, tokens.links)))) {
            this.rest = container.text + this.rest;
            this.tail[0].container = container = null;
            this.tail[0].raw = '';
            tokens = lex(this.rest, this.frozenLinks);
        }
        this.followLinks(tokens.links);

        const unsafe = tokens.findIndex(token => !isSelfContained(token));
        const count = unsafe < 0 ? tokens.length : unsafe;
        this.showTokens(tokens, count, container);
        this.freeze(tokens, finalTokens(tokens, count));
        this.code = this.codeUnderWay();
    }

    /// Renders again what refers to definitions that came, changed or went.
    followLinks(links) {
        const changed = changedLabels(this.links, links);
        this.links = { ...links };
        if (changed.length === 0)
            return;
        for (const block of this.frozen) {
            if (!mentions(block.raw, changed))
                continue;
            const isLast = block.nodes.includes(this.lastFrozenNode);
            block.nodes = this.replace(block.nodes, nodesOf(lex(block.raw, links)), null, false);
            if (isLast)
                this.lastFrozenNode = block.nodes[block.nodes.length - 1];
        }
        for (const block of this.tail) {
            if (mentions(block.raw, changed))
                block.raw = '';
        }
    }

    /// Makes the tail show the tokens: one block each, what may leave elements open in one.
    showTokens(tokens, count, container) {
        const old = this.tail;
        const blocks = [];
        let previous = this.lastFrozenNode;
        const show = (part, raw, render) => {
            const index = blocks.length;
            const block = old[index] || { raw: '', type: '', nodes: [], container: null };
            blocks.push(block);
            if (block.raw !== raw || block.type !== part[0].type) {
                const fresh = render(part);
                if (index === 0 && container)
                    morphBehind(container, elementOf(block.nodes), elementOf(fresh));
                else
                    block.nodes = this.replace(block.nodes, fresh, previous, index >= old.length - 1);
                block.raw = raw;
                block.type = part[0].type;
            }
            previous = block.nodes[block.nodes.length - 1] || previous;
        };
        for (const token of tokens.slice(0, count))
            show([token], token.raw, nodesOf);
        if (count < tokens.length) {
            const rest = tokens.slice(count);
            show(rest, rest.map(token => token.raw).join(''), previous ? nodesBehindOthers : nodesOf);
            // Joint blocks are never the same twice.
            blocks[count].type = '';
        }
        for (const block of old.slice(blocks.length))
            block.nodes.forEach(node => node.remove());
        this.tail = blocks;
    }

    /// Puts @p wanted in the place of @p nodes, which follow @p previous.
    replace(nodes, wanted, previous, isLast) {
        const result = [];
        let before = previous;
        wanted.forEach((next, i) => {
            const node = i < nodes.length ? morphNode(nodes[i], next) : next;
            if (i >= nodes.length) {
                if (before && !(isLast && this.blocks.isAtEnd(before)))
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

    /// Freezes the first @p count blocks, and the beginning of a long block behind them.
    freeze(tokens, count) {
        this.freezeBlocks(tokens, count);
        const left = tokens.slice(count);
        for (const [i, token] of left.entries()) {
            const block = this.tail[i];
            const isText = token.type === 'paragraph' || token.type === 'blockquote';
            if (!block || block.type !== token.type || !isText && token.type !== 'list' && token.type !== 'table')
                continue;
            // Text may yet become part of what is before it.
            if (isText && left.slice(0, i).some(before => before.type !== 'space'))
                continue;
            const next = containerAfter(token, block.container);
            if (!next)
                continue;
            this.freezeBlocks(left, i);
            if (isText)
                this.freezeText(block, next);
            else
                this.freezeChildren(token, block, next);
            return;
        }
    }

    freezeBlocks(tokens, count) {
        for (const { raw, nodes, container } of this.tail.splice(0, count)) {
            const length = raw.length - (container ? container.lead.length : 0);
            const source = (container ? container.text : '') + this.rest.slice(0, length);
            this.rest = this.rest.slice(length);
            if (source.includes('['))
                this.frozen.push({ raw: source, nodes });
            if (nodes.length > 0)
                this.lastFrozenNode = nodes[nodes.length - 1];
        }
        if (count > 0 && Object.keys(this.links).length > 0)
            addDefinitions(this.frozenLinks, tokens.slice(0, count));
    }

    freezeChildren(token, block, next) {
        const old = block.container;
        const isList = next.type === 'list';
        if (isList && Object.keys(this.links).length > 0)
            addDefinitions(this.frozenLinks, token.items.slice(0, (old ? 2 : 0) + next.count));
        const body = bodyOf(elementOf(block.nodes));
        // Each child is followed by a line break, and the first item of a list follows one.
        const place = old ? old.lastNode : isList ? body.firstChild : null;
        const start = place ? [...body.childNodes].indexOf(place) + 1 : 0;
        const frozen = [...body.childNodes].slice(start, start + 2 * next.count);
        let lastNode = frozen[frozen.length - 1];
        if (isList) {
            const group = newGroup();
            keepingSelection(() => {
                lastNode.after(group);
                group.append(...frozen);
            });
            lastNode = group;
        }
        this.continueBehind(block, next, lastNode);
    }

    freezeText(block, next) {
        const old = block.container;
        let lastNode = old ? old.lastNode : paragraphIn(elementOf(block.nodes)).firstChild;
        for (let left = next.elements; left > 0 && lastNode; lastNode = lastNode.nextSibling)
            left -= lastNode.nodeType === Node.ELEMENT_NODE;
        const length = (old && next.elements === 0 ? old.length : 0) + next.run.length;
        // Character references are shorter in the page; then more text has to come.
        if (lastNode?.nodeType !== Node.TEXT_NODE || !lastNode.data.slice(0, length).endsWith(next.run))
            return;
        const isLong = length > longTextNode;
        this.continueBehind(block, { ...next, length: isLong ? 0 : length },
            isLong ? lastNode.splitText(length) : lastNode);
    }

    /// The beginning of a block, which ends with or in @p lastNode, is frozen from now on.
    continueBehind(block, next, lastNode) {
        const text = (block.container?.text ?? '') + this.rest.slice(0, next.size);
        block.container = { ...next, lastNode, text };
        block.raw = '';
        this.rest = this.rest.slice(next.size);
    }

    // ---- a long code block: its text only grows -----------------------------------------------------

    codeUnderWay() {
        const block = this.tail[this.tail.length - 1];
        if (!block || block.type !== 'code' || block.raw.length < longCode ||
            !this.rest.endsWith(block.raw) || !/^(`{3,}|~{3,})/.test(block.raw))
            return null;
        const source = block.raw.slice(block.raw.indexOf('\n') + 1);
        // Of the line breaks at the end, the last two mean nothing yet.
        const breaks = /\n{0,2}$/.exec(source)[0];
        const element = block.nodes[0].lastChild;
        if (source === block.raw || /^ {0,3}[`~]/m.test(source) || source.includes('\0') ||
            block.nodes[0].textContent !== source.slice(0, source.length - breaks.length) + '\n')
            return null;
        return { block, element, breaks, line: source.slice(source.lastIndexOf('\n') + 1) };
    }

    appendToCode(text) {
        const { code } = this;
        if (!code)
            return false;
        const lines = code.line + text;
        if (/^ {0,3}[`~]/m.test(lines) || text.includes('\0')) {
            this.code = null;
            return false;
        }
        code.line = lines.slice(lines.lastIndexOf('\n') + 1);
        code.block.raw = '';
        const added = code.breaks + text;
        [code.breaks] = /\n{0,2}$/.exec(added);
        const node = code.element.firstChild;
        node.replaceData(node.length - 1, 1, added.slice(0, added.length - code.breaks.length) + '\n');
        if (node.length > 2 * codeGroup)
            this.freezeLines(code.element, node);
        return true;
    }

    freezeLines(element, node) {
        const end = node.data.lastIndexOf('\n', node.length - codeGroup) + 1;
        if (end < codeGroup)
            return;
        const group = newGroup();
        const lines = element.cloneNode(false);
        group.append(lines);
        keepingSelection(() => {
            node.splitText(end);
            lines.append(node);
        });
        element.before(group);
    }
}

/// Shows a whole answer.
const show = (element, markdown) => {
    element.classList.remove('as-text');
    if (isPlainPage || markdown.length > longestRendered) {
        showAsText(element, markdown);
        return;
    }
    try {
        element.replaceChildren(...nodesOf(lex(markdown, {})));
        element.normalize();
    } catch {
        // The other answers of the thread are shown at all.
        showAsText(element, markdown);
    }
    highlightCode(element);
};

let growing = null;
let isFinished = false;

// ---- following the end: until the reader scrolls away from it, and again once they are back ----------

/// The end counts as reached within this distance, in pixels: positions are rounded.
const endMargin = 4;
let isFollowing = true;
/// Position that scrollToEnd() has set last. Its event comes later, when the text may have grown again.
let endPosition = null;

const scrollToEnd = () => {
    if (!isFollowing)
        return;
    document.body.scrollTop = document.body.scrollHeight;
    endPosition = document.body.scrollTop;
};

// Captured, because the event of the body's own scrolling does not bubble and there is no body yet.
document.addEventListener('scroll', ({ target }) => {
    const { body } = document;
    if (target !== body || body.scrollTop === endPosition)
        return;
    endPosition = null;
    isFollowing = body.scrollHeight - body.clientHeight - body.scrollTop <= endMargin;
}, { capture: true, passive: true });

Object.defineProperty(globalThis, 'answers', {
    value: Object.freeze({
        show,
        /// Adds a piece to the growing answer.
        append(text) {
            if (!growing || isFinished)
                growing = new GrowingAnswer(growing ? growing.slot : document.getElementById(slotId));
            isFinished = false;
            growing.append(text);
            scrollToEnd();
        },
        /// The growing answer is complete: from now on its elements are those of a whole answer.
        finish() {
            if (!growing)
                growing = new GrowingAnswer(document.getElementById(slotId));
            growing.finish();
            isFinished = true;
            scrollToEnd();
        },
    }),
});
