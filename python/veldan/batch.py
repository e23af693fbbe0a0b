"""Many photos at a time, in processes of their own."""

import dataclasses
import os
import socket
import subprocess
import sys
from collections import deque
from multiprocessing import connection
from typing import Any, Callable, Deque, Dict, Iterable, Iterator, List, Optional, Set, Sized, Tuple, Union

from .errors import Error, WorkerError
from .face import Face
from .template import Template

Progress = Callable[[int, Optional[int]], None]

# -P: the folder that the program was started in must not hide the package.
_START = "import sys; sys.path[:] = sys.argv[2:]; from veldan import _worker; _worker.serve(int(sys.argv[1]))"


@dataclasses.dataclass(frozen=True)
class ScanResult:
    """What was found in one photo.

    Attributes
    ----------
    photo
        What was handed in for it.
    width, height : int
        Pixels of the upright photo; 0 when it could not be read.
    faces : list of Face
        Largest first, judged, without their frame.
    templates : list of Template
        Of the faces, where they were asked for.
    flaw : str
        ``"truncated"`` or ``"damaged"`` when only a part of the photo could be read.
    error : Error or None
        Why there is nothing.
    """

    photo: Any
    width: int = 0
    height: int = 0
    faces: List[Face] = dataclasses.field(default_factory=list)
    templates: List[Template] = dataclasses.field(default_factory=list)
    flaw: str = ""
    error: Optional[Error] = None


def scan(photos: Iterable[Any], jobs: Optional[int] = None, judge: bool = True, templates: Union[bool, str] = False,
         progress: Optional[Progress] = None) -> Iterator[ScanResult]:
    """Finds and judges the faces of many photos.

    Parameters
    ----------
    photos : iterable
        Paths, or whatever else `read_image` takes and pickle carries; taken as they are needed.
    jobs : int, optional
        Worker processes; as many as there are processors unless given.
    judge : bool
        Whether faces are judged; box, points and eye distance are always there.
    templates : bool or str
        Whether templates are made: True for the kind that fits each face, masked or not; ``"bare"`` or ``"masked"`` for
        one kind.
    progress : callable, optional
        Called as ``progress(done, total)`` after each photo; total is None when `photos` has no length.

    Yields
    ------
    ScanResult
        In the order of the photos. What is wrong with one photo is its `ScanResult.error`: `PhotoError`,
        `ImageTooSmallError`, or `WorkerError` when its worker died twice over it. The run goes on.
    """
    if jobs is None:
        jobs = len(os.sched_getaffinity(0))
    if jobs < 1:
        raise ValueError(f"jobs is {jobs}, at least 1 is needed")
    total = len(photos) if isinstance(photos, Sized) else None
    return _run(iter(photos), jobs, {"judge": judge, "templates": templates}, total, progress)


def _run(photos: Iterator[Any], jobs: int, options: Dict[str, Any], total: Optional[int],
         progress: Optional[Progress]) -> Iterator[ScanResult]:
    # So many photos may be ahead of the one that is waited for.
    most_ahead = 8 * jobs
    workers: List[_Worker] = []
    again: Deque[Tuple[int, Any]] = deque()
    tried: Set[int] = set()
    finished: Dict[int, ScanResult] = {}
    yielded = taken = 0
    exhausted = False
    try:
        while True:
            for worker in [*workers, *[None] * (jobs - len(workers))]:
                if worker is not None and worker.task is not None:
                    continue
                if again:
                    task = again.popleft()
                elif not exhausted and taken < yielded + most_ahead:
                    try:
                        task = (taken, next(photos))
                    except StopIteration:
                        exhausted = True
                        break
                    taken += 1
                else:
                    break
                if worker is None:
                    worker = _Worker(options)
                    workers.append(worker)
                try:
                    worker.give(task)
                except Exception as error:  # pickle's are of many types
                    finished[task[0]] = ScanResult(task[1], error=Error(f"it cannot be handed to a process: {error}"))
            busy: Dict[Any, _Worker] = {worker.connection: worker for worker in workers if worker.task is not None}
            for ready in connection.wait(list(busy)) if busy else []:
                worker = busy[ready]
                index, photo = worker.task or (0, None)
                result = worker.take()
                if result is None:
                    workers.remove(worker)
                    if index in tried:
                        result = ScanResult(photo, error=WorkerError(f"the process that worked on it {worker.end()}"))
                    else:
                        worker.end()
                        tried.add(index)
                        again.append((index, photo))
                        continue
                finished[index] = dataclasses.replace(result, photo=photo)
            while yielded in finished:
                yielded += 1
                if progress is not None:
                    progress(yielded, total)
                yield finished.pop(yielded - 1)
            if exhausted and yielded == taken:
                return
    finally:
        for worker in workers:
            worker.end()


class _Worker:
    """A process that works on one photo at a time. It ends when its connection does, so also when we are killed."""

    def __init__(self, options: Dict[str, Any]) -> None:
        ours, theirs = socket.socketpair()
        with theirs:
            paths = [os.path.abspath(path) for path in sys.path]
            self._process = subprocess.Popen([sys.executable, "-P", "-c", _START, str(theirs.fileno()), *paths],
                                             pass_fds=[theirs.fileno()], stdin=subprocess.DEVNULL)
        self.connection = connection.Connection(ours.detach())
        self.task: Optional[Tuple[int, Any]] = None
        self._options = options

    def give(self, task: Tuple[int, Any]) -> None:
        try:
            self.connection.send((task[1], self._options))
        except OSError:
            pass  # it has died; take() finds out
        self.task = task

    def take(self) -> Optional[ScanResult]:
        """The result; None when the process has died."""
        try:
            result: ScanResult = self.connection.recv()
        except (EOFError, OSError):
            return None
        self.task = None
        return result

    def end(self) -> str:
        self.connection.close()
        if self.task is not None:
            self._process.terminate()
        code = self._process.wait()
        return f"was ended by signal {-code}" if code < 0 else f"ended with code {code}"
