"""Photos: read as the command reads them, upright, from anywhere; drawn as the command draws them."""

import io
import pathlib
import pickle

import numpy as np
import pytest
from conftest import PHOTOS, pixels
from PIL import Image

import veldan


@pytest.mark.parametrize("orientation, turn", [(1, lambda a: a), (3, lambda a: a[::-1, ::-1]), (6, lambda a: np.rot90(a, -1)),
                                               (8, np.rot90), (2, lambda a: a[:, ::-1])])
def test_photos_are_turned_upright(tmp_path, orientation, turn):
    exif = Image.Exif()
    exif[0x112] = orientation
    stored = np.random.default_rng(3).integers(0, 256, (120, 160, 3), np.uint8)
    Image.fromarray(stored).save(tmp_path / "turned.webp", exif=exif, lossless=True)
    assert np.array_equal(veldan.read_image(tmp_path / "turned.webp", order="RGB"), turn(stored))


def test_photos_come_from_anywhere():
    path = PHOTOS / "astronaut.jpg"
    content = path.read_bytes()
    expected = pixels("astronaut.jpg")
    for photo in (path, str(path), content, memoryview(content), io.BytesIO(content), open(path, "rb")):
        image = veldan.read_image(photo)
        assert np.array_equal(image, expected) and image.flags.writeable and image.flags.c_contiguous
    assert np.array_equal(veldan.read_image(path, order="RGB"), expected[..., ::-1])


def test_unreadable_photos_have_named_errors(tmp_path):
    (tmp_path / "words.jpg").write_text("words")
    cases = [(tmp_path / "none.jpg", veldan.MissingError, 3), (tmp_path, veldan.PhotoError, 4),
             (tmp_path / "words.jpg", veldan.PhotoError, 4), (b"", veldan.PhotoError, 4)]
    for photo, kind, code in cases:
        with pytest.raises(kind) as failure:
            veldan.read_image(photo)
        assert failure.value.code == code
        assert not isinstance(photo, pathlib.Path) or photo.name in str(failure.value)
        again = pickle.loads(pickle.dumps(failure.value))
        assert (type(again), again.code, str(again)) == (kind, code, str(failure.value))
    assert issubclass(veldan.MissingError, FileNotFoundError)
    with pytest.raises(TypeError):
        veldan.read_image(5)
    with pytest.raises(ValueError):
        veldan.read_image(PHOTOS / "astronaut.jpg", order="GBR")


def test_drawings_are_those_of_the_command(engine, command, rows, tmp_path):
    faces = engine.detect(rows)
    command("detect", PHOTOS / "rows.webp", "--draw", tmp_path / "boxes.png")
    before = rows.copy()
    drawn = veldan.draw(rows, faces)
    assert np.array_equal(drawn, pixels(tmp_path / "boxes.png")) and np.array_equal(rows, before)
    assert np.array_equal(veldan.draw(rows[..., ::-1], faces, order="RGB"), drawn[..., ::-1])

    command("inspect", PHOTOS / "rows.webp", "--draw", tmp_path / "judged.png")
    words = [[f"quality {face.quality}", ("sharp" if face.sharp else "not sharp") + (", frontal" if face.frontal else ", not frontal"),
              f"{'mask' if face.masked else 'no mask'} {face.mask_score}, {'live' if face.live else 'not live'} {face.liveness}"]
             for face in engine.judge(faces)]
    assert np.array_equal(veldan.draw(rows, faces, words), pixels(tmp_path / "judged.png"))
    with pytest.raises(ValueError):
        veldan.draw(rows, faces, ["one"])
    assert np.array_equal(veldan.draw(rows, []), rows)


def test_pictures_are_written(rows, tmp_path):
    veldan.write_image(tmp_path / "a.png", rows[..., ::-1], order="RGB")
    assert np.array_equal(pixels(tmp_path / "a.png"), rows)
    for path in (tmp_path / "none" / "a.png", tmp_path / "a.words"):
        with pytest.raises(veldan.WriteError) as failure:
            veldan.write_image(path, rows)
        assert failure.value.code == 7 and isinstance(failure.value, OSError)
