"""Elements of a TIFF, with Python's standard library alone."""

import struct


def tiff_elements(path):
    """Elements of a TIFF of one strip of 8 or 16-bit or signed 32-bit integers, as `process` writes it."""
    with open(path, "rb") as stream:
        data = stream.read()
    directory = struct.unpack_from("<I", data, 4)[0]
    tags = {}
    for entry in range(struct.unpack_from("<H", data, directory)[0]):
        tag, kind, _, value = struct.unpack_from("<HHII", data, directory + 2 + 12 * entry)
        tags[tag] = value & 0xFFFF if kind == 3 else value
    form = {8: "B", 16: "H", 32: "i"}[tags[258]]
    return struct.unpack_from(f"<{tags[256] * tags[257]}{form}", data, tags[273])
