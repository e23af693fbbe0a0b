"""For programs written for the package ``face_recognition``: the functions of its documented interface on Veldan.

``import veldan.face_recognition as face_recognition`` is all that changes; docs/python.md says what differs. Images are
arrays of shape (height, width, 3), uint8, in red, green, blue order, as `load_image_file` gives them; grey ones of shape
(height, width) serve as well. Boxes are tuples (top, right, bottom, left) in pixels.
"""

import threading
from typing import Any, Dict, List, Optional, Sequence, Tuple

import numpy as np
import numpy.typing as npt

from .. import SAME_PERSON
from .._native import _veldan
from ..engine import Engine
from ..errors import Error
from ..face import Box, Face
from ..pictures import read_image
from ..template import Template

Image = npt.NDArray[np.uint8]
Encoding = npt.NDArray[np.float64]
Location = Tuple[int, int, int, int]
Landmarks = Dict[str, List[Tuple[int, int]]]

#: What programs take for the greatest distance of two pictures of one person.
TOLERANCE = 0.6

# Encodings are unit vectors times this. Of unit vectors with the similarity s = (cosine + 1) / 2 the distance is
# 2 sqrt(1 - s), which falls as s grows; scaled, TOLERANCE lies at the similarity that 1 in 1,000 pairs of different people
# reach.
_LENGTH = TOLERANCE / (2 * np.sqrt(1 - SAME_PERSON))
_LEAST_SIDE = 100
# A box that overlaps a found face by so much (intersection over union) is that face's.
_SAME_BOX = 0.5

_of_thread = threading.local()


class NoLandmarksError(Error, NotImplementedError):
    """Asked for the 68 points of the large model: there are five."""


def load_image_file(file: Any, mode: str = "RGB") -> Image:
    """Loads a photo, upright as its EXIF data tell.

    Parameters
    ----------
    file : path or file object
        The photo.
    mode : str
        ``"RGB"``, or ``"L"`` for grey.

    Returns
    -------
    numpy.ndarray
        Shape (height, width, 3) or (height, width), uint8.
    """
    if mode not in ("RGB", "L"):
        raise ValueError(f"mode is {mode!r}, neither 'RGB' nor 'L'")
    image = read_image(file, order="RGB")
    if mode == "L":
        return (image @ np.array([0.299, 0.587, 0.114]) + 0.5).astype(np.uint8)
    return image


def face_locations(img: Image, number_of_times_to_upsample: int = 1, model: str = "hog") -> List[Location]:
    """Boxes of all faces.

    Parameters
    ----------
    img : numpy.ndarray
        An image.
    number_of_times_to_upsample : int
        0 and 1: the image as it is; each further one doubles its sides and finds faces of half the size.
    model : str
        ``"hog"`` or ``"cnn"``: the same detector.

    Returns
    -------
    list of tuple
        (top, right, bottom, left), largest face first.
    """
    return [_location(face.box, scale) for face, scale in _found(img, number_of_times_to_upsample, model)]


def batch_face_locations(images: Sequence[Image], number_of_times_to_upsample: int = 1, batch_size: int = 128) -> List[List[Location]]:
    """`face_locations` of each image; `batch_size` has no effect."""
    return [face_locations(image, number_of_times_to_upsample, "cnn") for image in images]


def face_landmarks(face_image: Image, face_locations: Optional[Sequence[Location]] = None, model: str = "large") -> List[Landmarks]:
    """Where eyes and nose are.

    Parameters
    ----------
    face_image : numpy.ndarray
        An image.
    face_locations : list of tuple, optional
        Boxes of the faces, if they are known.
    model : str
        ``"small"``. The default of the original, ``"large"``, is refused: there are five points, not 68.

    Returns
    -------
    list of dict
        ``"nose_tip"``, ``"left_eye"`` and ``"right_eye"`` of each face, each a list of one point (x, y). Left is the left
        of the image.

    Raises
    ------
    NoLandmarksError
        For the large model.
    """
    _require_model(model, ("large", "small"))
    if model == "large":
        raise NoLandmarksError("face_landmarks: the large model has 68 points, Veldan finds five; say model=\"small\"")
    marks = []
    for face in _faces(face_image, face_locations):
        left, right, nose = ((int(x), int(y)) for x, y in face.points[:3])
        marks.append({"nose_tip": [nose], "left_eye": [left], "right_eye": [right]})
    return marks


def face_encodings(face_image: Image, known_face_locations: Optional[Sequence[Location]] = None, num_jitters: int = 1,
                   model: str = "small") -> List[Encoding]:
    """128 numbers for each face, to be compared with `face_distance`.

    Parameters
    ----------
    face_image : numpy.ndarray
        An image.
    known_face_locations : list of tuple, optional
        Boxes of the faces, if they are known.
    num_jitters, model
        Without effect.

    Returns
    -------
    list of numpy.ndarray
        Each of shape (128,), float64.
    """
    _require_model(model, ("large", "small"))
    return [encoding_of(_engine().template(face)) for face in _faces(face_image, known_face_locations)]


def face_distance(face_encodings: Sequence[Encoding], face_to_compare: Encoding) -> Encoding:
    """How different faces are.

    Returns
    -------
    numpy.ndarray
        Shape (n,): the Euclidean distance of each encoding from the one to compare. 0.6 stands for the similarity that
        1 in 1,000 pairs of different people reach; 0 is the same picture.
    """
    if len(face_encodings) == 0:
        return np.empty(0)
    return np.linalg.norm(np.asarray(face_encodings) - face_to_compare, axis=1)


def compare_faces(known_face_encodings: Sequence[Encoding], face_encoding_to_check: Encoding, tolerance: float = TOLERANCE) -> List[bool]:
    """Whether each known face is that of the one to check: a distance of at most `tolerance`."""
    return (face_distance(known_face_encodings, face_encoding_to_check) <= tolerance).tolist()


def encoding_of(template: Template) -> Encoding:
    """The encoding of a Veldan template, shape (128,), float64."""
    feature = template.feature.astype(np.float64)
    return feature * (_LENGTH / np.linalg.norm(feature))


def _engine() -> Engine:
    if not hasattr(_of_thread, "engine"):
        _of_thread.engine = Engine(0)
    engine: Engine = _of_thread.engine
    return engine


def _require_model(model: str, models: Tuple[str, ...]) -> None:
    if model not in models:
        raise ValueError(f"model is {model!r}, none of {', '.join(models)}")


def _prepared(image: Image) -> Image:
    """With three channels and as large as the detector needs it; right and below, so that coordinates stay."""
    if getattr(image, "ndim", 0) == 2:
        image = np.repeat(image[:, :, np.newaxis], 3, axis=2)
    image = _veldan.packed(image, "RGB")
    missing = [max(_LEAST_SIDE - side, 0) for side in image.shape[:2]]
    if any(missing):
        image = np.pad(image, ((0, missing[0]), (0, missing[1]), (0, 0)))
    image.flags.writeable = False  # our own copy
    return image


def _location(box: Box, scale: int = 1) -> Location:
    return box.y // scale, box.right // scale, box.bottom // scale, box.x // scale


def _found(image: Image, upsample: int, model: str) -> List[Tuple[Face, int]]:
    _require_model(model, ("hog", "cnn"))
    frame = _prepared(image)
    scale = 2 ** max(upsample - 1, 0)
    if scale > 1:
        frame = _veldan.resized(frame, frame.shape[1] * scale, frame.shape[0] * scale)
    return [(face, scale) for face in _engine().detect(frame)]


def _overlap(a: Box, b: Box) -> float:
    width = min(a.right, b.right) - max(a.x, b.x)
    height = min(a.bottom, b.bottom) - max(a.y, b.y)
    if width <= 0 or height <= 0:
        return 0.0
    return width * height / (a.width * a.height + b.width * b.height - width * height)


def _faces(image: Image, locations: Optional[Sequence[Location]]) -> List[Face]:
    frame = _prepared(image)
    found = _engine().detect(frame)
    if locations is None:
        return found
    faces = []
    for top, right, bottom, left in locations:
        box = Box(left, top, right - left, bottom - top)
        best = max(found, key=lambda face: _overlap(face.box, box), default=None)
        if best is None or _overlap(best.box, box) < _SAME_BOX:
            best = _engine().face_at(frame, box)
        faces.append(best)
    return faces


__all__ = ["batch_face_locations", "compare_faces", "face_distance", "face_encodings", "face_landmarks", "face_locations",
           "load_image_file"]
