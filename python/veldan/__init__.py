"""Veldan Face SDK: finds faces, judges them, follows them and tells whose they are.

>>> import veldan
>>> with veldan.Engine() as engine:                      # doctest: +SKIP
...     for face in engine.detect(veldan.read_image("photo.jpg")):
...         face.box, face.quality, face.masked
"""

from ._native import _veldan, network_digest
from .batch import ScanResult, scan
from .engine import Engine
from .errors import (CapacityError, ClosedError, EngineError, Error, GalleryError, ImageError, ImageTooSmallError,
                     MissingError, NetworkError, NotJudgedError, PhotoError, TemplateError, UnsuitableError, UsageError,
                     WorkerError, WriteError)
from .face import Box, Face, TrackedFace
from .gallery import EnrolledPhoto, Gallery, Identity, Match, Person
from .pictures import PhotoWarning, draw, read_image, write_image
from .template import Template, similarity
from .tracker import Tracker

__version__ = _veldan.VERSION

#: Similarity from which two bare faces count as one person: 1 in 1,000 pairs of different people reach it.
SAME_PERSON = _veldan.SAME_PERSON / 100
#: The same for two masked templates.
SAME_PERSON_MASKED = _veldan.SAME_PERSON_MASKED / 100
#: Quality from which a photo serves for enrolment, 0 to 100.
ENROLMENT_QUALITY = _veldan.ENROLMENT_QUALITY
#: Quality from which a face of a video is worth searching, 0 to 100.
TRACKED_QUALITY = _veldan.TRACKED_QUALITY
#: Mask score from which a face counts as masked, 0 to 100.
MASKED = _veldan.MASKED
#: Liveness from which a face counts as live, 0 to 100.
LIVE = _veldan.LIVE


def set_opencv_threads(threads: int) -> None:
    """How many threads OpenCV, which runs the networks, may use in this process. 1 is best with an engine a core."""
    _veldan.set_opencv_threads(threads)


__all__ = [
    "Box", "CapacityError", "ClosedError", "ENROLMENT_QUALITY", "Engine", "EngineError", "EnrolledPhoto", "Error", "Face",
    "Gallery", "GalleryError", "Identity", "ImageError", "ImageTooSmallError", "LIVE", "MASKED", "Match", "MissingError",
    "NetworkError", "NotJudgedError", "Person", "PhotoError", "PhotoWarning", "SAME_PERSON", "SAME_PERSON_MASKED",
    "ScanResult", "TRACKED_QUALITY", "Template", "TemplateError", "TrackedFace", "Tracker", "UnsuitableError",
    "UsageError", "WorkerError", "WriteError", "draw", "network_digest", "read_image", "scan", "set_opencv_threads",
    "similarity", "write_image",
]
