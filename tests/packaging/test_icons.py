"""The icon in all sizes, as rendered by the build."""

import struct
import unittest
import xml.etree.ElementTree as ElementTree
import zlib

from paths import BUILD, ROOT

ICONS = BUILD / "assets" / "icons"
DRAWING = ROOT / "assets" / "icons" / "quellora.svg"
# The names that Apple's iconutil accepts, with their pixels.
ICONSET = {
    "icon_16x16.png": 16, "icon_16x16@2x.png": 32,
    "icon_32x32.png": 32, "icon_32x32@2x.png": 64,
    "icon_128x128.png": 128, "icon_128x128@2x.png": 256,
    "icon_256x256.png": 256, "icon_256x256@2x.png": 512,
    "icon_512x512.png": 512, "icon_512x512@2x.png": 1024,
}
# Pixel sizes of .icns entries by type: classic types and those written by iconutil.
ICNS_TYPES = {
    b"is32": 16, b"il32": 32, b"ih32": 48, b"it32": 128,
    b"ic04": 16, b"ic05": 32, b"ic07": 128, b"ic08": 256, b"ic09": 512, b"ic10": 1024,
    b"ic11": 32, b"ic12": 64, b"ic13": 256, b"ic14": 512,
    b"icp4": 16, b"icp5": 32, b"icp6": 64,
}


def png_rows(data):
    """(width, height, rows of RGBA bytes) of an 8-bit RGBA PNG."""
    assert data[:8] == b"\x89PNG\r\n\x1a\n", "no PNG"
    at, packed = 8, b""
    while at < len(data):
        length, kind = struct.unpack_from(">I4s", data, at)
        body = data[at + 8:at + 8 + length]
        if kind == b"IHDR":
            width, height, depth, color = struct.unpack_from(">IIBB", body)
            assert (depth, color) == (8, 6), "not RGBA"
        elif kind == b"IDAT":
            packed += body
        at += 12 + length
    raw = zlib.decompress(packed)
    stride, rows, above = 4 * width, [], bytes(4 * width)
    for y in range(height):
        kind, line = raw[y * (stride + 1)], bytearray(raw[y * (stride + 1) + 1:][:stride])
        for i in range(stride):
            left = line[i - 4] if i >= 4 else 0
            corner = above[i - 4] if i >= 4 else 0
            guess = left + above[i] - corner
            paeth = min((left, above[i], corner), key=lambda value: abs(guess - value))
            line[i] = (line[i] + (0, left, above[i], (left + above[i]) // 2, paeth)[kind]) & 255
        rows.append(bytes(line))
        above = rows[-1]
    return width, height, rows


def icns_sizes(data):
    """The pixel sizes in an .icns file; raises ValueError if it is damaged."""
    magic, length = struct.unpack_from(">4sI", data)
    if magic != b"icns" or length != len(data):
        raise ValueError("no complete icns file")
    at, sizes = 8, set()
    while at < len(data):
        kind, size = struct.unpack_from(">4sI", data, at)
        if size <= 8 or at + size > len(data):
            raise ValueError(f"entry {kind} is damaged")
        if kind in ICNS_TYPES:
            sizes.add(ICNS_TYPES[kind])
        at += size
    return sizes


class IconTest(unittest.TestCase):
    def test_the_iconset_is_complete(self):
        folder = ICONS / "Quellora.iconset"
        self.assertEqual({path.name for path in folder.iterdir()}, set(ICONSET))
        for name, pixels in ICONSET.items():
            with self.subTest(name):
                head = (folder / name).read_bytes()[:24]
                self.assertEqual(struct.unpack(">II", head[16:24]), (pixels, pixels))

    def test_the_packed_icon_holds_every_size(self):
        packed = ICONS / "Quellora.icns"
        self.assertTrue(packed.exists(), "no .icns: install the Debian package icnsutils")
        data = packed.read_bytes()
        self.assertLessEqual({16, 32, 128, 256, 512, 1024}, icns_sizes(data))
        for damaged in (data[:-1], b"icon" + data[4:], data[:12] + b"\0\0\0\0" + data[16:]):
            with self.assertRaises(ValueError):
                icns_sizes(damaged)

    def test_the_smallest_is_legible(self):
        """White lines on the blue panel cover whole pixels, and the margins are transparent."""
        width, height, rows = png_rows((ICONS / "png" / "16.png").read_bytes())
        self.assertEqual((width, height), (16, 16))

        def pixel(x, y):
            return tuple(rows[y][4 * x:4 * x + 4])
        self.assertEqual(pixel(0, 0)[3], 0)
        self.assertEqual(pixel(8, 8), (255, 255, 255, 255))
        red, _, blue, alpha = pixel(8, 9)
        self.assertEqual(alpha, 255)
        self.assertGreater(blue - red, 120)

    def test_every_picture_keeps_the_margins(self):
        """The body is 824 of 1024 wide and centred."""
        for size in (128, 256):
            with self.subTest(size):
                _, _, rows = png_rows((ICONS / "png" / f"{size}.png").read_bytes())
                middle = rows[size // 2]
                inside = [x for x in range(size) if middle[4 * x + 3]]
                self.assertAlmostEqual(inside[0], size * 100 / 1024, delta=1)
                self.assertAlmostEqual(inside[-1] + 1, size * 924 / 1024, delta=1)

    def test_the_drawing_uses_basic_svg_elements_only(self):
        tags = {element.tag.partition("}")[2] for element in ElementTree.parse(DRAWING).iter()
                if isinstance(element.tag, str)}
        self.assertLessEqual(tags, {"svg", "defs", "linearGradient", "stop", "rect", "circle", "path"})


if __name__ == "__main__":
    unittest.main()
