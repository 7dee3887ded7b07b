#include "page/PageStyle.h"

namespace quellora::pagestyle {

const QByteArrayView base =
    ":root{--bg:#1c1e24;--bg-raised:#242730;--bg-input:#2b2e38;--bg-input-rgb:43,46,56;"
    "--border:#353946;--border-strong:#454a5a;--text:#e8e8ea;--text-dim:#8b8e99;"
    "--text-faint:#5c5f6b;--accent:#2f80ed;--accent-soft:rgba(47,128,237,0.14);--note:#e6c760;"
    "--note-soft:rgba(230,199,96,0.12);--danger:#e53935;--pill-rgb:20,22,28}\n"
    "body.light{--bg:#f7f5f0;--bg-raised:#eeece5;--bg-input:#e8e5dd;--bg-input-rgb:232,229,221;"
    "--border:#d5d1c5;--border-strong:#c4bfb0;--text:#1c1e24;--text-dim:#5c5f6b;"
    "--text-faint:#8b8e99;--accent:#1c6ad0;--accent-soft:rgba(28,106,208,0.10);--note:#a17916;"
    "--note-soft:rgba(161,121,22,0.10);--danger:#e53935;--pill-rgb:245,245,247}\n"
    "*{box-sizing:border-box;margin:0;padding:0}\n"
    "html,body{height:100%;overflow-y:auto}\n"
    "body::-webkit-scrollbar{display:none}\n"
    "body{background:transparent;color:var(--text);"
    "font-family:-apple-system,'SF Pro Text',sans-serif;font-size:13px;line-height:1.65;"
    "padding:14px 16px 20px}\n"
    "h1,h2,h3{color:var(--accent);margin:10px 0 5px;font-size:14px;font-weight:600}\n"
    "p{margin:5px 0}\n"
    "ul,ol{padding-left:18px;margin:5px 0}\n"
    "li{margin:3px 0}\n"
    "p,li,h1,h2,h3{background:rgba(var(--pill-rgb),var(--pill-alpha));border-radius:4px;"
    "padding:1px 6px;margin-left:-6px;margin-right:-6px;width:fit-content}\n"
    "code{font-family:'SF Mono',Menlo,monospace;font-size:12px;"
    "background:rgba(var(--bg-input-rgb),var(--code-alpha));padding:1px 5px;border-radius:3px;"
    "color:var(--accent)}\n"
    "pre{background:rgba(var(--bg-input-rgb),var(--code-alpha)) !important;border-radius:7px;"
    "padding:10px 13px;margin:8px 0;overflow-x:auto}\n"
    "pre code{background:transparent !important;padding:0;color:inherit;font-size:12px}\n"
    "strong{color:var(--note)}\n"
    "em{color:var(--text-dim)}\n"
    "blockquote{border-left:3px solid var(--accent);padding-left:10px;color:var(--text-dim);"
    "margin:6px 0;background:rgba(var(--pill-rgb),var(--pill-alpha));border-radius:0 4px 4px 0;"
    "padding-top:4px;padding-right:8px;padding-bottom:4px}\n";

const QByteArrayView details =
    "a{color:#7db2ff}body.light a{color:#1257ae}\n"
    "hr{height:1px;border:none;background:var(--border);margin:10px 0}\n"
    "a:focus-visible,.thumb:focus-visible,.note-delete:focus-visible,.version:focus-visible,"
    ".truncatable:focus-visible{outline:2px solid #7db2ff;outline-offset:2px}\n"
    "body.light :focus-visible{outline-color:#1c6ad0}\n";

const QByteArrayView blocks =
    "table{display:block;width:fit-content;max-width:100%;overflow-x:auto;border-collapse:collapse;"
    "margin:8px 0;background:rgba(var(--pill-rgb),var(--pill-alpha))}\n"
    "th,td{border:1px solid var(--border);padding:3px 9px;vertical-align:top;min-width:40px}\n"
    "th{font-weight:600;background:rgba(var(--bg-input-rgb),var(--code-alpha))}\n"
    "th:not([align]){text-align:left}\n"
    "li input{appearance:none;width:13px;height:13px;margin:0 2px 0 -18px;vertical-align:-2px;"
    "border:1px solid var(--text-dim);border-radius:3px}\n"
    "li input:checked{background:var(--accent);border-color:var(--accent)}\n"
    "li input:checked::before{content:'';display:block;width:3px;height:7px;margin:0 auto;"
    "border:solid #fff;border-width:0 2px 2px 0;transform:rotate(45deg)}\n"
    "#ct ::-webkit-scrollbar{width:8px;height:8px}\n"
    "#ct ::-webkit-scrollbar-thumb{background:var(--border-strong);border-radius:4px}\n"
    "sup,sub{font-size:0.75em;line-height:0}\n"
    ".as-text{white-space:pre-wrap;overflow-wrap:anywhere}\n"
    // Full pieces of a long text; the last one, a short text's only one, is always laid out.
    ".as-text>div:not(:last-child){content-visibility:auto;contain-intrinsic-size:auto 1000px}\n";

const QByteArrayView thread =
    ".entry{padding:10px 0}\n"
    ".divider{height:1px;background:var(--border);margin:4px 0}\n"
    ".entry-timestamp{font-size:10px;font-weight:600;letter-spacing:0.04em;"
    "text-transform:uppercase;color:var(--text-dim);margin-bottom:6px}\n"
    ".versions{margin-left:8px;text-transform:none;letter-spacing:0;white-space:nowrap}\n"
    ".version{background:transparent;border:none;color:var(--text-dim);font:inherit;"
    "font-size:13px;line-height:1;cursor:pointer;padding:2px 7px;border-radius:4px}\n"
    ".version:hover{color:var(--text)}\n"
    ".version:disabled{opacity:0.35;cursor:default;color:var(--text-dim)}\n"
    ".note-entry{position:relative;border-left:3px solid var(--note);padding-left:12px;"
    "color:var(--text);background:rgba(var(--pill-rgb),var(--pill-alpha));"
    "border-radius:0 4px 4px 0;padding-top:4px;padding-right:8px;padding-bottom:4px}\n"
    ".note-body{display:flex;align-items:flex-start;gap:8px}\n"
    ".note-text{white-space:pre-wrap;font-size:13px}\n"
    ".note-delete{position:absolute;top:8px;right:0;background:transparent;border:none;"
    "color:var(--text-faint);font-size:13px;cursor:pointer;padding:2px 6px}\n"
    ".note-delete:hover{color:var(--text)}\n"
    ".turn-prompt{display:flex;align-items:flex-start;gap:10px;padding:10px 12px;"
    "background:rgba(var(--pill-rgb),var(--pill-alpha));border:1px solid var(--border);"
    "border-radius:8px}\n"
    ".thumb{width:48px;height:36px;object-fit:cover;border-radius:4px;flex-shrink:0;"
    "cursor:pointer}\n"
    ".prompt-text{color:var(--text);font-size:12.5px;line-height:1.55;white-space:pre-wrap}\n"
    ".turn-response{padding:8px 4px 2px}\n"
    ".truncatable{display:-webkit-box;-webkit-line-clamp:3;-webkit-box-orient:vertical;"
    "overflow:hidden;cursor:pointer}\n"
    ".truncatable.expanded{display:block;-webkit-line-clamp:unset}\n"
    ".dot{width:8px;height:8px;background:var(--text-dim);border-radius:50%;"
    "animation:bounce 1.2s infinite ease-in-out}\n"
    ".dot:nth-child(2){animation-delay:0.2s}\n"
    ".dot:nth-child(3){animation-delay:0.4s}\n"
    "@keyframes bounce{0%,80%,100%{transform:translateY(0);opacity:0.4}"
    "40%{transform:translateY(-8px);opacity:1}}\n";

const QByteArrayView singleAnswer =
    "#ph{color:var(--text-faint);font-size:12px;text-align:center;margin-top:24px;"
    "background:rgba(var(--pill-rgb),var(--pill-alpha));border-radius:4px;padding:4px 8px}\n"
    "#ph kbd{display:inline-block;padding:2px 6px;margin:0 2px;background:var(--bg-raised);"
    "border:1px solid var(--border-strong);border-radius:4px;font-size:11px;"
    "font-family:'IBM Plex Mono',monospace;color:var(--text);vertical-align:baseline}\n"
    "#ld{display:none;color:var(--accent);font-size:13px;text-align:center;margin-top:28px;"
    "animation:pulse 1.1s ease-in-out infinite}\n"
    "@keyframes pulse{0%,100%{opacity:1}50%{opacity:0.35}}\n";

const QByteArrayView screenshotOnly =
    ".thumb-empty{width:64px;height:48px;object-fit:cover;border-radius:4px;margin:0 6px 6px 0;"
    "cursor:pointer}\n"
    "#empty-note{color:var(--text-faint);font-size:12px;margin-top:8px;"
    "background:rgba(var(--pill-rgb),var(--pill-alpha));border-radius:4px;padding:4px 8px;"
    "width:fit-content}\n";

} // namespace quellora::pagestyle
