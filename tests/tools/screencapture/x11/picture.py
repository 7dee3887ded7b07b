"""Runs the capture tool and decodes its PNG with the standard library only."""

import os
import struct
import subprocess
import zlib

TOOL = os.environ["QUELLORA_SCREENCAPTURE"]
TOOL_DEADLINE = 60


class Picture:
    """An 8-bit RGB PNG, decoded strictly: chunk checksums, one filter byte per line."""

    def __init__(self, data):
        if data[:8] != b"\x89PNG\r\n\x1a\n":
            raise AssertionError("not a PNG")
        position, compressed, names = 8, b"", []
        while position < len(data):
            length, = struct.unpack(">I", data[position:position + 4])
            name = data[position + 4:position + 8]
            body = data[position + 8:position + 8 + length]
            checksum, = struct.unpack(">I", data[position + 8 + length:position + 12 + length])
            if checksum != zlib.crc32(name + body):
                raise AssertionError("bad checksum in " + name.decode())
            names.append(name)
            if name == b"IHDR":
                self.width, self.height, depth, kind = struct.unpack(">IIBB", body[:10])
                if (depth, kind, body[10:]) != (8, 2, b"\0\0\0"):
                    raise AssertionError("not plain 8-bit RGB")
            elif name == b"IDAT":
                compressed += body
            position += 12 + length
        if names[0] != b"IHDR" or names[-1] != b"IEND":
            raise AssertionError("chunks out of order")
        raw = zlib.decompress(compressed)
        line = 1 + 3 * self.width
        if len(raw) != line * self.height:
            raise AssertionError("wrong number of pixels")
        if any(raw[::line]):
            raise AssertionError("unexpected line filter")
        self.rows = [raw[y * line + 1:(y + 1) * line] for y in range(self.height)]

    def __getitem__(self, position):
        x, y = position
        return int.from_bytes(self.rows[y][3 * x:3 * x + 3], "big")

    def colours(self, rect):
        """All colours inside (x, y, width, height)."""
        x, y, width, height = rect
        found = set()
        for row in self.rows[y:y + height]:
            part = row[3 * x:3 * (x + width)]
            found.update(part[i:i + 3] for i in range(0, len(part), 3))
        return {int.from_bytes(colour, "big") for colour in found}

    def differences(self, other):
        """The bounding box of the pixels that differ, or None."""
        if (self.width, self.height) != (other.width, other.height):
            return (0, 0, max(self.width, other.width), max(self.height, other.height))
        rows = [y for y in range(self.height) if self.rows[y] != other.rows[y]]
        if not rows:
            return None
        columns = [x for y in rows for x in range(self.width) if self[x, y] != other[x, y]]
        return (min(columns), rows[0], max(columns) - min(columns) + 1, rows[-1] - rows[0] + 1)


def run(arguments, environment, **options):
    """Runs the tool to completion."""
    return subprocess.run([TOOL, *arguments], env=environment, capture_output=True, text=True,
                          timeout=TOOL_DEADLINE, check=False, **options)


def capture(screen, *arguments):
    """Takes a picture; fails if the tool reports an error or prints anything."""
    path = os.path.join(screen.folder, "picture.png")
    result = run([*arguments, path], screen.environment)
    if (result.returncode, result.stdout, result.stderr) != (0, "", ""):
        raise AssertionError("tool failed: %r" % (result,))
    with open(path, "rb") as file:
        data = file.read()
    os.unlink(path)
    return Picture(data)
