// Part of the bridge script: finds a text in the page's questions, answers and notes, and marks it in a
// separate layer, so that the page's own elements, which may be growing, stay as they are. The host calls
// the functions in this world; the page's scripts cannot reach them.
post => {
    'use strict';
    const threadTexts = '.prompt-text, .turn-response, .note-text';
    /// The text of a page without a thread.
    const message = '#ct';
    /// Time between two searches of a page that changes, in milliseconds and in durations of a search.
    const pause = 250;
    const pauseFactor = 10;
    /// Most marks at once; more do not fit into a view.
    const mostMarks = 400;
    const margin = 24;
    const sheet = `
        :host { all: initial; position: fixed; inset: 0; overflow: hidden; pointer-events: none;
            z-index: 2147483646; }
        i { position: absolute; border-radius: 2px; background: rgba(230, 180, 40, 0.36); }
        i.current { background: rgba(255, 140, 0, 0.46); outline: 2px solid #ffb340; }
        .light i { background: rgba(255, 200, 0, 0.42); }
        .light i.current { background: rgba(255, 150, 0, 0.5); outline-color: #b35c00; }
    `;

    let wanted = '';
    /// The searched text in reduced form, and in order the stretches that it is made of: where each begins,
    /// the text node that it is from, and where its characters are there, one after another from
    /// `offset` or at `offsets`.
    let text = '', stretches = [];
    /// Whether the page has changed since its text was read.
    let isStale = false;
    /// Positions of the occurrences in the reduced text.
    let matches = [], current = -1;
    let layer = null, observer = null, reported = '', timer = 0, isPlacing = false, lastDuration = 0;

    // ---- comparing: without case, accents and amounts of white space --------------------------------

    const reducedForms = new Map();
    const reduced = character => {
        let form = reducedForms.get(character);
        if (form === undefined) {
            form = /\s/u.test(character) ? ' '
                : character.toLowerCase().normalize('NFKD').replace(/\p{M}/gu, '').toLowerCase()
                    .replaceAll('ß', 'ss').replaceAll('ς', 'σ');
            reducedForms.set(character, form);
        }
        return form;
    };
    const reducedText = value => Array.from(value, reduced).join('').replace(/ +/g, ' ').trim();

    /// Whether an element begins a line of its own; null if it is not shown at all.
    const kindOf = element => {
        const { display } = getComputedStyle(element);
        if (display === 'none' || element.matches('.katex-mathml'))
            return null;
        return !display.startsWith('inline') || element.localName === 'br';
    };

    /// Words whose characters stay in place when they are reduced.
    const plainWords = /[!-~]+(?:[ \t\n][!-~]+){0,500}/g;

    const readText = () => {
        const parts = [];
        stretches = [];
        let length = 0, last = '\n';
        const add = (form, node, offset, offsets = null) => {
            parts.push(form);
            stretches.push({ at: length, node, offset, offsets });
            length += form.length;
            last = form.at(-1);
        };
        // Not found in any text, so that no occurrence crosses it.
        const separate = () => {
            if (last !== '\n')
                add('\n', null, 0);
        };
        const addCharacters = (node, from, to) => {
            const offsets = [];
            let form = '', before = last;
            for (let offset = from; offset < to;) {
                const character = String.fromCodePoint(node.data.codePointAt(offset));
                for (const unit of reduced(character)) {
                    if (unit === ' ' && before === ' ')
                        continue;
                    before = unit;
                    form += unit;
                    for (let i = 0; i < unit.length; i++)
                        offsets.push(offset);
                }
                offset += character.length;
            }
            if (form !== '')
                add(form, node, from, offsets);
        };
        const addText = node => {
            let end = 0;
            for (const { 0: words, index } of node.data.matchAll(plainWords)) {
                addCharacters(node, end, index);
                add(words.toLowerCase().replace(/[\t\n]/g, ' '), node, index);
                end = index + words.length;
            }
            addCharacters(node, end, node.data.length);
        };
        const visit = node => {
            if (node.nodeType === Node.TEXT_NODE) {
                addText(node);
            } else if (node.nodeType === Node.ELEMENT_NODE) {
                const isBlock = kindOf(node);
                if (isBlock === null)
                    return;
                if (isBlock)
                    separate();
                for (const child of node.childNodes)
                    visit(child);
                if (isBlock)
                    separate();
            }
        };
        const texts = document.querySelectorAll(threadTexts);
        for (const root of texts.length > 0 ? texts : document.querySelectorAll(message))
            visit(root);
        text = parts.join('');
    };

    /// Where a character of the searched text is in the page.
    const placeOf = position => {
        let low = 0, high = stretches.length;
        while (high - low > 1) {
            const middle = (low + high) >> 1;
            if (stretches[middle].at <= position)
                low = middle;
            else
                high = middle;
        }
        const { at, node, offset, offsets } = stretches[low];
        return { node, offset: offsets ? offsets[position - at] : offset + position - at };
    };

    const search = () => {
        const start = performance.now();
        isStale = false;
        matches = [];
        if (wanted !== '') {
            readText();
            for (let at = text.indexOf(wanted); at >= 0; at = text.indexOf(wanted, at + wanted.length))
                matches.push(at);
        }
        current = Math.min(current, matches.length - 1);
        lastDuration = performance.now() - start;
    };

    const rangeOf = match => {
        const start = placeOf(matches[match]), end = placeOf(matches[match] + wanted.length - 1);
        const range = new Range();
        // The page may have changed since the search.
        range.setStart(start.node, Math.min(start.offset, start.node.length));
        const isPair = end.node.data.codePointAt(end.offset) > 0xffff;
        range.setEnd(end.node, Math.min(end.offset + (isPair ? 2 : 1), end.node.length));
        return range;
    };

    // ---- marking ------------------------------------------------------------------------------------

    const boxOf = match => rangeOf(match).getBoundingClientRect();

    /// The first occurrence whose end is below @p y, or the number of occurrences.
    const firstBelow = y => {
        let low = 0, high = matches.length;
        while (low < high) {
            const middle = (low + high) >> 1;
            if (boxOf(middle).bottom > y)
                high = middle;
            else
                low = middle + 1;
        }
        return low;
    };

    /// The part of the view in which an element's text can be seen.
    const clipOf = (element, known) => {
        if (!element || element === document.body)
            return { left: 0, top: 0, right: innerWidth, bottom: innerHeight };
        if (!known.has(element)) {
            const outer = clipOf(element.parentElement, known);
            const style = getComputedStyle(element);
            const box = style.overflowX === 'visible' ? null : element.getBoundingClientRect();
            known.set(element, box ? {
                left: Math.max(outer.left, box.left), top: Math.max(outer.top, box.top),
                right: Math.min(outer.right, box.right), bottom: Math.min(outer.bottom, box.bottom),
            } : outer);
        }
        return known.get(element);
    };

    const place = () => {
        isPlacing = false;
        if (wanted === '' || !layer)
            return;
        const clips = new Map();
        const boxes = [];
        for (let match = firstBelow(0); match < matches.length && boxes.length < mostMarks; match++) {
            const range = rangeOf(match);
            if (range.getBoundingClientRect().top > innerHeight)
                break;
            const clip = clipOf(range.startContainer.parentElement, clips);
            for (const box of range.getClientRects()) {
                const left = Math.max(box.left, clip.left), top = Math.max(box.top, clip.top);
                const width = Math.min(box.right, clip.right) - left;
                const height = Math.min(box.bottom, clip.bottom) - top;
                if (width > 0 && height > 0)
                    boxes.push({ left, top, width, height, isCurrent: match === current });
            }
        }
        layer.className = document.body.classList.contains('light') ? 'light' : '';
        while (layer.childElementCount > boxes.length)
            layer.lastChild.remove();
        boxes.forEach((box, i) => {
            const mark = layer.children[i] || layer.appendChild(document.createElement('i'));
            for (const side of ['left', 'top', 'width', 'height'])
                mark.style[side] = `${box[side]}px`;
            mark.className = box.isCurrent ? 'current' : '';
        });
    };
    const schedulePlacing = () => {
        if (isPlacing || wanted === '')
            return;
        isPlacing = true;
        requestAnimationFrame(place);
    };

    const report = () => {
        const result = { page: Number(document.documentElement.dataset.load), current: current + 1, total: matches.length };
        const now = JSON.stringify(result);
        if (wanted !== '' && now !== reported)
            post('findResult', result);
        reported = now;
    };

    /// Scrolls the current occurrence into view, if it is not there.
    const reveal = () => {
        if (current < 0)
            return;
        const element = rangeOf(current).startContainer.parentElement;
        const clamped = element.closest('.truncatable:not(.expanded)');
        if (clamped) {
            clamped.scrollTop = 0;
            if (boxOf(current).bottom > clamped.getBoundingClientRect().bottom)
                clamped.classList.add('expanded');
        }
        for (let outer = element; outer && outer !== document.body; outer = outer.parentElement) {
            const box = boxOf(current), frame = outer.getBoundingClientRect();
            if (outer.scrollWidth > outer.clientWidth && (box.left < frame.left || box.right > frame.right))
                outer.scrollLeft += box.left - frame.left - outer.clientWidth / 3;
        }
        const box = boxOf(current);
        if (box.top < margin || box.bottom > innerHeight - margin)
            document.body.scrollTop += box.top - innerHeight / 3;
    };

    const show = () => {
        report();
        schedulePlacing();
    };

    /// The element of a note or turn of the thread.
    const elementOf = entry => {
        const part = document.getElementById(`resp-${entry}`)
            ?? document.querySelector(`[data-note="${CSS.escape(entry)}"]`);
        return part ? part.closest('.entry') : null;
    };

    // Streamed text and expanded texts change the page.
    const changed = () => {
        isStale = true;
        if (wanted === '' || timer)
            return;
        timer = setTimeout(() => {
            timer = 0;
            search();
            if (current < 0 && matches.length > 0)
                current = 0;
            show();
        }, Math.max(pause, pauseFactor * lastDuration));
    };

    /// Adds the layer, which is there only while a text is being found.
    const begin = () => {
        const host = document.createElement('div');
        const root = host.attachShadow({ mode: 'closed' });
        // Not an element: the page's policy admits no styles but its own.
        const style = new CSSStyleSheet();
        style.replaceSync(sheet);
        root.adoptedStyleSheets = [style];
        layer = root.appendChild(document.createElement('div'));
        host.setAttribute('aria-hidden', 'true');
        document.documentElement.append(host);
        observer = new MutationObserver(changed);
        observer.observe(document.body, {
            subtree: true, childList: true, characterData: true,
            attributes: true, attributeFilter: ['class', 'open'],
        });
        window.addEventListener('scroll', schedulePlacing, { passive: true, capture: true });
        window.addEventListener('resize', schedulePlacing, { passive: true });
    };

    const end = () => {
        wanted = '';
        matches = [];
        current = -1;
        reported = '';
        if (!layer)
            return;
        observer.disconnect();
        window.removeEventListener('scroll', schedulePlacing, { capture: true });
        window.removeEventListener('resize', schedulePlacing);
        layer.getRootNode().host.remove();
        layer = null;
    };

    globalThis.finding = Object.freeze({
        /// Marks all occurrences. The first one in view becomes the current one.
        /// @param isScrolledTo whether to scroll to it
        /// @param entry the note or turn that comes into view before that, if any
        search(value, isScrolledTo, entry) {
            end();
            wanted = reducedText(value);
            if (wanted === '' || !document.body) {
                post('findResult', { page: Number(document.documentElement.dataset.load), current: 0, total: 0 });
                return;
            }
            begin();
            search();
            const element = entry ? elementOf(entry) : null;
            if (element)
                element.scrollIntoView();
            const first = firstBelow(element ? element.getBoundingClientRect().top : 0);
            current = first < matches.length ? first
                : isScrolledTo && matches.length > 0 ? 0 : matches.length - 1;
            // What was found in the entry's source need not be in what the page shows of it.
            if (isScrolledTo && (!element || current >= 0 && element.contains(placeOf(matches[current]).node)))
                reveal();
            show();
        },
        /// Goes to the next (1) or previous (-1) occurrence, around the ends.
        step(direction) {
            if (wanted === '')
                return;
            if (isStale || observer.takeRecords().length > 0)
                search();
            const count = matches.length;
            current = count === 0 ? -1 : (Math.max(current, direction > 0 ? -1 : 0) + direction + count) % count;
            reveal();
            show();
        },
        end,
    });
}
