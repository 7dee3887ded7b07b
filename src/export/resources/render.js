// Runs in a page that has the renderer: shows the given answers there and keeps them as plain, inert HTML.
// Sets the page's title to the given one when they are ready.
(texts, isForPasting, readyTitle) => {
    'use strict';
    const page = document.createElement('div');
    document.body.replaceChildren(page);
    const shown = texts.map(text => {
        const answer = document.createElement('div');
        page.append(answer);
        answers.show(answer, text);
        return answer;
    });

    // ---- what could ask somebody ------------------------------------------------------------------

    const webAddress = address => {
        try {
            const { protocol, href } = new URL(address);
            return ['http:', 'https:', 'mailto:'].includes(protocol) ? href : '';
        } catch {
            return '';
        }
    };
    const link = (address, nodes) => {
        const element = document.createElement('a');
        element.href = address;
        element.rel = 'noopener noreferrer';
        element.append(...nodes);
        return element;
    };
    const makeInert = answer => {
        // A picture of an answer is never fetched; its description stays, and leads to it.
        for (const picture of answer.querySelectorAll('img')) {
            const address = webAddress(picture.getAttribute('src') || '');
            const words = picture.getAttribute('alt') || address;
            picture.replaceWith(address && !picture.closest('a') ? link(address, [words]) : words);
        }
        for (const old of answer.querySelectorAll('a')) {
            const address = webAddress(old.getAttribute('href') || '');
            old.replaceWith(...(address ? [link(address, [...old.childNodes])] : old.childNodes));
        }
        // The item of a task list has no bullet.
        for (const item of answer.querySelectorAll('li[style]')) {
            item.removeAttribute('style');
            item.className = 'task';
        }
        for (const code of answer.querySelectorAll('[data-highlighted]'))
            code.removeAttribute('data-highlighted');
    };

    // ---- what other programs keep when they paste ---------------------------------------------------

    const makePastable = answer => {
        for (const formula of answer.querySelectorAll('.formula'))
            formula.replaceWith(formula.dataset.source);
        for (const box of answer.querySelectorAll('input'))
            box.replaceWith(box.hasAttribute('checked') ? '☑ ' : '☐ ');
        // Colours first: they come from the classes.
        const words = [...answer.querySelectorAll('.hljs [class]')];
        const colors = words.map(word => getComputedStyle(word).color);
        words.forEach((word, i) => {
            word.style.color = colors[i];
        });
        const styles = {
            pre: 'background:#f6f8fa;padding:8px;white-space:pre-wrap',
            code: 'font-family:monospace',
            table: 'border-collapse:collapse',
            'th, td': 'border:1px solid #c4bfb0;padding:3px 8px',
            blockquote: 'border-left:3px solid #c4bfb0;margin-left:0;padding-left:10px',
        };
        for (const [selector, style] of Object.entries(styles))
            answer.querySelectorAll(selector).forEach(element => element.setAttribute('style', style));
        answer.querySelectorAll('[class]').forEach(element => element.removeAttribute('class'));
    };

    const finish = () => {
        const hasFormulas = page.querySelector('.formula .katex') !== null;
        shown.forEach(makeInert);
        if (isForPasting)
            shown.forEach(makePastable);
        globalThis.exported = { answers: shown.map(answer => answer.innerHTML), hasFormulas };
        page.remove();
        document.title = readyTitle;
    };

    const typesetter = page.querySelector('.formula') &&
        document.head.querySelector('script[src="%typesetter%"]');
    if (typesetter) {
        // Its own listener, which fills the formulas, was there first.
        typesetter.addEventListener('load', finish);
        typesetter.addEventListener('error', finish);
    } else {
        finish();
    }
}
