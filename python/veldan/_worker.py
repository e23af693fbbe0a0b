"""What a worker process of `scan` and of `distributed` does with a photo."""

import dataclasses
import signal
import threading
from multiprocessing import connection
from typing import Any, Union

from ._native import _veldan
from .batch import ScanResult
from .engine import Engine
from .errors import Error
from .face import Face
from .pictures import decode, read_bytes


_of_thread = threading.local()


def _engine() -> Engine:
    engine: Engine
    if not hasattr(_of_thread, "engine"):
        _veldan.set_opencv_threads(1)  # one process for each core is faster
        _of_thread.engine = Engine(0)
    engine = _of_thread.engine
    return engine


def _kind(face: Face, templates: Union[bool, str]) -> str:
    if isinstance(templates, str):
        return templates
    return "masked" if face.masked else "bare"


def examine(photo: Any, judge: bool, templates: Union[bool, str]) -> ScanResult:
    """Everything about a photo; what is wrong with it is the result's error."""
    try:
        engine = _engine()
        image, flaw = decode(read_bytes(photo), photo)
        image.flags.writeable = False  # it is ours, so faces need no copy
        faces = engine.detect(image)
        if judge:
            engine.judge(faces)
        made = [engine.template(face, _kind(face, templates)) for face in faces] if templates else []
        return ScanResult(photo, image.shape[1], image.shape[0], faces, made, flaw)
    except Error as error:
        return ScanResult(photo, error=error)
    except Exception as error:  # whatever an object of somebody else's raises when it is read
        return ScanResult(photo, error=Error(f"{type(error).__name__}: {error}"))


def serve(descriptor: int) -> None:
    """Works on photos until the other side of the connection is closed."""
    _veldan.mute_foreign_noise()
    signal.signal(signal.SIGINT, signal.SIG_IGN)  # the parent ends its workers
    with connection.Connection(descriptor) as parent:
        while True:
            try:
                photo, options = parent.recv()
            except EOFError:
                return
            # The other side knows the photo; an object that was read may not be carried back.
            parent.send(dataclasses.replace(examine(photo, **options), photo=None))
