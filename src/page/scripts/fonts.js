// Maps the font families that the pages use to the bundled fonts. They are embedded as data, because
// a page with an opaque origin may not fetch fonts.
(() => {
    'use strict';
    const bytes = text => Uint8Array.from(atob(text), c => c.charCodeAt(0));
    const add = (families, data, weight) => {
        const buffer = bytes(data);
        for (const family of families)
            document.fonts.add(new FontFace(family, buffer, { weight }));
    };
    const text = ['-apple-system', 'SF Pro Text'];
    const mono = ['SF Mono', 'Menlo', 'IBM Plex Mono'];
    add(text, '%inter-400%', '400');
    add(text, '%inter-500%', '500');
    add(text, '%inter-600%', '600 900');
    add(mono, '%mono-400%', '100 900');
    const style = new CSSStyleSheet();
    style.replaceSync('pre, code, kbd { font-variant-ligatures: none; }');
    document.adoptedStyleSheets = [...document.adoptedStyleSheets, style];
})();
