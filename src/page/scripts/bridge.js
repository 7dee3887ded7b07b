// Runs before any script of a page, in an isolated world: it shares elements and events with the
// page's scripts, but no objects. Only this world can post messages.
(() => {
    'use strict';
    // To the engine, a page with the address of the one before is that page, loaded again.
    history.scrollRestoration = 'manual';
    const transport = qt.webChannelTransport;
    const send = transport.send.bind(transport);
    const invokeMethod = 6;
    let nextId = 0;
    const post = (name, body) => send(JSON.stringify({
        type: invokeMethod, id: nextId++, object: 'bridge', method: 'post', args: [name, body],
    }));
    // The host's replies carry nothing; the transport insists on somebody listening.
    transport.onmessage = () => {};
    delete window.qt;

    const parts = [%parts%];
    for (const part of parts)
        part(post);
})();
