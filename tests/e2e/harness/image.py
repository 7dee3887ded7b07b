"""Images as raw bytes: pixels, comparison, JPEG decoding, PNG encoding."""

import struct
import subprocess
import zlib


class Image:
    """An RGB image of `width` × `height` pixels, three bytes each."""

    def __init__(self, width, height, rgb):
        if len(rgb) != width * height * 3:
            raise ValueError("pixel data does not match the size")
        self.width = width
        self.height = height
        self.rgb = rgb

    @classmethod
    def from_bgrx(cls, width, height, data):
        """From the four-byte pixels of an X image."""
        rgb = bytearray(width * height * 3)
        rgb[0::3] = data[2::4]
        rgb[1::3] = data[1::4]
        rgb[2::3] = data[0::4]
        return cls(width, height, bytes(rgb))

    @classmethod
    def from_file_bytes(cls, data, kind="jpeg"):
        """Decodes a JPEG or PNG file with an independent program."""
        ppm = subprocess.run(["convert", f"{kind}:-", "-depth", "8", "ppm:-"], input=data,
                             stdout=subprocess.PIPE, check=True).stdout
        return cls.from_ppm(ppm)

    @classmethod
    def from_ppm(cls, ppm):
        """From a PPM file with one byte per channel."""
        fields = ppm[:64].split(maxsplit=4)
        if fields[0] != b"P6" or fields[3] != b"255":
            raise ValueError("unexpected decoder output")
        width, height = int(fields[1]), int(fields[2])
        return cls(width, height, ppm[-width * height * 3:])

    def part(self, x, y, width, height):
        """A rectangle of the picture as a picture."""
        stride = self.width * 3
        return Image(width, height, b"".join(
            self.rgb[row * stride + x * 3:row * stride + (x + width) * 3]
            for row in range(y, y + height)))

    def pixel(self, x, y):
        """The (red, green, blue) of one pixel."""
        start = (y * self.width + x) * 3
        return tuple(self.rgb[start:start + 3])

    def colours(self):
        """The set of all colours in the picture."""
        return set(zip(self.rgb[0::3], self.rgb[1::3], self.rgb[2::3]))

    def average(self, x, y, width, height):
        """The mean colour of a rectangle."""
        sums = [0, 0, 0]
        for row in range(y, y + height):
            start = (row * self.width + x) * 3
            line = self.rgb[start:start + width * 3]
            for channel in range(3):
                sums[channel] += sum(line[channel::3])
        return tuple(total / (width * height) for total in sums)

    def is_near(self, x, y, colour, tolerance=24):
        """Whether a 5 x 5 neighbourhood has about this colour."""
        mean = self.average(max(0, x - 2), max(0, y - 2), 5, 5)
        return all(abs(a - b) <= tolerance for a, b in zip(mean, colour))

    def differing_pixels(self, other, x, y, width, height, tolerance=40):
        """Number of pixels in a rectangle that differ from another image."""
        count = 0
        for row in range(y, y + height):
            for column in range(x, x + width):
                mine, theirs = self.pixel(column, row), other.pixel(column, row)
                if any(abs(a - b) > tolerance for a, b in zip(mine, theirs)):
                    count += 1
        return count

    def ppm(self):
        """The picture as the bytes of a PPM file."""
        return b"P6\n%d %d\n255\n" % (self.width, self.height) + self.rgb

    def png(self):
        """The picture as the bytes of a PNG file."""
        def block(kind, data):
            body = kind + data
            return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body))

        stride = self.width * 3
        raw = b"".join(b"\0" + self.rgb[row * stride:(row + 1) * stride]
                       for row in range(self.height))
        return (b"\x89PNG\r\n\x1a\n"
                + block(b"IHDR", struct.pack(">IIBBBBB", self.width, self.height, 8, 2, 0, 0, 0))
                + block(b"IDAT", zlib.compress(raw, 9)) + block(b"IEND", b""))

    def save_png(self, path):
        """Writes the picture as a PNG file."""
        with open(path, "wb") as file:
            file.write(self.png())


def png(width, height, colour):
    """The bytes of a PNG file in one (red, green, blue) colour."""
    return Image(width, height, bytes(colour) * (width * height)).png()
