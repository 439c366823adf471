"""One grey frame of a TIFF or PNG file, its numbers as they are stored."""

from __future__ import annotations

from pathlib import Path
from typing import IO, Any

import numpy as np

from .. import _native
from .._arguments import Array

TIFF, PNG = (".tif", ".tiff"), (".png",)
_ACCEPTED = "give one grey picture of 8 or 16 bits"
# Those without loss: none, LZW, Deflate by both of its numbers, PackBits, LZMA, Zstandard.
_COMPRESSIONS = 1, 5, 8, 32946, 32773, 34925, 50000


class Picture_error(ValueError):
    """A file that holds no frame: what is wrong and the remedy, without the file's name."""


def read_picture(file: str) -> Array:
    """(H, W), uint8 or uint16.

    Raises
    ------
    Picture_error
        If the file holds something else, such as colours, a palette or inverted grey: turned into
        grey they would look like frames and be none.
    """
    try:
        return _tiff(file) if file.lower().endswith(TIFF) else _png(file)
    except (ImportError, Picture_error):
        raise
    except MemoryError:
        raise Picture_error("does not fit into memory; give more of it") from None
    except Exception as error:  # decoders have a dozen for data that make no sense
        if isinstance(error, OSError) and error.errno is not None:
            raise
        raise Picture_error(
            "cannot be decoded; copy or record it again, compressed by deflate or not at all"
        ) from None


def _tiff(file: str) -> Array:
    import tifffile

    with tifffile.TiffFile(file) as tiff:
        if len(tiff.pages) != 1:
            raise Picture_error(f"holds {len(tiff.pages)} pictures; {_ACCEPTED}")
        page: Any = tiff.pages[0]
        # MINISBLACK is 1; an unsigned sample format is 1, also if the file names none.
        if page.photometric != 1 or page.samplesperpixel != 1 or len(page.shape) != 2:
            kind = getattr(page.photometric, "name", page.photometric)
            raise Picture_error(
                f"holds {page.samplesperpixel} samples a pixel as {kind} in the shape "
                f"{page.shape}; {_ACCEPTED} with 0 for black (MINISBLACK)"
            )
        if page.bitspersample not in (8, 16) or page.sampleformat != 1:
            kind = getattr(page.sampleformat, "name", page.sampleformat)
            raise Picture_error(f"holds {page.bitspersample} bits as {kind}; {_ACCEPTED}, unsigned")
        if page.compression not in _COMPRESSIONS:
            kind = getattr(page.compression, "name", page.compression)
            raise Picture_error(f"is compressed by {kind}; compress it by deflate or not at all")
        # Parts that are not there would be read as 0.
        length = Path(file).stat().st_size
        for offset, count in zip(page.dataoffsets, page.databytecounts):
            if count == 0 or offset + count > length:
                raise Picture_error("is cut off; copy or record it again")
        picture = np.asarray(page.asarray())
    return picture.astype(picture.dtype.newbyteorder("="), copy=False)


def _png(file: str) -> Array:
    with open(file, "rb") as stream:
        return _grey_png(stream)


def _grey_png(stream: IO[bytes]) -> Array:
    from PIL import Image

    start = stream.read(26)
    if len(start) < 26 or start[:8] != b"\x89PNG\r\n\x1a\n" or start[12:16] != b"IHDR":
        raise Picture_error("is no PNG file, or cut off; copy or record it again")
    depth, colour = start[24], start[25]
    # The reader hands out palette indices as if they were light, and stretches 1, 2 and 4 bits.
    if colour != 0 or depth not in (8, 16):
        kinds = {0: "grey", 2: "colour", 3: "a palette", 4: "grey and alpha", 6: "colour and alpha"}
        raise Picture_error(f"holds {kinds.get(colour, colour)} of {depth} bits; {_ACCEPTED}")
    stream.seek(0)
    # No other of the library's fifty formats gets to see what passes for a PNG file.
    try:
        with Image.open(stream, formats=("PNG",)) as image:
            # Grey of 16 bits is read as 32 bits with a sign.
            return np.asarray(image).astype(np.uint8 if depth == 8 else np.uint16)
    except Image.DecompressionBombError:
        width, height = (int.from_bytes(start[at : at + 4], "big") for at in (16, 20))
        raise Picture_error(
            f"holds {_native.size_text(width, height)} pixels, more than are read of a PNG file; "
            "give a TIFF file"
        ) from None
