"""Tight crops of live people and attacks become what the engine would see of them."""
from types import SimpleNamespace

import cv2
import numpy as np
import pytest

from conftest import ROOT
from veldan_training import faces, replays, train_liveness


@pytest.fixture
def packs(tmp_path, monkeypatch):
    crop = cv2.imread(str(ROOT / "examples/photos/astronaut.jpg"))[48:184, 172:280]
    for source in ("attack_x", "attack_y"):
        (tmp_path / source).mkdir()
        for name, picture in (("up", crop), ("side", np.rot90(crop)), ("out", crop), ("none", np.full_like(crop, 90))):
            cv2.imwrite(str(tmp_path / source / f"{name}.png"), picture)
        rows = [f"{name}.png,{'real' if name == 'up' else 'fake'}/1.png,{'live' if name == 'up' else 'attack'},fold"
                for name in ("up", "side", "out", "none")]
        (tmp_path / f"{source}.csv").write_text("\n".join(["file,source,class,split", *rows]) + "\n")
    review = tmp_path / "review.csv"
    review.write_text("file,source,turn,reason\nside.png,attack_x,90,sideways\nout.png,attack_x,,wrong\n")
    monkeypatch.setattr(replays, "REVIEW", str(review))
    return SimpleNamespace(data=str(tmp_path / "nothing"), more=str(tmp_path), networks=str(ROOT / "models"))


def test_sources_are_read_as_reviewed(packs):
    found = replays.load(packs)
    assert [(r.source, r.live) for r in found] == [("attack_x", True), ("attack_x", False), ("attack_y", True), ("attack_y", False)]
    up, turned = found[:2]
    np.testing.assert_array_equal(up.crop, turned.crop)
    # What is kept shows the same as the crop, and says which part of it is drawn.
    again = cv2.warpAffine(up.image, faces.similarity(up.points, faces.TEMPLATE), (faces.CROP, faces.CROP))
    assert np.abs(again[20:100, 30:80].astype(int) - up.crop[20:100, 30:80]).mean() < 9
    assert up.inside[up.inside.shape[0] // 2, up.inside.shape[1] // 2] and not up.inside.all()


def test_crops_of_a_source_that_is_left_out_are_kept_for_other_runs(tmp_path, monkeypatch):
    made = np.arange(4, dtype=np.uint8)[:, None, None, None] + np.zeros((4, 3, 2, 2), np.uint8)
    prepared = iter([(made, np.array([0, 1, 1, 0]), np.array(["attack_x", "drawn", "attack_y", "attack_x"]))])
    monkeypatch.setattr(train_liveness, "_prepared", lambda args: next(prepared))
    for leave_out, kept in (["attack_x"], [1, 2]), ([], [0, 1, 2, 3]):
        crops, live = train_liveness.prepare(SimpleNamespace(work=str(tmp_path / "work"), leave_out=leave_out))
        assert crops[:, 0, 0, 0].tolist() == kept and live.tolist() == [[0, 1, 1, 0][k] for k in kept]


def test_only_surroundings_change_without_a_camera(packs):
    up = replays.load(packs)[0]
    rng = np.random.default_rng(1)
    cuts = [replays.cut(rng, up.image, up.points, up.unit, 0.0, up.inside, [up]) for _ in range(12)]
    changes = np.stack([np.abs(c.astype(int) - up.crop).mean(2) for c in cuts])
    face, beside = changes[:, 45:75, 45:68].mean((1, 2)), changes[:, 45:75, :6].mean((1, 2))
    assert np.median(face) < 12 and (beside > 20).sum() > 3
