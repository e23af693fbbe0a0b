"""Photos: read upright, drawn on, written."""

import os
import warnings
from typing import Any, List, Optional, Sequence, Tuple, Union

import numpy as np
import numpy.typing as npt

from ._native import _veldan
from .errors import Error, MissingError, PhotoError
from .face import Face

Image = npt.NDArray[np.uint8]


class PhotoWarning(UserWarning):
    """A photo is damaged, but a part of it could be read."""


def read_bytes(photo: Any) -> bytes:
    """The bytes of whatever `read_image` takes, undecoded."""
    if isinstance(photo, (bytes, bytearray, memoryview)):
        return bytes(photo)
    if isinstance(photo, (str, os.PathLike)):
        try:
            with open(photo, "rb") as file:
                return file.read()
        except FileNotFoundError:
            raise MissingError(f"{os.fspath(photo)}: there is no such file") from None
        except OSError as error:
            raise PhotoError(f"{os.fspath(photo)}: {error.strerror}") from error
    if hasattr(photo, "read"):
        return bytes(photo.read())
    if hasattr(photo, "open"):
        with photo.open() as file:
            return bytes(file.read())
    raise TypeError(f"{type(photo).__name__} is neither a path nor bytes nor a file object")


def decode(content: bytes, photo: Any) -> Tuple[Image, str]:
    """The pixels of a photo's bytes, and ``"truncated"`` or ``"damaged"`` when only a part of them could be read. Errors
    name the photo where it has a name."""
    try:
        return _veldan.decode(content)
    except Error as error:
        raise type(error)(_named(photo, str(error)), error.code) from None


def decoded(content: bytes, photo: Any) -> Image:
    """`decode`, with a warning of the caller's caller where something is wrong."""
    image, flaw = decode(content, photo)
    if flaw:
        warnings.warn(_named(photo, f"the photo is {flaw}; a part of it was read"), PhotoWarning, stacklevel=3)
    return image


def _named(photo: Any, message: str) -> str:
    return f"{os.fspath(photo)}: {message}" if isinstance(photo, (str, os.PathLike)) else message


def read_image(photo: Any, order: str = "BGR") -> Image:
    """Reads a photo and turns it upright as its EXIF data tell.

    Parameters
    ----------
    photo : path, bytes or file object
        A JPEG, PNG, WebP, BMP, TIFF, HEIC or AVIF file, or its bytes, or something with ``read()`` or ``open()`` that gives
        them.
    order : str
        ``"BGR"`` or ``"RGB"``.

    Returns
    -------
    numpy.ndarray
        Shape (height, width, 3), uint8.

    Raises
    ------
    MissingError
        When there is no such file; it is a `FileNotFoundError`, too.
    PhotoError
        When it cannot be read or is no picture.
    """
    image = decoded(read_bytes(photo), photo)
    return _veldan.packed(image, "RGB") if _requires_turn(order) else image


def draw(image: Image, faces: Sequence[Face], words: Optional[Sequence[Union[str, List[str]]]] = None, order: str = "BGR") -> Image:
    """A copy of the image with boxes, points and words as the command draws them.

    Parameters
    ----------
    image : numpy.ndarray
        Shape (height, width, 3), uint8.
    faces : sequence of Face
        Boxes become green, points red; with several faces numbers stand beside them. Masked faces that were judged also
        show their two points.
    words : sequence of str or list of str, optional
        What is written beside each face, one string a line; ASCII. A small image is enlarged by a whole factor then.
    order : str
        ``"BGR"`` or ``"RGB"``, of the image and of the result.

    Returns
    -------
    numpy.ndarray
        Shape (height, width, 3), uint8.
    """
    lines = [[one] if isinstance(one, str) else list(one) for one in words] if words is not None else [[] for _ in faces]
    if len(lines) != len(faces):
        raise ValueError(f"there are words for {len(lines)} faces, but {len(faces)} faces")
    frame = _veldan.packed(image, order)
    masked = [face.knows("masked") and face.masked for face in faces]
    drawn = _veldan.draw(frame, [face.record for face in faces], masked, lines)
    return _veldan.packed(drawn, "RGB") if _requires_turn(order) else drawn


def write_image(path: "Union[str, os.PathLike[str]]", image: Image, order: str = "BGR") -> None:
    """Writes an image; the extension chooses the format. The file appears under its name once it is complete.

    Raises
    ------
    WriteError
        When it cannot be written.
    """
    _veldan.save(_veldan.packed(image, order), os.fsencode(path))


def _requires_turn(order: str) -> bool:
    if order not in ("BGR", "RGB"):
        raise ValueError(f"order is {order!r}, neither 'BGR' nor 'RGB'")
    return order == "RGB"
