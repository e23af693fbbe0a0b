#!/usr/bin/python3
"""Writes the pictures of this folder anew, with Pillow and ImageMagick. README.md tells what they are for.

Every file shows the same 23 x 17 pattern, a smooth one, so that a test knows each pixel without reading a second file.
Usage: /usr/bin/python3 make_fixtures.py [FOLDER]
"""
import io
import os
import struct
import subprocess
import sys

from PIL import Image

WIDTH, HEIGHT = 23, 17
CONVERT = "convert-im6.q16"


def pattern():
    image = Image.new("RGB", (WIDTH, HEIGHT))
    image.putdata([(x * 11, y * 15, 255 - (x * 5 + y * 7)) for y in range(HEIGHT) for x in range(WIDTH)])
    return image


def pattern_grey():
    image = Image.new("L", (WIDTH, HEIGHT))
    image.putdata([x * 7 + y * 5 for y in range(HEIGHT) for x in range(WIDTH)])
    return image


def ifd(order, entries, base, following=0):
    """One EXIF directory that begins base bytes after the TIFF header; entries are (tag, type, count, bytes)."""
    head = struct.pack(order + "H", len(entries))
    at = base + 2 + 12 * len(entries) + 4
    extra = b""
    for tag, kind, count, value in sorted(entries):
        head += struct.pack(order + "HHI", tag, kind, count)
        if len(value) <= 4:
            head += value.ljust(4, b"\0")
        else:
            head += struct.pack(order + "I", at + len(extra))
            extra += value + b"\0" * (len(value) % 2)
    return head + struct.pack(order + "I", following), extra


def camera_exif(order, orientation):
    """What a camera puts in front of its pictures: two directories, exposure data, a maker note, a thumbnail."""
    def ascii_entry(tag, text):
        value = text.encode() + b"\0"
        return (tag, 2, len(value), value)

    def short_entry(tag, value):
        return (tag, 3, 1, struct.pack(order + "H", value))

    def rational_entry(tag, over, under):
        return (tag, 5, 1, struct.pack(order + "II", over, under))

    thumbnail = io.BytesIO()
    # Not the picture: a decoder that took the thumbnail for it would show this green.
    Image.new("RGB", (16, 12), (0, 200, 0)).save(thumbnail, "JPEG", quality=50)
    thumbnail = thumbnail.getvalue()

    exif = [rational_entry(0x829A, 1, 125), rational_entry(0x829D, 28, 10), short_entry(0x8827, 200),
            (0x9000, 7, 4, b"0230"), ascii_entry(0x9003, "2020:04:06 12:34:56"), (0x927C, 7, 40, bytes(range(40))),
            short_entry(0xA001, 1)]
    main = [ascii_entry(0x010F, "Example Optical"), ascii_entry(0x0110, "Example D-1"),
            short_entry(0x0112, orientation),
            rational_entry(0x011A, 300, 1), rational_entry(0x011B, 300, 1), short_entry(0x0128, 2),
            ascii_entry(0x0132, "2020:04:06 12:34:56"), (0x8769, 4, 1, b"\0\0\0\0")]
    main_size = sum(map(len, ifd(order, main, 8)))
    exif_at = 8 + main_size
    exif_bytes = b"".join(ifd(order, exif, exif_at))
    second_at = exif_at + len(exif_bytes)
    main[-1] = (0x8769, 4, 1, struct.pack(order + "I", exif_at))

    def second(at):
        return [short_entry(0x0103, 6), (0x0201, 4, 1, struct.pack(order + "I", at)),
                (0x0202, 4, 1, struct.pack(order + "I", len(thumbnail)))]
    thumbnail_at = second_at + sum(map(len, ifd(order, second(0), second_at)))
    return (b"Exif\0\0" + (b"II*\0" if order == "<" else b"MM\0*") + struct.pack(order + "I", 8)
            + b"".join(ifd(order, main, 8, second_at)) + exif_bytes
            + b"".join(ifd(order, second(thumbnail_at), second_at)) + thumbnail)


def main():
    folder = sys.argv[1] if len(sys.argv) > 1 else os.path.dirname(os.path.abspath(__file__))
    os.chdir(folder)
    colour, grey = pattern(), pattern_grey()
    alpha = colour.copy()
    alpha.putalpha(200)

    grey.save("pil_8.bmp")
    colour.save("pil_24.bmp")
    alpha.save("pil_32.bmp")
    colour.save("pil.jpg", quality=95)
    colour.save("pil_progressive.jpg", quality=95, progressive=True)
    grey.save("pil_grey.jpg", quality=95)
    colour.save("pil.png")
    alpha.save("pil_alpha.png")
    grey.save("pil_grey.png")
    colour.save("pil.webp", quality=95)
    colour.save("pil_lossless.webp", lossless=True)

    # A camera held on its side, turned either way: the stored picture is the pattern turned back.
    colour.transpose(Image.Transpose.ROTATE_90).save("camera_turned_6.jpg", quality=95, exif=camera_exif("<", 6))
    colour.transpose(Image.Transpose.ROTATE_270).save("camera_turned_8.jpg", quality=95, exif=camera_exif(">", 8))
    colour.save("camera_upright.jpg", quality=95, exif=camera_exif("<", 1))

    # BMP3 is the plain form of the format, with the 40-byte header; it has no alpha. The form with alpha has a longer one.
    for name, source, options in (("BMP3:magick_8.bmp", "pil_grey.png", ["-type", "Grayscale"]),
                                  ("BMP3:magick_24.bmp", "pil.png", ["-type", "TrueColor"]),
                                  ("BMP:magick_32.bmp", "pil_alpha.png", ["-alpha", "on"])):
        subprocess.run([CONVERT, source, *options, "-compress", "none", name], check=True)
    for name, options in (("magick.jpg", ["-quality", "95"]), ("magick.png", []), ("magick.webp", ["-quality", "95"])):
        subprocess.run([CONVERT, "pil.png", *options, "-strip", name], check=True)


if __name__ == "__main__":
    main()
