// Part of the bridge script: reports the scroll position to the host, initially and after changes.
post => {
    'use strict';
    window.addEventListener('DOMContentLoaded', () => {
        const el = document.body;
        let last = '';
        const report = () => {
            const { scrollTop, scrollHeight, clientHeight } = el;
            const now = `${scrollTop} ${scrollHeight} ${clientHeight}`;
            if (now === last)
                return;
            last = now;
            post('scrollPosition', { scrollTop, scrollHeight, clientHeight });
        };
        const follow = event => {
            if (event.isTrusted)
                report();
        };
        el.addEventListener('scroll', follow, { passive: true });
        window.addEventListener('resize', follow, { passive: true });
        // Text that is added below what is visible scrolls nothing.
        const sizes = new ResizeObserver(report);
        for (const child of el.children)
            sizes.observe(child);
        report();
    });
}
