"""Faces, with judgements that are made when they are first asked for."""

from typing import Any, Dict, NamedTuple, Optional, Sequence

import numpy as np
import numpy.typing as npt

from ._native import _veldan
from .errors import NotJudgedError

# Words of the record: box, points and scores.
_X = 0
_POINTS_X, _POINTS_Y = 5, 125
_QUALITY, _EYE_DISTANCE, _LIVENESS = 248, 249, 250
_TRACK_ID, _SEARCH_FLAG, _SEARCH_ID, _SEARCH_SCORE, _MASK_SCORE, _STRANGER_FLAG = 252, 254, 255, 256, 257, 258
RECORD_WORDS = 262

# Properties and the judgement that they come from.
_NEEDS = {"mask_score": "mask", "masked": "mask", "live": "liveness"}


class Box(NamedTuple):
    """A face's box in pixels of its image."""

    x: int
    y: int
    width: int
    height: int

    @property
    def right(self) -> int:
        """First column to the right of the box."""
        return self.x + self.width

    @property
    def bottom(self) -> int:
        """First row below the box."""
        return self.y + self.height


class Face:
    """A face that an `Engine` found.

    Box, points and eye distance are there from the beginning; everything else is judged by the engine that found the
    face when it is first asked for, in the frame that the face keeps. `Engine.judge` judges many at once.

    A face that is pickled leaves engine and frame behind and takes along what was judged before.
    """

    __slots__ = ("_engine", "_frame", "_record", "_known")

    def __init__(self, engine: Any, frame: "Optional[npt.NDArray[np.uint8]]", record: "npt.NDArray[np.int32]",
                 known: "Optional[Dict[str, bool]]" = None) -> None:
        self._engine = engine
        self._frame = frame
        self._record = record
        self._known: Dict[str, bool] = known or {}

    @property
    def box(self) -> Box:
        """Left, top, width and height in pixels."""
        return Box(*self._record[_X:_X + 4].tolist())

    @property
    def points(self) -> "npt.NDArray[np.int32]":
        """Shape (5, 2), x and y in pixels: the eye on the image's left, the one on its right, the nose, the mouth
        corner on the left, the one on the right."""
        return self._points(0, 5)

    @property
    def mask_points(self) -> "npt.NDArray[np.int32]":
        """Shape (2, 2), pixels: the corners of the aligned crop, which align masked faces; may lie outside."""
        return self._points(5, 2)

    @property
    def eye_distance(self) -> int:
        """Distance of the eyes in whole pixels."""
        return int(self._record[_EYE_DISTANCE])

    @property
    def quality(self) -> int:
        """0 to 100, higher is better; `ENROLMENT_QUALITY` serves for enrolment."""
        self._judge("quality")
        return int(self._record[_QUALITY])

    @property
    def mask_score(self) -> int:
        """0 to 100: how sure it is that a mask is worn."""
        self._judge("mask")
        return int(self._record[_MASK_SCORE])

    @property
    def masked(self) -> bool:
        """Whether a mask is worn: a score of `MASKED` and more."""
        return self.mask_score >= _veldan.MASKED

    @property
    def liveness(self) -> int:
        """0 to 100: whether a person was before the camera and not a picture of one. Weak evidence in one frame."""
        self._judge("liveness")
        return int(self._record[_LIVENESS])

    @property
    def live(self) -> bool:
        """A liveness of `LIVE` and more."""
        return self.liveness >= _veldan.LIVE

    @property
    def sharp(self) -> bool:
        """Whether the face's edges are crisp."""
        return self._test("sharp")

    @property
    def frontal(self) -> bool:
        """Whether the face looks at the camera, as its points lie."""
        return self._test("frontal")

    def knows(self, what: str) -> bool:
        """Whether one of the properties can be read without a frame."""
        return _NEEDS.get(what, what) in self._known or what in ("box", "points", "mask_points", "eye_distance", "frontal")

    @property
    def frame(self) -> "Optional[npt.NDArray[np.uint8]]":
        """The image that it was found in, shape (height, width, 3), blue, green, red; None after pickling."""
        return self._frame

    @property
    def record(self) -> "npt.NDArray[np.int32]":
        """A copy of the library's record of 262 words (``veldan/face_record.h``)."""
        return self._record.copy()

    def _points(self, first: int, count: int) -> "npt.NDArray[np.int32]":
        return np.stack([self._record[_POINTS_X + first:_POINTS_X + first + count],
                         self._record[_POINTS_Y + first:_POINTS_Y + first + count]], axis=1)

    def _judge(self, what: str) -> None:
        if what in self._known:
            return
        if what == "liveness":
            self._judge("mask")  # liveness chooses its points by the mask
        getattr(self._engine, "judge_" + what)(self._kept_frame(what), self._record)
        self._known[what] = True

    def _test(self, what: str) -> bool:
        if what not in self._known:
            if what == "sharp":
                self._known[what] = _veldan.sharp(self._kept_frame(what), self._record)
            else:
                self._known[what] = _veldan.frontal(self._record)
        return self._known[what]

    def _kept_frame(self, what: str) -> "npt.NDArray[np.uint8]":
        if self._engine is None or self._frame is None:
            raise NotJudgedError(f"{what}: the face has left its process and its frame; judge it before")
        return self._frame

    def __getstate__(self) -> Dict[str, Any]:
        return {"record": self._record, "known": self._known}

    def __setstate__(self, state: Dict[str, Any]) -> None:
        self._engine = None
        self._frame = None
        self._record = state["record"]
        self._known = state["known"]

    def __repr__(self) -> str:
        box = self.box
        return f"<veldan.{type(self).__name__} ({box.x}, {box.y}) {box.width} x {box.height}>"


class TrackedFace(Face):
    """A face of a video. Quality is judged; mask and liveness are what its tracker found of the identity, or of this
    frame alone when the tracker has judged neither."""

    __slots__ = ("_name",)

    def __init__(self, engine: Any, frame: "Optional[npt.NDArray[np.uint8]]", record: "npt.NDArray[np.int32]",
                 names: Sequence[str]) -> None:
        known = {"quality": True}
        for what, word in (("mask", _MASK_SCORE), ("liveness", _LIVENESS)):
            if record[word] >= 0:
                known[what] = True
        super().__init__(engine, frame, record, known)
        recognised = record[_SEARCH_FLAG] > 0 and 0 <= record[_SEARCH_ID] < len(names)
        self._name = names[record[_SEARCH_ID]] if recognised else None

    @property
    def track_id(self) -> int:
        """The identity, which stays from frame to frame and is never given to another face."""
        return int(self._record[_TRACK_ID])

    @property
    def name(self) -> Optional[str]:
        """Who it is, once `Tracker.search` has recognised the identity."""
        return self._name

    @property
    def similarity(self) -> float:
        """Similarity that the last decision about the identity was made with, in hundredths; 0 before."""
        return int(self._record[_SEARCH_SCORE]) / 100

    @property
    def unknown(self) -> bool:
        """Whether the identity was declared unknown; it is searched on and may be recognised later."""
        return self._name is None and int(self._record[_STRANGER_FLAG]) > 0

    def __getstate__(self) -> Dict[str, Any]:
        return {**super().__getstate__(), "name": self._name}

    def __setstate__(self, state: Dict[str, Any]) -> None:
        super().__setstate__(state)
        self._name = state["name"]
