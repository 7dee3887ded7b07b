// Part of the renderer script: footnotes. A mark in the text is raised; a note, a line that begins with its
// mark and a colon, is shown where it is written.

const footnoteMark = /^\[\^([^\]\s[^]{1,40})\]/;
const raised = label => `<sup>${escapedForHtml(label)}</sup>`;

renderer.use({
    extensions: [
        {
            name: 'footnote',
            level: 'block',
            tokenizer(src) {
                const match = /^ {0,3}\[\^([^\]\s[^]{1,40})\]:[ \t]+(\S[^\n]*)(?:\n|$)/.exec(src);
                return match ? { type: 'footnote', raw: match[0], label: match[1],
                    tokens: this.lexer.inline(match[2], []) } : undefined;
            },
            renderer(token) {
                return `<p>${raised(token.label)} ${this.parser.parseInline(token.tokens)}</p>\n`;
            },
            childTokens: ['tokens'],
        },
        {
            name: 'footnoteMark',
            level: 'inline',
            start: src => /\[\^/.exec(src)?.index,
            tokenizer: src => {
                const match = footnoteMark.exec(src);
                return match && src[match[0].length] !== '(' ? { type: 'footnoteMark', raw: match[0],
                    label: match[1] } : undefined;
            },
            renderer: token => raised(token.label),
        },
    ],
});
