// Part of the bridge script: reports the scroll position to the host, initially and after changes.
post => {
    'use strict';
    window.addEventListener('DOMContentLoaded', () => {
        const el = document.body;
        const report = () => post('scrollPosition',
            { scrollTop: el.scrollTop, scrollHeight: el.scrollHeight, clientHeight: el.clientHeight });
        const follow = event => {
            if (event.isTrusted)
                report();
        };
        el.addEventListener('scroll', follow, { passive: true });
        window.addEventListener('resize', follow, { passive: true });
        report();
    });
}
