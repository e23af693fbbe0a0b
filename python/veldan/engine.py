"""The engine: everything that looks at pixels."""

import sys
from types import TracebackType
from typing import Iterable, List, Optional, Sequence, Tuple, Type

import numpy as np
import numpy.typing as npt

from ._native import KINDS, _veldan
from .errors import ClosedError, ImageError, TemplateError
from .face import RECORD_WORDS, Face
from .template import Template

Image = npt.NDArray[np.uint8]

_LIGHTS = {"visible": "judge_liveness", "near_infrared": "judge_near_infrared"}
_POINTS = {"five": True, "two": False}


class FrameKeeper:
    """Takes images as the library does, and copies them for faces to keep. Memory that was never touched costs more than
    copying a frame, so copies that nobody looks at any more are filled anew."""

    # The faces of a loop are usually there until those of the next frame are.
    _MOST = 2
    _MOST_BYTES = 1 << 24
    # The list, the loop's variable and the argument of getrefcount() itself.
    _OWN_REFERENCES = 3

    def __init__(self) -> None:
        self._copies: List[Image] = []

    def frame(self, image: Image, order: str, copy: bool) -> Image:
        """The image, packed and in the library's order: the very array where it lies so and nothing asks for a copy."""
        if not isinstance(image, np.ndarray) or (order == "BGR" and image.flags.c_contiguous and not (copy and image.flags.writeable)):
            return _veldan.packed(image, order)
        for spare in self._copies:
            if spare.shape == image.shape and sys.getrefcount(spare) == self._OWN_REFERENCES:
                spare.flags.writeable = True
                _veldan.packed(image, order, True, spare)
                spare.flags.writeable = False
                return spare
        fresh = _veldan.packed(image, order, True)
        fresh.flags.writeable = False
        if fresh.nbytes <= self._MOST_BYTES:
            self._copies = [fresh, *self._copies[:self._MOST - 1]]
        return fresh


class Engine:
    """Finds faces, judges them and makes templates.

    Use one for each thread: calls of several threads are safe, but wait for each other. While the library computes,
    other threads of Python go on. An engine frees its memory when it is closed, at the end of a ``with`` block or by
    itself. Pickled, it becomes a fresh one in the other process.

    Images are arrays of shape (height, width, 3) and type uint8 in OpenCV's order (blue, green, red) or, with
    ``order="RGB"``, in everybody else's; views, negative steps and read-only arrays are fine. Sides are 100 to 32766
    pixels.

    Parameters
    ----------
    capacity : int
        Most persons of a gallery that a `Tracker` searches; an engine holds 1200 bytes for each.

    Raises
    ------
    NetworkError
        When an embedded network cannot be loaded.
    """

    def __init__(self, capacity: int = _veldan.DEFAULT_CAPACITY) -> None:
        self._capacity = capacity
        self._instance = _veldan.Instance(capacity)
        self._keeper = FrameKeeper()

    def detect(self, image: Image, order: str = "BGR", copy: bool = True) -> List[Face]:
        """Finds the faces of an image.

        Parameters
        ----------
        image : numpy.ndarray
            Shape (height, width, 3), uint8.
        order : str
            ``"BGR"`` or ``"RGB"``.
        copy : bool
            Faces keep the image for what is judged later. Without a copy they keep the very array, which must not be
            drawn on or filled anew before everything was judged. Read-only arrays are never copied.

        Returns
        -------
        list of Face
            Largest first; empty when there is none.

        Raises
        ------
        ImageError
            When the array is no such image; `ImageTooSmallError` below 100 pixels.
        """
        frame = self._keeper.frame(image, order, copy)
        return [Face(self._instance, frame, record) for record in self._instance.detect(frame)]

    def face_at(self, image: Image, box: Sequence[int], order: str = "BGR", copy: bool = True) -> Face:
        """A face whose box was found elsewhere, with the points that the library finds in it.

        Parameters
        ----------
        image, order, copy
            As of `detect`.
        box : sequence of int
            Left, top, width and height in pixels; a part of it must lie in the image.

        Returns
        -------
        Face
            Its box is the refined one, cut off at the image's border.
        """
        frame = self._keeper.frame(image, order, copy)
        height, width = frame.shape[:2]
        left, top = max(int(box[0]), 0), max(int(box[1]), 0)
        right, bottom = min(int(box[0]) + int(box[2]), width), min(int(box[1]) + int(box[3]), height)
        if right - left < 2 or bottom - top < 2:
            raise ImageError(f"the box {tuple(box)} does not lie in an image of {width} x {height} pixels")
        record = np.zeros(RECORD_WORDS, np.int32)
        record[:4] = left, top, right - left, bottom - top
        self._instance.locate(frame, record)
        # The refined box may leave the image, which the other engines do not take.
        refined = record[:4].copy()
        x, y = min(max(refined[0], 0), width - 1), min(max(refined[1], 0), height - 1)
        record[:4] = x, y, max(min(refined[0] + refined[2], width) - x, 1), max(min(refined[1] + refined[3], height) - y, 1)
        record[249] = int(np.hypot(record[5] - record[6], record[125] - record[126]))
        return Face(self._instance, frame, record)

    def judge(self, faces: Iterable[Face], light: str = "visible") -> List[Face]:
        """Judges quality, mask, liveness, sharpness and frontalness of faces at once.

        Parameters
        ----------
        faces : iterable of Face
            Of this engine or another one.
        light : str
            ``"visible"`` or ``"near_infrared"``: the light of the camera, which decides the liveness network.

        Returns
        -------
        list of Face
            The same faces.
        """
        if light not in _LIGHTS:
            raise ValueError(f"light is {light!r}, neither 'visible' nor 'near_infrared'")
        if self.closed:
            raise ClosedError("judgement: the engine was closed")
        faces = list(faces)
        for face in faces:
            face._engine = self._instance if face._engine is None or face._engine.closed else face._engine
            face._judge("quality")
            face._judge("mask")
            if light == "near_infrared" and "near_infrared" not in face._known:
                self._instance.judge_near_infrared(face._kept_frame("liveness"), face._record)
                face._known.update(liveness=True, near_infrared=True)
            face._judge("liveness")
            face._test("sharp")
            face._test("frontal")
        return faces

    def align(self, face: Face, points: str = "five", size: int = 112) -> Image:
        """The face, upright and scaled, as the recognizers see it.

        Parameters
        ----------
        points : str
            ``"five"``, or ``"two"`` for masked faces.
        size : int
            Side of the crop in pixels. The face keeps its scale, which is made for 112.

        Returns
        -------
        numpy.ndarray
            Shape (size, size, 3), uint8, blue, green, red; black where the image ends.
        """
        if points not in _POINTS:
            raise ValueError(f"points is {points!r}, neither 'five' nor 'two'")
        return _veldan.aligned(face._kept_frame("alignment"), face._record, _POINTS[points], size)

    def template(self, face: Face, kind: str = "bare") -> Template:
        """The template of a face.

        Parameters
        ----------
        kind : str
            ``"bare"``, or ``"masked"`` to be compared with masked faces. Both can be made of any face; a masked one
            is aligned by two points, as its others are covered.

        Raises
        ------
        EngineError
            When what the networks see gives no template.
        """
        if kind not in KINDS:
            raise TemplateError(f"kind is {kind!r}, neither 'bare' nor 'masked'")
        frame = face._kept_frame("extraction")
        enrolment = kind == "masked" and not face.masked
        return Template(self._instance.extract(frame, face._record, KINDS[kind], enrolment))

    def enrolment_quality(self, face: Face) -> int:
        """Quality of a face for enrolment, 0 to 100: 0.8 of its quality when it is blurred."""
        return self._instance.enrolment_quality(face._kept_frame("quality"), face._record)

    @property
    def closed(self) -> bool:
        """Whether `close` was called."""
        return self._instance.closed

    def close(self) -> None:
        """Frees the networks; waits for a call that another thread has begun. May be called again."""
        self._instance.close()

    def __enter__(self) -> "Engine":
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException],
                 trace: Optional[TracebackType]) -> None:
        self.close()

    def __reduce__(self) -> Tuple[object, ...]:
        return Engine, (self._capacity,)

    def __repr__(self) -> str:
        return f"<veldan.Engine{' closed' if self.closed else ''}>"
