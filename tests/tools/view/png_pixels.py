"""Pixels of a PNG, with Python's standard library alone."""

import struct
import zlib


def png_pixels(path):
    """Width and height of a PNG of 8 bits, and a function of column and row: red, green, blue."""
    with open(path, "rb") as stream:
        data = stream.read()
    width, height, depth, colour = struct.unpack_from(">IIBB", data, 16)
    size = {2: 3, 6: 4}[colour]
    packed, at = b"", 8
    while at < len(data):
        (length,) = struct.unpack_from(">I", data, at)
        if data[at + 4 : at + 8] == b"IDAT":
            packed += data[at + 8 : at + 8 + length]
        at += 12 + length
    flat, step = zlib.decompress(packed), width * size
    before, rows = bytes(step), []
    for row in range(height):
        kind = flat[row * (step + 1)]
        line = bytearray(flat[row * (step + 1) + 1 : (row + 1) * (step + 1)])
        for i, value in enumerate(line):
            left = line[i - size] if i >= size else 0
            corner = before[i - size] if i >= size else 0
            line[i] = (value + predicted(kind, left, before[i], corner)) & 0xFF
        rows.append(line)
        before = line
    return width, height, lambda x, y: tuple(rows[y][x * size : x * size + 3])


def predicted(kind, left, above, corner):
    """What a filter of PNG expects of a byte."""
    if kind < 4:
        return (0, left, above, (left + above) // 2)[kind]
    paeth = left + above - corner
    return min((left, above, corner), key=lambda value: abs(paeth - value))
