"""Judgements and templates of very many photos over a Dask cluster (Debian: python3-distributed).

Results are files in one folder, a partition of the photos each, which are complete or not there. Whatever happens to
workers or to the program, what is in the folder stays; running the same call again does the rest.
"""

import base64
import csv
import hashlib
import io
import json
import os
import pathlib
import uuid
from typing import Any, Callable, Dict, Iterable, Iterator, List, NamedTuple, Optional, Sequence, Union

import distributed
import numpy as np

from . import _worker
from ._native import KINDS, _veldan, network_digest
from .batch import ScanResult
from .errors import Error, WorkerError
from .template import Template

FORMATS = ("npz", "csv")
_MANIFEST = "manifest.json"
_SCORES = ("eye_distance", "quality", "mask_score", "liveness", "sharp", "frontal")


class Summary(NamedTuple):
    """What a run has done.

    Attributes
    ----------
    partitions : int
        All of them; each is a file.
    made : int
        Partitions that this run has made; the others were there.
    photos, faces, errors : int
        In the partitions that this run has made.
    """

    partitions: int
    made: int
    photos: int
    faces: int
    errors: int


def process(photos: Iterable[Any], out: Union[str, "os.PathLike[str]"], client: "Optional[distributed.Client]" = None,
            partition: int = 500, format: str = "npz", judge: bool = True, templates: Union[bool, str] = True,
            progress: Optional[Callable[[int, int], None]] = None) -> Summary:
    """Examines photos on a cluster.

    Parameters
    ----------
    photos : iterable
        Paths as the workers see them, or objects with ``open()``, such as those of `fsspec.open_files`, for photos in
        other places.
    out : path
        Folder for the results, on a file system that all workers share; one run at a time.
    client : distributed.Client, optional
        The cluster. Without one, a local cluster with a worker for each processor serves for this call; a script must then
        begin below ``if __name__ == "__main__":``.
    partition : int
        Photos of a file. A worker that dies loses the partition that it had in hand; another one makes it anew.
    format : str
        ``"npz"`` or ``"csv"``.
    judge : bool
        Whether faces are judged.
    templates : bool or str
        As of `scan`.
    progress : callable, optional
        Called as ``progress(done, total)`` with numbers of partitions.

    Returns
    -------
    Summary

    Raises
    ------
    Error
        When the folder holds the results of other photos or options.
    WorkerError
        When partitions could not be made because their workers died again and again. All others are there.
    """
    if format not in FORMATS:
        raise ValueError(f"format is {format!r}, none of {', '.join(FORMATS)}")
    if partition < 1:
        raise ValueError(f"a partition of {partition} photos makes no sense")
    photos = list(photos)
    folder = pathlib.Path(out).absolute()
    folder.mkdir(parents=True, exist_ok=True)
    for left_over in folder.glob(".part-*"):
        left_over.unlink()
    options = {"judge": judge, "templates": templates}
    _claim(folder, {"photos": len(photos), "digest": _digest(photos), "partition": partition, "format": format,
                    **options, "networks": {kind: network_digest(kind) for kind in KINDS}})
    parts = {folder / f"part-{number:06}.{format}": photos[first:first + partition]
             for number, first in enumerate(range(0, len(photos), partition))}
    missing = {path: part for path, part in parts.items() if not path.exists()}
    counts = np.zeros(3, int)
    if missing:
        if client is None:
            with distributed.LocalCluster(n_workers=len(os.sched_getaffinity(0)), threads_per_worker=1,
                                          dashboard_address=None) as cluster, distributed.Client(cluster) as own:
                counts = _run(own, missing, options, len(parts), progress)
        else:
            counts = _run(client, missing, options, len(parts), progress)
    return Summary(len(parts), len(missing), *map(int, counts))


def partitions(out: Union[str, "os.PathLike[str]"]) -> List[pathlib.Path]:
    """The files of a folder of results, in the order of the photos."""
    return sorted(path for path in pathlib.Path(out).glob("part-*") if path.suffix[1:] in FORMATS)


def rows(out: Union[str, "os.PathLike[str]"]) -> Iterator[Dict[str, Any]]:
    """All results, in the order of the photos.

    Yields
    ------
    dict
        One for each face, and one for each photo without: ``photo``, ``width``, ``height``, ``error`` (empty when all went
        well), ``face`` (0 for the largest one, -1 when there is none), ``box`` (4 numbers), ``points`` (7 x 2), ``eye_distance``,
        ``quality``, ``mask_score``, ``liveness``, ``sharp``, ``frontal`` (-1 when not judged), ``template`` (`Template` or None).
    """
    for path in partitions(out):
        yield from (_read_npz if path.suffix == ".npz" else _read_csv)(path)


def _digest(photos: Sequence[Any]) -> str:
    digest = hashlib.sha256()
    for photo in photos:
        digest.update(_name(photo).encode(errors="surrogateescape") + b"\0")
    return digest.hexdigest()


def _name(photo: Any) -> str:
    return os.fsdecode(photo) if isinstance(photo, (str, bytes, os.PathLike)) else str(getattr(photo, "path", photo))


def _claim(folder: pathlib.Path, manifest: Dict[str, Any]) -> None:
    """Makes the folder one of this run's, which has to be what an earlier run was."""
    path = folder / _MANIFEST
    if not path.exists():
        if partitions(folder):
            raise Error(f"{folder} holds partitions of no known run")
        _publish(path, json.dumps(manifest, indent=2).encode())
    before = json.loads(path.read_text())
    different = [name for name in manifest if before.get(name) != manifest[name]]
    if different:
        raise Error(f"{folder} holds the results of another run, with another {', '.join(different)}")


def _publish(path: pathlib.Path, content: bytes) -> None:
    """Writes a file that appears under its name once all of it is on the disk."""
    scratch = path.with_name(f".{path.name}.{uuid.uuid4().hex}")
    with open(scratch, "wb") as file:
        file.write(content)
        file.flush()
        os.fsync(file.fileno())
    os.replace(scratch, path)


def _run(client: "distributed.Client", missing: Dict[pathlib.Path, List[Any]], options: Dict[str, Any], total: int,
         progress: Optional[Callable[[int, int], None]]) -> Any:
    futures = {client.submit(_make, str(path), part, options, key=f"veldan-{uuid.uuid4().hex}", pure=False): path
               for path, part in missing.items()}
    counts, failures = np.zeros(3, int), {}
    done = total - len(missing)
    for future in distributed.as_completed(futures):
        path = futures[future]
        if future.status == "finished":
            counts += future.result()
        else:
            failures[path] = future.exception()
        future.release()
        done += 1
        if progress is not None:
            progress(done, total)
    if failures:
        path, reason = next(iter(failures.items()))
        raise WorkerError(f"{len(failures)} of {total} partitions were not made; {path.name}: {type(reason).__name__}: {reason}")
    return counts


def _make(path: str, photos: Sequence[Any], options: Dict[str, Any]) -> Any:
    """Runs on a worker. @return numbers of photos, faces and errors"""
    target = pathlib.Path(path)
    results = [_worker.examine(photo, **options) for photo in photos]
    table = [row for photo, result in zip(photos, results) for row in _table(_name(photo), result)]
    _publish(target, (_npz if target.suffix == ".npz" else _csv)(table))
    return np.array([len(photos), sum(len(result.faces) for result in results),
                     sum(result.error is not None for result in results)])


def _table(name: str, result: ScanResult) -> List[Dict[str, Any]]:
    common = {"photo": name, "width": result.width, "height": result.height,
              "error": "" if result.error is None else f"{type(result.error).__name__}: {result.error}"}
    if not result.faces:
        return [{**common, "face": -1, "box": np.zeros(4, int), "points": np.zeros((7, 2), int),
                 **{score: -1 for score in _SCORES}, "template": b""}]
    table = []
    for index, face in enumerate(result.faces):
        known = {score: int(getattr(face, score)) if face.knows(score) else -1 for score in _SCORES}
        table.append({**common, "face": index, "box": np.array(face.box), "points": np.concatenate([face.points, face.mask_points]),
                      **known, "template": bytes(result.templates[index]) if result.templates else b""})
    return table


def _npz(table: List[Dict[str, Any]]) -> bytes:
    columns = {name: np.array([row[name] for row in table]) for name in table[0] if name != "template"}
    columns["template"] = np.array([np.frombuffer(row["template"] or bytes(_veldan.TEMPLATE_BYTES), np.uint8) for row in table])
    content = io.BytesIO()
    np.savez_compressed(content, **columns)
    return content.getvalue()


def _read_npz(path: pathlib.Path) -> Iterator[Dict[str, Any]]:
    with np.load(path, allow_pickle=False) as file:
        columns = {name: file[name] for name in file.files}
    for index in range(len(columns["photo"])):
        row = {name: column[index] for name, column in columns.items()}
        template = row["template"].tobytes()
        yield {**{name: value.item() if value.ndim == 0 else value for name, value in row.items()},
               "template": Template(template) if any(template) else None}


def _csv(table: List[Dict[str, Any]]) -> bytes:
    text = io.StringIO()
    lines = csv.writer(text, lineterminator="\n")
    lines.writerow([title for name in table[0] for title in _titles(name)])
    for row in table:
        lines.writerow([value for name in row for value in _fields(row[name])])
    return text.getvalue().encode(errors="surrogateescape")


def _titles(name: str) -> List[str]:
    if name == "box":
        return ["x", "y", "box_width", "box_height"]
    return [f"{axis}{k}" for k in range(7) for axis in ("px", "py")] if name == "points" else [name]


def _fields(value: Any) -> List[Any]:
    if isinstance(value, np.ndarray):
        return value.ravel().tolist()
    return [base64.b64encode(value).decode() if isinstance(value, bytes) else value]


def _read_csv(path: pathlib.Path) -> Iterator[Dict[str, Any]]:
    with open(path, newline="", errors="surrogateescape") as file:
        for fields in csv.DictReader(file):
            numbers = {name: int(fields[name]) for name in ("width", "height", "face", *_SCORES)}
            template = base64.b64decode(fields["template"])
            yield {"photo": fields["photo"], "error": fields["error"], **numbers,
                   "box": np.array([int(fields[title]) for title in _titles("box")]),
                   "points": np.array([int(fields[title]) for title in _titles("points")]).reshape(7, 2),
                   "template": Template(template) if template else None}
