"""Faces of videos. The identities themselves are the library's; here, that they reach Python with the right frame."""

import numpy as np
import pytest
from conftest import pixels

import veldan


def video():
    photo = pixels("rows.webp")
    return [np.ascontiguousarray(np.roll(photo, 2 * step, axis=1)) for step in range(5)]


def test_identities_stay_with_faces_and_frames_come_from_anywhere(engine):
    seen = []
    tracker = veldan.Tracker(engine)
    for frame, faces in tracker.follow(iter(video())):
        detected = engine.detect(frame)
        assert [face.box for face in faces] == [face.box for face in detected]
        assert [face.quality for face in faces] == [face.quality for face in detected]
        seen.append([face.track_id for face in faces])
        assert len(set(seen[-1])) == len(seen[-1])
    assert len(seen[0]) >= 3 and all(ids[:2] == seen[0][:2] for ids in seen)


def test_liveness_is_the_median_of_the_frames(engine):
    tracker, alone = veldan.Tracker(engine), {}
    for frame, faces in tracker.follow(video()):
        for face in faces:
            alone.setdefault(face.track_id, []).append(engine.judge(engine.detect(frame))[faces.index(face)].liveness)
        judged = tracker.judge()
        for face in judged:
            scores = sorted(alone[face.track_id])
            assert face.liveness == scores[(len(scores) - 1) // 2]
    assert judged and max(map(len, alone.values())) == 5


def test_trackers_do_not_touch_each_other(engine, rows):
    first, second = veldan.Tracker(engine), veldan.Tracker(engine)
    for frame in video():
        second.next(rows[:, ::-1])
        expected = first.next(frame)
    fresh = veldan.Tracker(engine)
    for frame in video():
        faces = fresh.next(frame)
    assert [face.record.tolist() for face in faces] == [face.record.tolist() for face in expected]


def test_frames_that_cannot_be_used_change_nothing(engine, rows):
    tracker = veldan.Tracker(engine)
    with pytest.raises(veldan.ImageError):
        tracker.judge()
    before = [face.track_id for face in tracker.next(rows)]
    with pytest.raises(veldan.ImageError):
        tracker.next(rows[:50])
    assert [face.track_id for face in tracker.faces] == before
    assert [face.track_id for face in tracker.next(rows)] == before
    assert tracker.next(np.zeros_like(rows)) == []
    assert tracker.judge() == []
