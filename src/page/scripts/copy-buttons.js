// Part of the bridge script: one Copy button per finished code block, in a separate layer outside
// the body that the page's rules and scripts cannot reach.
post => {
    'use strict';
    const height = 24;
    const inset = 6;
    const feedback = 1500;
    const outOfSight = '-100px';
    const buttons = new Map();
    let host, root, scheduled = false, stale = true;

    const sheet = `
        :host { all: initial; position: fixed; inset: 0; overflow: hidden; pointer-events: none;
            z-index: 2147483647; }
        button { all: unset; position: absolute; box-sizing: border-box; display: inline-flex;
            align-items: center; gap: 5px; height: ${height}px; padding: 0 8px; border-radius: 6px;
            font: 500 11px/16px 'SF Pro Text', sans-serif; cursor: pointer; pointer-events: auto;
            color: #e8e8ea; background: #2b2e38; border: 1px solid #454a5a; }
        button:focus-visible { outline: 2px solid #7db2ff; outline-offset: 2px; }
        .light button { color: #1c1e24; background: #fffdf9; border-color: #c4bfb0; }
        .light button:focus-visible { outline-color: #1c6ad0; }
        button.copied { color: #4cc38a; }
        .light button.copied { color: #1a7f4b; }
        svg { width: 12px; height: 12px; fill: none; stroke: currentColor;
            stroke-width: 2; stroke-linecap: round; stroke-linejoin: round; }
        .check, .copied .copy { display: none; }
        .copied .check { display: inline; }
    `;
    const content = `
        <svg viewBox="0 0 24 24"><g class="copy"><rect width="14" height="14" x="8" y="8" rx="2"/>
        <path d="M4 16c-1.1 0-2-.9-2-2V4c0-1.1.9-2 2-2h10c1.1 0 2 .9 2 2"/></g>
        <path class="check" d="M20 6 9 17l-5-5"/></svg><span>Copy</span>`.trim();

    const create = code => {
        const button = document.createElement('button');
        button.type = 'button';
        button.setAttribute('aria-label', 'Copy code');
        button.innerHTML = content;
        let timer = 0;
        button.addEventListener('click', event => {
            if (!event.isTrusted)
                return;
            post('copy', code.textContent);
            button.classList.add('copied');
            button.lastChild.textContent = 'Copied';
            clearTimeout(timer);
            timer = setTimeout(() => {
                button.classList.remove('copied');
                button.lastChild.textContent = 'Copy';
                schedule();
            }, feedback);
            place(button, code);
        });
        // The Tab key also reaches blocks that are scrolled out of view.
        button.addEventListener('focus', () => code.parentElement.scrollIntoView({ block: 'nearest' }));
        root.lastChild.append(button);
        return button;
    };

    // All boxes are read before any button moves, and buttons out of view are not moved: a long
    // thread has hundreds.
    const place = () => {
        const width = document.documentElement.clientWidth;
        const boxes = [...buttons].map(([code, button]) => [button, code.parentElement.getBoundingClientRect()]);
        for (const [button, box] of boxes) {
            const inSight = box.bottom > 0 && box.top < window.innerHeight;
            if (inSight) {
                button.style.top = `${box.top + inset}px`;
                button.style.right = `${width - box.right + inset}px`;
            } else if (button.style.top !== outOfSight) {
                button.style.top = outOfSight;
            }
        }
    };

    // A block is finished once it is highlighted, which happens when the stream ends.
    const update = () => {
        scheduled = false;
        if (stale)
            findBlocks();
        place();
    };

    const findBlocks = () => {
        stale = false;
        const blocks = document.body ? document.body.querySelectorAll('pre > code.hljs') : [];
        const seen = new Set(blocks);
        for (const [code, button] of buttons) {
            if (!seen.has(code)) {
                button.remove();
                buttons.delete(code);
            }
        }
        if (!seen.size)
            return;
        root.lastChild.className = document.body.classList.contains('light') ? 'light' : '';
        let previous = null;
        for (const code of blocks) {
            if (!buttons.has(code))
                buttons.set(code, create(code));
            // The Tab key goes from block to block in the page's order.
            const button = buttons.get(code);
            if (previous ? previous.nextSibling !== button : root.lastChild.firstChild !== button)
                root.lastChild.insertBefore(button, previous ? previous.nextSibling : root.lastChild.firstChild);
            previous = button;
        }
    };

    const schedule = () => {
        if (scheduled)
            return;
        scheduled = true;
        requestAnimationFrame(update);
    };

    window.addEventListener('DOMContentLoaded', () => {
        host = document.createElement('div');
        root = host.attachShadow({ mode: 'closed' });
        // Not an element: the page's policy admits no styles but its own.
        const style = new CSSStyleSheet();
        style.replaceSync(sheet);
        root.adoptedStyleSheets = [style];
        root.append(document.createElement('div'));
        document.documentElement.append(host);
        new MutationObserver(() => {
            stale = true;
            schedule();
        }).observe(document.body,
            { subtree: true, childList: true, attributes: true, attributeFilter: ['class'] });
        window.addEventListener('scroll', schedule, { passive: true, capture: true });
        window.addEventListener('resize', schedule, { passive: true });
        schedule();
    });
}
