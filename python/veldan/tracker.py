"""Faces of a video, followed from frame to frame."""

import math
from typing import Iterable, Iterator, List, Optional, Tuple

import numpy as np
import numpy.typing as npt

from ._native import _veldan
from .engine import Engine, FrameKeeper, Image
from .errors import ImageError
from .face import TrackedFace
from .gallery import Gallery


class Tracker:
    """Follows the faces of one video.

    Parameters
    ----------
    engine : Engine
        Any number of trackers may share it, in one thread.
    """

    def __init__(self, engine: Engine) -> None:
        self._instance = engine._instance
        self._tracker = _veldan.Tracker(self._instance)
        self._keeper = FrameKeeper()
        self._frame: Optional[Image] = None
        self._faces: List[TrackedFace] = []
        self._snapshot: Optional[_veldan.SearchableGallery] = None
        self._names: List[str] = []

    @property
    def faces(self) -> List[TrackedFace]:
        """The faces of the last frame."""
        return list(self._faces)

    def next(self, image: Image, order: str = "BGR", copy: bool = True) -> List[TrackedFace]:
        """Faces of the next frame.

        Parameters
        ----------
        image, order, copy
            As of `Engine.detect`.

        Returns
        -------
        list of TrackedFace
            Largest first, at most 100.
        """
        frame = self._keeper.frame(image, order, copy)
        records = self._tracker.next(frame)
        self._frame = frame
        return self._take(records)

    def judge(self, light: str = "visible") -> List[TrackedFace]:
        """Judges mask and liveness in the last frame. Liveness becomes the median over the latest 31 judged frames of
        each identity, which is far better evidence than one frame.

        Parameters
        ----------
        light : str
            ``"visible"`` or ``"near_infrared"``.
        """
        if light not in ("visible", "near_infrared"):
            raise ValueError(f"light is {light!r}, neither 'visible' nor 'near_infrared'")
        return self._take(self._tracker.judge(self._last_frame(), light == "near_infrared"))

    def search(self, gallery: Gallery, threshold: float = _veldan.SAME_PERSON / 100,
               mask_threshold: float = _veldan.SAME_PERSON_MASKED / 100,
               quality: int = _veldan.TRACKED_QUALITY) -> List[TrackedFace]:
        """Searches the faces of the last frame that are not recognised yet; evidence adds up over frames.

        Parameters
        ----------
        gallery : Gallery
            The same one for the whole video; what is enrolled meanwhile is seen by the next tracker.
        threshold, mask_threshold : float
            Similarity that three frames of a face must reach in the mean, 0 to 1; rounded up to hundredths.
        quality : int
            Quality, 0 to 100, from which a face is searched; half of it serves for masked ones.

        Returns
        -------
        list of TrackedFace
            With `TrackedFace.name` and `TrackedFace.unknown`.
        """
        if self._snapshot is None:
            self._snapshot = gallery._searchable()
            self._names = self._snapshot.names
        bare, masked = (min(max(math.ceil(round(one * 100, 4)), 0), 101) for one in (threshold, mask_threshold))
        return self._take(self._tracker.search(self._last_frame(), self._snapshot, bare, masked, quality))

    def follow(self, frames: Iterable[Image], order: str = "BGR") -> Iterator[Tuple[Image, List[TrackedFace]]]:
        """Goes through a video.

        Parameters
        ----------
        frames : iterable of numpy.ndarray
            The frames, from anywhere.

        Yields
        ------
        frame, faces
            The caller's array and the faces in it.
        """
        for frame in frames:
            yield frame, self.next(frame, order)

    def _last_frame(self) -> Image:
        if self._frame is None:
            raise ImageError("there was no frame yet")
        return self._frame

    def _take(self, records: "npt.NDArray[np.int32]") -> List[TrackedFace]:
        self._faces = [TrackedFace(self._instance, self._frame, record, self._names) for record in records]
        return self.faces
