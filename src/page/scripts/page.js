// The pages' own script, at the end of the body: shows the answers that the page contains as data, and
// expands clamped texts. It cannot reach the bridge, which posts the messages.
(() => {
    'use strict';
    const element = document.getElementById('page-data');
    const data = JSON.parse(element.textContent);
    // The page does not keep a second copy of its answers.
    element.remove();

    if ('responses' in data) {
        for (const [id, markdown] of Object.entries(data.responses))
            answers.show(document.getElementById(id), markdown);
    } else if (data.raw.trim() === '') {
        document.getElementById('ph').style.display = 'block';
    } else if (data.raw === '__LOADING__') {
        document.getElementById('ld').style.display = 'block';
    } else {
        document.getElementById('ph').style.display = 'none';
        answers.show(document.getElementById('ct'), data.raw);
    }

    // ---- keys: without a focused element, the engine would scroll the root instead of the body -----

    const scrollKeys = {
        ArrowUp: () => -40,
        ArrowDown: () => 40,
        PageUp: () => -0.875 * document.body.clientHeight,
        PageDown: () => 0.875 * document.body.clientHeight,
        Home: () => -document.body.scrollHeight,
        End: () => document.body.scrollHeight,
    };
    document.addEventListener('keydown', event => {
        const distance = scrollKeys[event.key];
        if (!distance || event.target !== document.body || event.defaultPrevented ||
            event.ctrlKey || event.altKey || event.metaKey || event.shiftKey)
            return;
        event.preventDefault();
        document.body.scrollBy(0, distance());
    });

    if (!('responses' in data))
        return;

    // ---- clamped prompts and notes --------------------------------------------------------------

    const toggle = text => {
        text.classList.toggle('expanded');
        mark(text);
    };

    /// A text that is cut off, or has been expanded, acts as a button; one that fits is plain text.
    const mark = text => {
        const isOpen = text.classList.contains('expanded');
        if (isOpen || text.scrollHeight > text.clientHeight) {
            text.tabIndex = 0;
            text.setAttribute('role', 'button');
            text.setAttribute('aria-expanded', isOpen);
        } else {
            for (const name of ['tabindex', 'role', 'aria-expanded'])
                text.removeAttribute(name);
        }
    };

    document.addEventListener('click', event => {
        const text = event.target.closest('.truncatable');
        if (text)
            toggle(text);
    });
    document.addEventListener('keydown', event => {
        if (!event.target.matches('.truncatable') || (event.key !== 'Enter' && event.key !== ' '))
            return;
        event.preventDefault();
        if (!event.repeat)
            toggle(event.target);
    });
    const sizes = new ResizeObserver(entries => entries.forEach(entry => mark(entry.target)));
    document.querySelectorAll('.truncatable').forEach(text => sizes.observe(text));

    // ---- screenshots: fetched when they come within a screenful of what is visible ----------------
    // (the engine ignores loading="lazy")

    const loadPicture = picture => {
        picture.src = picture.dataset.src;
    };
    const farPictures = new IntersectionObserver(entries => {
        for (const { isIntersecting, target } of entries) {
            if (!isIntersecting)
                continue;
            farPictures.unobserve(target);
            loadPicture(target);
        }
    }, { root: document.body, rootMargin: '100% 0%' });
    // Near ones at once, so that the page counts as loaded only with them.
    const loadPictures = () => {
        const isNear = ({ top, bottom }) => bottom >= -innerHeight && top <= 2 * innerHeight;
        for (const picture of document.querySelectorAll('.thumb')) {
            if (isNear(picture.getBoundingClientRect()))
                loadPicture(picture);
            else
                farPictures.observe(picture);
        }
    };

    document.body.scrollTop = document.body.scrollHeight;
    loadPictures();
})();
