"""One grey frame of a TIFF or PNG file, its numbers as they are stored."""

from __future__ import annotations

from pathlib import Path
from typing import Any

import numpy as np

from ._arguments import Array

TIFF, PNG = (".tif", ".tiff"), (".png",)
_ACCEPTED = "give one grey picture of 8 or 16 bits"


def read_picture(file: str) -> Array:
    """(H, W), uint8 or uint16.

    Raises
    ------
    ValueError
        If the file holds something else, such as colours, a palette or inverted grey: turned into
        grey they would look like frames and be none.
    """
    return _tiff(file) if file.lower().endswith(TIFF) else _png(file)


def _tiff(file: str) -> Array:
    import tifffile

    with tifffile.TiffFile(file) as tiff:
        if len(tiff.pages) != 1:
            raise ValueError(f"holds {len(tiff.pages)} pictures; {_ACCEPTED}")
        page: Any = tiff.pages[0]
        # MINISBLACK is 1; an unsigned sample format is 1, also if the file names none.
        if page.photometric != 1 or page.samplesperpixel != 1 or len(page.shape) != 2:
            kind = getattr(page.photometric, "name", page.photometric)
            raise ValueError(
                f"holds {page.samplesperpixel} samples a pixel as {kind} in the shape "
                f"{page.shape}; {_ACCEPTED} with 0 for black (MINISBLACK)"
            )
        if page.bitspersample not in (8, 16) or page.sampleformat != 1:
            kind = getattr(page.sampleformat, "name", page.sampleformat)
            raise ValueError(f"holds {page.bitspersample} bits as {kind}; {_ACCEPTED}, unsigned")
        # Parts that are not there would be read as 0.
        length = Path(file).stat().st_size
        for offset, count in zip(page.dataoffsets, page.databytecounts):
            if count == 0 or offset + count > length:
                raise ValueError("is cut off; copy or record it again")
        picture = np.asarray(page.asarray())
    return picture.astype(picture.dtype.newbyteorder("="), copy=False)


def _png(file: str) -> Array:
    from PIL import Image

    with open(file, "rb") as stream:
        start = stream.read(26)
    if len(start) < 26 or start[:8] != b"\x89PNG\r\n\x1a\n" or start[12:16] != b"IHDR":
        raise ValueError("is no PNG file, or cut off; copy or record it again")
    depth, colour = start[24], start[25]
    # The reader hands out palette indices as if they were light, and stretches 1, 2 and 4 bits.
    if colour != 0 or depth not in (8, 16):
        kinds = {0: "grey", 2: "colour", 3: "a palette", 4: "grey and alpha", 6: "colour and alpha"}
        raise ValueError(f"holds {kinds.get(colour, colour)} of {depth} bits; {_ACCEPTED}")
    with Image.open(file) as image:
        # Grey of 16 bits is read as 32 bits with a sign.
        return np.asarray(image).astype(np.uint8 if depth == 8 else np.uint16)
