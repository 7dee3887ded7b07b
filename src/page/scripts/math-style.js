// Part of the typesetter script: its fonts and rules. The fonts are embedded as data, because a page with
// an opaque origin may not fetch fonts.
(() => {
    'use strict';
    const bytes = text => Uint8Array.from(atob(text), c => c.charCodeAt(0));
    const faces = {%faces%};
    for (const [name, data] of Object.entries(faces)) {
        const [family, kind] = name.split('-');
        document.fonts.add(new FontFace(family, bytes(data), {
            weight: kind.includes('Bold') ? '700' : '400',
            style: kind.includes('Italic') ? 'italic' : 'normal',
        }));
    }
    const style = new CSSStyleSheet();
    // A formula cannot draw over what is around it.
    style.replaceSync("%rules%" + `
        .formula { display: inline-block; max-width: 100%; contain: paint; padding: 1px 2px; }
        /* As wide as the answer, though paragraphs are as wide as their text. */
        .formula.display { display: block; width: 100vw; overflow: auto hidden; padding: 4px 2px; }
        .formula .katex-display { margin: 0; }
    `);
    document.adoptedStyleSheets = [...document.adoptedStyleSheets, style];
})();
