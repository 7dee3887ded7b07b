// Turns animations off or on. Runs in every new page, and again when the setting changes.
(() => {
    'use strict';
    const place = Symbol.for('sheetThatStopsMotion');
    if (!document[place]) {
        const sheet = new CSSStyleSheet();
        sheet.replaceSync('*, *::before, *::after { animation: none !important; '
                          + 'transition: none !important; }');
        document[place] = sheet;
        document.adoptedStyleSheets = [...document.adoptedStyleSheets, sheet];
    }
    document[place].disabled = !%reduced%;
})();
