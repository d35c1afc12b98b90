#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-3.0-or-later
"""Counts the pixels of a binary PPM (P6) on standard input that have the alert's accent colour.

The alert's Join button and badge are the only things of that colour on the test desktops, so a count in the
thousands means the alert is on screen, and zero that it is not.
"""
import sys

ACCENT = (41, 209, 186)
TOLERANCE = 14


def fields(data, count):
    """The first `count` whitespace-separated header fields of a PPM and the offset after them."""
    values, position = [], 0
    while len(values) < count:
        while data[position:position + 1].isspace():
            position += 1
        if data[position:position + 1] == b"#":
            position = data.index(b"\n", position) + 1
            continue
        end = position
        while not data[end:end + 1].isspace():
            end += 1
        values.append(data[position:end])
        position = end
    return values, position + 1


def main():
    data = sys.stdin.buffer.read()
    (magic, width, height, maximum), offset = fields(data, 4)
    if magic != b"P6" or int(maximum) != 255:
        sys.exit("not an 8-bit binary PPM")
    pixels = memoryview(data)[offset:offset + int(width) * int(height) * 3]
    red, green, blue = (bytes(pixels[channel::3]) for channel in range(3))
    count = sum(1 for r, g, b in zip(red, green, blue)
                if abs(r - ACCENT[0]) <= TOLERANCE and abs(g - ACCENT[1]) <= TOLERANCE
                and abs(b - ACCENT[2]) <= TOLERANCE)
    print(count)


if __name__ == "__main__":
    main()
