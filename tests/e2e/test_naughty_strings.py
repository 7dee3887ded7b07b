"""Strings that are known to trouble programs, on their way through the real one."""

import json
import os
import re
import unittest
from pathlib import Path

from harness import wait_until
from harness.offers import Offer
from harness.server import QUERY
from stored_threads import StoredThreadsCase

LIST = Path(os.environ["QUELLORA_BIN_DIR"]).parent / "corpora" / "naughty-strings.json"
# What the prompt box takes without replacing it by a placeholder.
FIELD_CHARACTERS = 12000
FIELD_LINES = 150


TITLE = "Strings"


def batches():
    """The strings, one a line, in texts that fit the box."""
    lines, batch = json.loads(LIST.read_text(encoding="utf-8")), [TITLE]
    for line in lines:
        if not line.strip() or "\r" in line:
            continue
        if len(batch) == FIELD_LINES or sum(map(len, batch)) + len(line) > FIELD_CHARACTERS:
            yield "\n".join(batch)
            batch = [TITLE]
        batch.append(line)
    yield "\n".join(batch)


def in_the_box(text):
    """The box takes every kind of line break as one, and a space that does not break as a space."""
    return re.sub("[\u2028\u2029]", "\n", text).replace("\u00a0", " ")


class NaughtyStringsTest(StoredThreadsCase):
    def paste(self, text):
        Offer(self.desktop, UTF8_STRING=text.encode("utf-8")).copy()
        self.desktop.press("ctrl+v")

    def test_asked_stored_and_found_again(self):
        server, app = self.app_to_start({"keepAIHistoryEnabled": True, "userPrompt": "",
                                         "hasLaunchedBefore": True})
        server.on(QUERY, server.answer_with("fine"))
        app.start().sign_in()
        pasted = list(batches())
        self.assertGreater(len(pasted), 2)
        texts = [in_the_box(text) for text in pasted]
        for count, text in enumerate(texts, 1):
            app.focus_prompt()
            self.paste(pasted[count - 1])
            wait_until(lambda text=text: app.access.text_of(app.access.find("Write a message"))
                       .endswith(text[-20:]), what="the text in the prompt box")
            self.desktop.press("return")
            sent = server.wait_for_request(QUERY, count).json()["prompt"]
            self.assertEqual(sent.split("Current message:\n")[-1], text)
            wait_until(lambda count=count: self.stored_prompts()[count - 1:], what="the stored turn")
        self.assertEqual(self.stored_prompts(), texts)
        # Later questions carry the earlier ones.
        for text in texts[:-1]:
            self.assertIn("User: " + text + "\n", sent)

        self.open_history(app)
        app.access.click("Search threads")
        app.access.wait_for("Search threads", focused=True)
        title = re.compile(f"^{TITLE}, ")
        for line in ("(╯°□°）╯︵ ┻━┻)", "<script>alert(123)</script>", "田中さんにあげて下さい", "nowhere"):
            self.desktop.press("ctrl+a")
            self.paste(line)
            if line == "nowhere":
                app.access.wait_gone(title)
            else:
                self.assertIn(line, "\n".join(texts))
                app.access.wait_for(title)

    def stored_prompts(self):
        threads = [path for path in self.root.glob("*/session.json")]
        if not threads:
            return []
        self.assertEqual(len(threads), 1)
        return [turn["prompt"] for turn in json.loads(threads[0].read_text())["turns"]]


if __name__ == "__main__":
    unittest.main()
