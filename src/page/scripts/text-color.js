// Makes the user's text colour changeable at run time. Pages contain it as a rule, which the light
// theme's rule on the body would override: this script moves it to the root's inline style, which
// the host changes live, and makes the body inherit it.
(() => {
    'use strict';
    const lift = root => {
        const sheet = document.querySelector('head > style')?.sheet;
        const rules = sheet ? [...sheet.cssRules] : [];
        const at = rules.findIndex(rule => rule.selectorText === ':root'
                                           && rule.style.length === 1
                                           && rule.style[0] === '--text');
        if (at < 0)
            return;
        // The host may already have pushed a newer one.
        if (root.style.getPropertyValue('--text') === '')
            root.style.setProperty('--text', rules[at].style.getPropertyValue('--text'));
        sheet.deleteRule(at);
    };
    // The root element does not exist before.
    document.addEventListener('DOMContentLoaded', () => {
        const root = document.documentElement;
        const style = new CSSStyleSheet();
        style.replaceSync('html[data-own-text] body { --text: inherit !important; }');
        document.adoptedStyleSheets = [...document.adoptedStyleSheets, style];
        const note = () =>
            root.toggleAttribute('data-own-text', root.style.getPropertyValue('--text') !== '');
        lift(root);
        note();
        new MutationObserver(note).observe(root, { attributeFilter: ['style'] });
    });
})();
