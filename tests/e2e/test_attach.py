"""Pictures that are pasted into the prompt box or dropped on the panel."""

import base64
import struct
import unittest
import zlib

from harness import SignedInCase, wait_until
from harness.messages import PREFIX
from harness.offers import Offer
from harness.server import QUERY

REFUSED = "Only PNG, JPEG and WebP pictures can be attached."


def png(width, height, colour=(200, 40, 40)):
    """A PNG of one colour."""
    def chunk(kind, data):
        body = kind + data
        return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body))
    rows = (b"\0" + bytes(colour) * width) * height
    return (b"\x89PNG\r\n\x1a\n"
            + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0))
            + chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b""))


class AttachTest(SignedInCase):
    def setUp(self):
        super().setUp()
        self.access = self.shared_app.access
        self.before = len(self.shared_server.requests(QUERY))
        self.shared_app.focus_prompt()
        self.empty_prompt()

    def tearDown(self):
        if self.access.find("Remove screenshot"):
            self.access.press("Remove screenshot")
            self.access.wait_gone("Attached screenshot")

    def wait_attached(self, size):
        self.access.wait_for("Attached screenshot", "image")
        self.access.wait_for(f"{size} · goes with your next message")

    def on_the_strip(self):
        x, y, width, height = self.access.settled_bounds("Write a message")
        return x + width // 2, y + height // 2

    def test_pasted_picture_goes_with_the_question(self):
        Offer(self.desktop, image__png=png(2000, 1000), text__html=b"<img>").copy()
        self.desktop.press("ctrl+v")
        self.wait_attached("1280 × 640")
        self.desktop.type_text("what is this?\n")
        body = self.shared_server.wait_for_request(QUERY, self.before + 1).json()
        self.assertEqual(body["prompt"], "what is this?")
        self.assertTrue(base64.b64decode(body["imageBase64"]).startswith(b"\xff\xd8\xff"))
        self.access.wait_gone("Attached screenshot")

    def test_pasted_text_stays_text(self):
        Offer(self.desktop, image__png=png(20, 10), UTF8_STRING=b"a cell").copy()
        self.desktop.press("ctrl+v")
        wait_until(lambda: self.stored("userPrompt") == "a cell", what="the pasted text")
        self.assertIsNone(self.access.find("Attached screenshot"))

    def test_what_cannot_be_attached_is_said(self):
        Offer(self.desktop, image__bmp=b"BM").copy()
        self.desktop.press("ctrl+v")
        self.access.wait_for(REFUSED, role="notification")
        Offer(self.desktop, image__png=b"\x89PNG\r\n\x1a\nbroken").copy()
        mark = self.shared_app.mark()
        self.desktop.press("ctrl+v")
        self.access.wait_for("The picture is damaged.", role="notification")
        self.shared_app.wait_for_line(
            PREFIX + "ERROR: Picture not attached: The picture is damaged.", since=mark)
        self.assertIsNone(self.access.find("Attached screenshot"))

    def test_copied_file(self):
        path = self.shared_app.work / "photo one.png"
        path.write_bytes(png(300, 200))
        Offer(self.desktop, **{"text/uri-list": path.as_uri().encode() + b"\r\n",
                               "UTF8_STRING": str(path).encode()}).copy()
        self.desktop.press("ctrl+v")
        self.wait_attached("300 × 200")
        self.assertEqual(self.stored("userPrompt"), "")

    def test_dropped_picture(self):
        offer = Offer(self.desktop, image__png=png(400, 300))
        self.assertTrue(offer.drag_to(*self.on_the_strip()))
        self.access.wait_for("Drop to attach the picture")
        offer.leave()
        self.access.wait_gone("Drop to attach the picture")
        self.assertTrue(offer.drag_to(*self.on_the_strip()))
        self.assertTrue(offer.drop())
        self.wait_attached("400 × 300")
        self.access.wait_gone("Drop to attach the picture")

    def test_dropped_file(self):
        path = self.shared_app.work / "drop.png"
        path.write_bytes(png(64, 48))
        other = self.shared_app.work / "list.txt"
        other.write_text("no picture")
        offer = Offer(self.desktop, **{"text/uri-list": path.as_uri().encode() + b"\r\n"})
        self.assertTrue(offer.drag_to(*self.on_the_strip()))
        self.assertTrue(offer.drop())
        self.wait_attached("64 × 48")
        offer = Offer(self.desktop, **{"text/uri-list": other.as_uri().encode() + b"\r\n"})
        self.assertTrue(offer.drag_to(*self.on_the_strip()))
        offer.drop()
        self.access.wait_for(REFUSED, role="notification")

    def test_what_is_no_picture_of_this_machine_is_not_taken(self):
        for offer in (Offer(self.desktop, UTF8_STRING=b"words"),
                      Offer(self.desktop, **{"text/uri-list": b"https://example.com/a.png\r\n"})):
            self.assertFalse(offer.drag_to(*self.on_the_strip()))
            offer.leave()


if __name__ == "__main__":
    unittest.main()
