#!/usr/bin/env python3
"""Writes share/gradient.PNG: the picture behind the row and column headings.

A soft vertical grey gradient, light at the top and darker at the bottom.  The
engine scales it into every heading cell, so a small picture serves.
"""
import struct
import sys
import zlib

WIDTH, HEIGHT = 16, 64
TOP, BOTTOM = 0xF6, 0xCF  # grey levels of the first and last row


def chunk(kind, data):
    body = kind + data
    return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body))


def main(path):
    rows = bytearray()
    for y in range(HEIGHT):
        level = round(TOP + (BOTTOM - TOP) * y / (HEIGHT - 1))
        rows += b"\x00" + bytes([level, level, level]) * WIDTH
    png = b"\x89PNG\r\n\x1a\n"
    png += chunk(b"IHDR", struct.pack(">IIBBBBB", WIDTH, HEIGHT, 8, 2, 0, 0, 0))
    png += chunk(b"IDAT", zlib.compress(bytes(rows), 9))
    png += chunk(b"IEND", b"")
    with open(path, "wb") as out:
        out.write(png)


if __name__ == "__main__":
    main(sys.argv[1] if len(sys.argv) > 1 else "share/gradient.PNG")
