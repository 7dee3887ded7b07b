// Gives the page the view's name: assistive programs announce nothing for a page without a title.
document.addEventListener('DOMContentLoaded', () => {
    'use strict';
    document.documentElement.setAttribute('aria-label', 'Response');
});
