// Part of the bridge script: tells the host where the page stands, at first and after each change.
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
