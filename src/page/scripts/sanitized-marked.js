// Follows the Markdown renderer and the sanitiser in the script served for the renderer's address:
// makes marked.parse return HTML that can show an answer but not act on the page.
(() => {
    'use strict';
    const renderer = globalThis.marked;
    const purify = globalThis.DOMPurify;
    delete globalThis.DOMPurify;

    const options = {
        USE_PROFILES: { html: true },
        FORBID_TAGS: [
            'style', 'form', 'button', 'select', 'option', 'optgroup', 'datalist', 'textarea', 'fieldset',
            'legend', 'label', 'output', 'dialog', 'audio', 'video', 'source', 'track', 'picture', 'map',
            'area', 'marquee', 'template', 'slot', 'base', 'link', 'meta',
        ],
        FORBID_ATTR: ['style', 'id', 'name', 'background', 'usemap', 'srcset', 'tabindex', 'accesskey',
            'contenteditable', 'autofocus', 'popover', 'popovertarget'],
        ALLOW_DATA_ATTR: false,
        ALLOW_ARIA_ATTR: false,
        ALLOW_UNKNOWN_PROTOCOLS: false,
        // Applied to every attribute: what has a scheme must have one of these.
        ALLOWED_URI_REGEXP: /^(?:(?:https?|mailto):|[^a-z]|[a-z+.-]+(?:[^a-z+.\-:]|$))/i,
    };
    purify.addHook('uponSanitizeAttribute', (node, data) => {
        // Classes of the page mean something to its rules and scripts; an answer needs only the
        // language of a code block.
        if (data.attrName === 'class')
            data.keepAttr = node.nodeName === 'CODE' && /^language-\S+$/.test(data.attrValue);
    });
    purify.addHook('afterSanitizeAttributes', node => {
        // Task lists: inert check boxes are the only inputs.
        if (node.nodeName === 'INPUT') {
            if (node.getAttribute('type') !== 'checkbox')
                node.remove();
            else
                node.setAttribute('disabled', '');
        }
    });

    // Set once: handing the options to every call would have them read every time.
    purify.setConfig({ ...options, RETURN_DOM_FRAGMENT: true });
    const sanitizedFragment = html => purify.sanitize(html);
    const sanitizedText = html => {
        const holder = document.createElement('div');
        holder.append(sanitizedFragment(html));
        return holder.innerHTML;
    };
    const render = (%incremental-render%)(renderer, sanitizedFragment, sanitizedText);
    const parse = source => render(String(source));
    Object.defineProperty(globalThis, 'marked', {
        value: Object.freeze({ parse }),
        writable: false, configurable: false, enumerable: true,
    });
})();
