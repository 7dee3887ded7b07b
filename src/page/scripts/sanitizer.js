// Part of the renderer script, after the Markdown renderer and the sanitizer library: turns HTML into
// nodes that can show an answer but not act on the page.
const renderer = globalThis.marked;
const purify = globalThis.DOMPurify;
delete globalThis.marked;
delete globalThis.DOMPurify;

purify.addHook('uponSanitizeAttribute', (node, data) => {
    // Classes of the page mean something to its rules and scripts; an answer needs only the language
    // of a code block.
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
        // The box takes the place of the item's bullet.
        const item = node.parentNode?.closest('li');
        if (item)
            item.style.listStyle = 'none';
    }
});
// Set once: options passed to each call would be parsed each time.
purify.setConfig({
    USE_PROFILES: { html: true },
    FORBID_TAGS: [
        'style', 'form', 'button', 'select', 'option', 'optgroup', 'datalist', 'textarea', 'fieldset',
        'legend', 'label', 'output', 'dialog', 'audio', 'video', 'source', 'track', 'picture', 'map',
        'area', 'marquee', 'template', 'slot', 'base', 'link', 'meta',
    ],
    FORBID_ATTR: ['style', 'id', 'name', 'background', 'usemap', 'srcset', 'tabindex', 'accesskey',
        'contenteditable', 'autofocus', 'popover', 'popovertarget', 'action', 'method'],
    ALLOW_DATA_ATTR: false,
    ALLOW_ARIA_ATTR: false,
    ALLOW_UNKNOWN_PROTOCOLS: false,
    // Applied to every attribute: what has a scheme must have one of these.
    ALLOWED_URI_REGEXP: /^(?:(?:https?|mailto):|[^a-z]|[a-z+.-]+(?:[^a-z+.\-:]|$))/i,
    RETURN_DOM_FRAGMENT: true,
});

/// The nodes of any HTML. Of some the sanitizer leaves nothing, not even an empty fragment.
const sanitizedNodes = html => [...purify.sanitize(html)?.childNodes ?? []];

const plainElements = new Set(['BLOCKQUOTE', 'BR', 'CODE', 'DEL', 'EM', 'H1', 'H2', 'H3', 'H4', 'H5', 'H6',
    'HR', 'LI', 'OL', 'P', 'PRE', 'STRONG', 'TABLE', 'TBODY', 'TD', 'TH', 'THEAD', 'TR', 'UL']);
const plainAttributes = {
    CODE: ['class', /^language-[\w+#.-]+$/],
    OL: ['start', /^\d+$/],
    TD: ['align', /^(?:left|center|right)$/],
    TH: ['align', /^(?:left|center|right)$/],
};

/// Whether an element can only show text.
const isPlain = element => {
    const name = element.nodeName;
    if (!plainElements.has(name))
        return false;
    if (!element.hasAttributes())
        return true;
    const [attribute, value] = plainAttributes[name] || [];
    return attribute !== undefined && element.attributes.length === 1 &&
        element.hasAttribute(attribute) && value.test(element.getAttribute(attribute));
};

const inertBody = document.implementation.createHTMLDocument('').body;

/// As sanitizedNodes(), much faster for HTML of Markdown blocks without tags and links: it is parsed
/// into a document that runs and loads nothing, and the sanitizer is left out if every element found
/// there is on a short list.
const nodesOfBlocks = html => {
    inertBody.innerHTML = html;
    for (const element of inertBody.getElementsByTagName('*')) {
        if (!isPlain(element))
            return sanitizedNodes(html);
    }
    return [...inertBody.childNodes];
};
