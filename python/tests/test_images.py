"""Which arrays are images, and that every way an array may lie in memory gives the same faces."""

import numpy as np
import pytest

import veldan


def records(faces):
    return np.stack([face.record for face in faces])


def read_only(image):
    image.flags.writeable = False
    return image


SAME = {
    "read-only": (read_only, "BGR"),
    "RGB": (lambda image: np.ascontiguousarray(image[..., ::-1]), "RGB"),
    "RGB as a view": (lambda image: image[..., ::-1], "RGB"),
    "columns first": (np.asfortranarray, "BGR"),
    "planes": (lambda image: np.ascontiguousarray(image.transpose(2, 0, 1)).transpose(1, 2, 0), "BGR"),
    "part of a larger one": (lambda image: np.pad(image, ((9, 8), (7, 6), (0, 0)))[9:-8, 7:-6], "BGR"),
    "turned twice": (lambda image: np.ascontiguousarray(image[::-1, ::-1])[::-1, ::-1], "BGR"),
    "with a fourth channel": (lambda image: np.dstack([image, image[..., 0]])[..., :3], "BGR"),
    "not aligned": (lambda image: np.frombuffer(b"." + image.tobytes(), np.uint8)[1:].reshape(image.shape), "BGR"),
}


@pytest.mark.parametrize("case", SAME)
def test_faces_do_not_depend_on_how_the_array_lies(engine, rows, case):
    expected = records(engine.judge(engine.detect(rows)))
    change, order = SAME[case]
    assert np.array_equal(records(engine.judge(engine.detect(change(rows), order=order))), expected)


def test_every_second_pixel(engine):
    image = np.random.default_rng(1).integers(0, 256, (300, 400, 3), np.uint8)
    assert veldan._veldan.packed(image[::2, ::-2], "RGB").tolist() == image[::2, ::-2, ::-1].tolist()


UNUSABLE = {
    "no array": None,
    "a list": [[[0, 0, 0]] * 200] * 200,
    "floats": np.zeros((200, 200, 3)),
    "signed": np.zeros((200, 200, 3), np.int8),
    "booleans": np.zeros((200, 200, 3), bool),
    "objects": np.zeros((200, 200, 3), object),
    "grey": np.zeros((200, 200), np.uint8),
    "one channel": np.zeros((200, 200, 1), np.uint8),
    "four channels": np.zeros((200, 200, 4), np.uint8),
    "four dimensions": np.zeros((1, 200, 200, 3), np.uint8),
    "no dimension": np.uint8(0),
    "no rows": np.zeros((0, 200, 3), np.uint8),
    "no columns": np.zeros((200, 0, 3), np.uint8),
    "too wide": np.broadcast_to(np.uint8(0), (200, 32767, 3)),
    "more bytes than an int": np.broadcast_to(np.uint8(0), (32766, 32766, 3)),
    "more than memory": np.broadcast_to(np.uint8(0), (2**40, 2**20, 3)),
}


@pytest.mark.parametrize("case", UNUSABLE)
@pytest.mark.parametrize("order", ["BGR", "RGB"])
def test_what_is_no_image_is_refused(engine, case, order):
    with pytest.raises(veldan.ImageError) as failure:
        engine.detect(UNUSABLE[case], order=order)
    assert failure.value.code == 13


def test_other_refusals_have_their_types(engine, rows):
    with pytest.raises(veldan.ImageTooSmallError) as failure:
        engine.detect(rows[:99])
    assert failure.value.code == 27
    with pytest.raises(veldan.ImageError, match="order"):
        engine.detect(rows, order="GRB")
    with pytest.raises(ValueError):
        engine.judge([], light="dark")
    face = engine.detect(rows)[0]
    with pytest.raises(ValueError):
        engine.align(face, points="three")
    for size in (0, -1, 4097):
        with pytest.raises(veldan.ImageError):
            engine.align(face, size=size)
    with pytest.raises(veldan.TemplateError):
        engine.template(face, kind="both")
    for box in ((-50, 0, 40, 40), (0, 10**6, 40, 40), (10, 10, 0, 50)):
        with pytest.raises(veldan.ImageError):
            engine.face_at(rows, box)
    assert issubclass(veldan.ImageError, ValueError) and issubclass(veldan.ImageError, veldan.Error)


def test_an_empty_picture_has_no_faces(engine):
    assert engine.detect(np.zeros((100, 100, 3), np.uint8)) == []
    assert engine.judge([]) == []


def test_faces_keep_the_frame_as_it_was(engine, rows):
    expected = records(engine.judge(engine.detect(rows.copy())))
    faces = engine.detect(rows)
    rows[:] = 0
    assert np.array_equal(records(engine.judge(faces)), expected)


def test_frames_of_faces_that_are_gone_serve_again(engine, rows):
    images = [np.roll(rows, 3 * step, axis=0) for step in range(5)]
    expected = [[face.liveness for face in engine.detect(image)] for image in images]
    kept, parts, found = [], [], []
    for image in images:
        faces = engine.detect(image)
        found.append(faces[0].frame.__array_interface__["data"][0])
        kept.append(faces) if len(kept) < 2 else parts.append(faces[0].frame[5:9])
        del faces
    assert len(set(found)) == 5  # a part of a frame keeps it, too
    assert [[face.liveness for face in faces] for faces in kept] == expected[:2]
    assert all(np.array_equal(part, image[5:9]) for part, image in zip(parts, images[2:]))
    del kept, parts
    again = {engine.detect(image)[0].frame.__array_interface__["data"][0] for image in images}
    assert len(again) == 1
    with pytest.raises(ValueError):
        engine.detect(rows)[0].frame[:] = 0


def test_the_very_array_is_kept_on_demand(engine, rows):
    assert engine.detect(rows, copy=False)[0].frame is rows
    assert engine.detect(rows)[0].frame is not rows
    assert engine.detect(read_only(rows))[0].frame is rows


@pytest.mark.parametrize("corner", [(0, 0), (-20, -20), (370, 230)])
def test_boxes_at_the_border_give_faces(engine, rows, corner):
    face = engine.judge([engine.face_at(rows, (*corner, 60, 70))])[0]
    box = face.box
    assert box.x >= 0 and box.y >= 0 and box.right <= rows.shape[1] and box.bottom <= rows.shape[0]
    assert len(bytes(engine.template(face))) == 520


def test_a_known_box_gives_the_points_of_its_face(engine, rows):
    for face in engine.detect(rows)[:3]:
        again = engine.face_at(rows, face.box)
        assert np.abs(again.points - face.points).max() <= 0.15 * face.eye_distance
        assert veldan.similarity(engine.template(again), engine.template(face)) > veldan.SAME_PERSON
