"""Work on a cluster: partitions complete or absent, resumed, and a worker that is killed loses only its own."""

import os
import signal

import pytest
from conftest import PHOTOS

import veldan

distributed = pytest.importorskip("distributed")
pytest.importorskip("veldan.distributed")
pytestmark = [pytest.mark.slow, pytest.mark.filterwarnings("ignore")]

PATHS = sorted(PHOTOS.iterdir())


@pytest.fixture(scope="module")
def client():
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, dashboard_address=None) as cluster:
        with distributed.Client(cluster) as one:
            yield one


def plain(rows):
    return [{name: value.tolist() if hasattr(value, "tolist") else value for name, value in row.items()} for row in rows]


def expected(paths):
    table = []
    for result in veldan.scan(paths, jobs=2, templates=True):
        for index, face in enumerate(result.faces):
            table.append({"photo": str(result.photo), "width": result.width, "height": result.height, "error": "", "face": index,
                          "box": list(face.box), "points": face.points.tolist() + face.mask_points.tolist(),
                          "eye_distance": face.eye_distance, "quality": face.quality, "mask_score": face.mask_score,
                          "liveness": face.liveness, "sharp": face.sharp, "frontal": face.frontal, "template": result.templates[index]})
        if not result.faces:
            table.append({"photo": str(result.photo), "error": f"{type(result.error).__name__}: {result.error}"})
    return table


@pytest.mark.parametrize("format", ["npz", "csv"])
def test_results_are_those_of_one_process(client, tmp_path, format):
    summary = veldan.distributed.process(PATHS, tmp_path, client, partition=4, format=format)
    faces = sum("face" in row for row in expected(PATHS))
    assert summary == (3, 3, len(PATHS), faces, 1)
    rows = plain(veldan.distributed.rows(tmp_path))
    assert [row if row["face"] >= 0 else {name: row[name] for name in ("photo", "error")} for row in rows] == expected(PATHS)
    assert sorted(path.name for path in tmp_path.iterdir()) == ["manifest.json"] + [f"part-{n:06}.{format}" for n in range(3)]


def test_a_run_goes_on_where_it_was_left(client, tmp_path):
    veldan.distributed.process(PATHS, tmp_path, client, partition=4)
    first, second, _ = veldan.distributed.partitions(tmp_path)
    before = first.stat().st_mtime_ns, plain(veldan.distributed.rows(tmp_path))
    second.unlink()
    (tmp_path / ".part-000001.npz.left-over").write_bytes(b"half")
    told = []
    summary = veldan.distributed.process(PATHS, tmp_path, client, partition=4, progress=lambda *numbers: told.append(numbers))
    assert summary[:3] == (3, 1, 4) and told == [(3, 3)]
    assert (first.stat().st_mtime_ns, plain(veldan.distributed.rows(tmp_path))) == before
    assert not list(tmp_path.glob(".*"))
    assert veldan.distributed.process(PATHS, tmp_path, client, partition=4) == (3, 0, 0, 0, 0)
    for photos, options in ((PATHS[1:], {"partition": 4}), (PATHS, {"partition": 5}), (PATHS, {"partition": 4, "judge": False})):
        with pytest.raises(veldan.Error, match="another run"):
            veldan.distributed.process(photos, tmp_path, client, **options)


def test_a_killed_worker_loses_only_what_it_had_in_hand(client, tmp_path):
    photos = PATHS * 12
    victim = next(iter(client.run(os.getpid).values()))
    made = {}

    def progress(done, total):
        made[done] = {path: path.stat().st_mtime_ns for path in veldan.distributed.partitions(tmp_path)}
        if done == 3:
            os.kill(victim, signal.SIGKILL)

    summary = veldan.distributed.process(photos, tmp_path, client, partition=6, progress=progress)
    assert summary[:3] == (22, 22, len(photos)) and summary.errors == 12
    after = {path: path.stat().st_mtime_ns for path in veldan.distributed.partitions(tmp_path)}
    assert all(after[path] == when for path, when in made[3].items())
    rows = list(veldan.distributed.rows(tmp_path))
    assert [row["photo"] for row in rows if row["face"] <= 0] == [str(path) for path in photos]
    assert victim not in client.run(os.getpid).values()


def test_objects_with_open_serve_as_photos(client, tmp_path):
    import fsspec
    files = fsspec.open_files([f"file://{path}" for path in PATHS[:3]], "rb")
    assert veldan.distributed.process(files, tmp_path, client, judge=False, templates=False).faces > 0
    rows = list(veldan.distributed.rows(tmp_path))
    assert rows[-1]["photo"] == str(PATHS[2]) and rows[-1]["quality"] == -1 and rows[-1]["template"] is None
