// Runs before any script of a page, in the page's own world: gives the page the three message
// handlers it may use and nothing else of the host. What is captured here stays out of the reach of
// page scripts, which may come from an answer.
(() => {
    'use strict';
    const transport = qt.webChannelTransport;
    const send = transport.send.bind(transport);
    const stringify = JSON.stringify;
    const invokeMethod = 6;
    let nextId = 0;
    const post = (name, body) => send(stringify({
        type: invokeMethod, id: nextId++, object: 'bridge', method: 'post',
        args: [name, body === undefined ? null : body],
    }));
    // The host's replies carry nothing; the transport insists on somebody listening.
    transport.onmessage = () => {};
    delete window.qt;

    const handler = name => Object.freeze({ postMessage: body => { post(name, body); } });
    Object.defineProperty(window, 'webkit', {
        value: Object.freeze({
            messageHandlers: Object.freeze({
                scrollPosition: handler('scrollPosition'),
                openScreenshot: handler('openScreenshot'),
                noteDelete: handler('noteDelete'),
            }),
        }),
        writable: false, configurable: false, enumerable: true,
    });

    // Links open in the browser, and only for a real click of the user.
    window.addEventListener('click', event => {
        if (!event.isTrusted)
            return;
        for (const node of event.composedPath()) {
            if (node instanceof HTMLAnchorElement && node.hasAttribute('href')) {
                event.preventDefault();
                post('link', node.getAttribute('href'));
                return;
            }
        }
    }, true);

    const parts = [%parts%];
    for (const part of parts)
        part(post);
})();
