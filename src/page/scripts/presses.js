// Part of the bridge script: what a press in the page asks of the host. Only a person's press counts,
// with the pointer, a key or an assistive program; the engine marks it as trusted.
post => {
    'use strict';
    // A page that is being replaced may still be pressed: its number says whose picture is meant.
    const openPicture = element => post('openScreenshot', {
        page: Number(location.pathname), index: Number(element.getAttribute('data-picture')),
    });

    window.addEventListener('click', event => {
        const target = event.isTrusted && event.target instanceof Element &&
            event.target.closest('a[href], [data-picture], [data-note]');
        if (!target)
            return;
        if (target.hasAttribute('href')) {
            // Links open in the browser.
            event.preventDefault();
            post('link', target.getAttribute('href'));
        } else if (target.hasAttribute('data-picture')) {
            openPicture(target);
        } else {
            post('noteDelete', target.getAttribute('data-note'));
        }
    }, true);

    // Links and buttons turn these keys into clicks themselves, pictures do not.
    window.addEventListener('keydown', event => {
        const isPress = event.isTrusted && (event.key === 'Enter' || event.key === ' ');
        if (!isPress || !(event.target instanceof Element) || !event.target.hasAttribute('data-picture'))
            return;
        event.preventDefault();
        if (!event.repeat)
            openPicture(event.target);
    }, true);
}
