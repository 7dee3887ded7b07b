// Part of the bridge script: forwards presses on links, pictures and delete buttons to the host. Only
// presses by the user count (pointer, key, assistive program), which the engine marks as trusted.
post => {
    'use strict';
    // The page's number tells its pictures from those of a page that is replacing it.
    const openPicture = element => post('openScreenshot', {
        page: Number(document.documentElement.dataset.load), index: Number(element.getAttribute('data-picture')),
    });

    window.addEventListener('click', event => {
        const target = event.isTrusted && event.target instanceof Element &&
            event.target.closest('a[href], [data-picture], [data-note], [data-version]');
        if (!target)
            return;
        if (target.hasAttribute('href')) {
            // Links open in the browser.
            event.preventDefault();
            post('link', target.getAttribute('href'));
        } else if (target.hasAttribute('data-picture')) {
            openPicture(target);
        } else if (target.hasAttribute('data-version')) {
            post('showVersion', {
                turn: target.getAttribute('data-turn'), version: Number(target.getAttribute('data-version')),
            });
        } else {
            post('noteDelete', target.getAttribute('data-note'));
        }
    }, true);

    // A drag of a link, a picture or selected text would show a window outside the panel.
    window.addEventListener('dragstart', event => event.preventDefault(), true);

    // Links and buttons turn these keys into clicks, pictures do not.
    window.addEventListener('keydown', event => {
        const isPress = event.isTrusted && (event.key === 'Enter' || event.key === ' ');
        if (!isPress || !(event.target instanceof Element) || !event.target.hasAttribute('data-picture'))
            return;
        event.preventDefault();
        if (!event.repeat)
            openPicture(event.target);
    }, true);
}
