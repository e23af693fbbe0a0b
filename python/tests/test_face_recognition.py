"""The module for programs written for face_recognition, held to that package's documentation."""

import io
import pathlib
import shutil
import subprocess
import sys

import numpy as np
import pytest
from conftest import PHOTOS, pixels

import veldan
from veldan import face_recognition
from veldan.face_recognition.__main__ import main


@pytest.fixture
def street():
    return face_recognition.load_image_file(PHOTOS / "street.webp")


def test_images_are_loaded_in_both_modes(street):
    assert np.array_equal(street, pixels("street.webp")[..., ::-1])
    with open(PHOTOS / "street.webp", "rb") as file:
        assert np.array_equal(face_recognition.load_image_file(file), street)
    grey = face_recognition.load_image_file(io.BytesIO((PHOTOS / "street.webp").read_bytes()), mode="L")
    assert grey.shape == street.shape[:2] and grey.dtype == np.uint8
    assert len(face_recognition.face_locations(grey)) > 0
    with pytest.raises(ValueError):
        face_recognition.load_image_file(PHOTOS / "street.webp", mode="CMYK")


def test_locations_are_boxes_in_their_order(engine, street):
    expected = [(face.box.y, face.box.right, face.box.bottom, face.box.x) for face in engine.detect(pixels("street.webp"))]
    assert face_recognition.face_locations(street) == expected
    assert face_recognition.face_locations(img=street, number_of_times_to_upsample=0, model="cnn") == expected
    assert face_recognition.batch_face_locations([street, street[:90, :90]], batch_size=2) == [expected, []]
    assert all(type(value) is int for value in expected[0])
    larger = face_recognition.face_locations(street, 2)
    assert len(larger) >= len(expected) and all(abs(a - b) < 12 for a, b in zip(larger[0], expected[0]))
    with pytest.raises(ValueError):
        face_recognition.face_locations(street, model="yolo")


def test_landmarks_are_what_five_points_give(engine, street):
    faces = engine.detect(pixels("street.webp"))
    marks = face_recognition.face_landmarks(street, model="small")
    assert [set(mark) for mark in marks] == [{"nose_tip", "left_eye", "right_eye"}] * len(faces)
    assert [mark["left_eye"] + mark["right_eye"] + mark["nose_tip"] for mark in marks] == \
        [[tuple(point) for point in face.points[:3].tolist()] for face in faces]
    locations = face_recognition.face_locations(street)
    assert face_recognition.face_landmarks(street, locations[1:2], "small") == marks[1:2]
    with pytest.raises(NotImplementedError, match="68"):
        face_recognition.face_landmarks(street)


def test_encodings_are_templates_and_distances_similarities(engine, street):
    faces = [face for name in ("street.webp", "first-bare.webp", "rows.webp") for face in engine.detect(pixels(name))]
    templates = [engine.template(face) for face in faces]
    encodings = [face_recognition.encoding_of(template) for template in templates]
    assert encodings[0].shape == (128,) and encodings[0].dtype == np.float64
    assert np.array_equal(face_recognition.face_encodings(street), encodings[:3])
    locations = face_recognition.face_locations(street)
    assert np.array_equal(face_recognition.face_encodings(street, [locations[2], locations[0]], num_jitters=3, model="large"),
                          [encodings[2], encodings[0]])
    for one, template in zip(encodings, templates):
        distances = face_recognition.face_distance(encodings, one)
        similarities = np.array([veldan.similarity(template, other) for other in templates])
        # 0.6 lies where one in a thousand pairs of different people do.
        assert distances == pytest.approx(0.6 * np.sqrt(np.maximum(1 - similarities, 0) / (1 - veldan.SAME_PERSON)), abs=1e-3)
        assert face_recognition.compare_faces(encodings, one) == (similarities >= veldan.SAME_PERSON).tolist()
    assert face_recognition.compare_faces(encodings[:1], encodings[0], tolerance=-1) == [False]
    assert face_recognition.face_distance([], encodings[0]).shape == (0,) and face_recognition.compare_faces([], encodings[0]) == []


def test_a_box_from_elsewhere_has_an_encoding(engine):
    image = face_recognition.load_image_file(PHOTOS / "first-bare.webp")
    [(top, right, bottom, left)] = face_recognition.face_locations(image)
    [own] = face_recognition.face_encodings(image)
    [drawn] = face_recognition.face_encodings(image, [(top - 60, right + 60, bottom + 60, left - 60)])
    assert drawn.shape == (128,) and not np.array_equal(own, drawn)


def test_the_commands_print_csv_lines(tmp_path, capfd):
    known, unknown = tmp_path / "known", tmp_path / "unknown"
    known.mkdir(), unknown.mkdir()
    shutil.copy(PHOTOS / "first-bare.webp", known / "Ada, Countess.webp")
    veldan.write_image(known / "Nobody.png", np.zeros((120, 120, 3), np.uint8))
    shutil.copy(PHOTOS / "first-bare.webp", unknown / "a.webp")
    shutil.copy(PHOTOS / "astronaut.jpg", unknown / "b.jpg")
    shutil.copy(known / "Nobody.png", unknown / "c.png")
    done = subprocess.run([sys.executable, "-m", "veldan.face_recognition", known, unknown, "--tolerance", "0.5", "--show-distance"],
                          capture_output=True, text=True)
    assert done.stdout.splitlines() == [f'{unknown}/a.webp,"Ada, Countess",0.0', f"{unknown}/b.jpg,unknown_person,None",
                                        f"{unknown}/c.png,no_persons_found,None"]
    assert done.returncode == 0 and "Nobody.png: no face" in done.stderr

    (unknown / "d.jpg").write_text("words")
    assert main(["--cpus", "2", str(unknown)]) == 1
    printed = capfd.readouterr()
    expected = [[f"{unknown}/{name}", *map(str, location)] for name in ("a.webp", "b.jpg") for location in
                face_recognition.face_locations(face_recognition.load_image_file(unknown / name))]
    assert [line.split(",") for line in printed.out.splitlines()] == expected and "d.jpg" in printed.err


def test_a_program_runs_with_its_import_changed(tmp_path):
    text = (pathlib.Path(__file__).parent / "programs" / "who_is_it.py").read_text()
    changed = text.replace("import face_recognition\n", "import veldan.face_recognition as face_recognition\n")
    assert changed != text
    for name, photo in (("Ada", "first-bare.webp"), ("Grace", "second-bare.webp")):
        shutil.copy(PHOTOS / photo, tmp_path / f"{name}.webp")
    for photo, names in (("first-bare.webp", ["Ada"]), ("astronaut.jpg", ["Unknown"])):
        done = subprocess.run([sys.executable, "-c", changed, tmp_path, PHOTOS / photo], capture_output=True, text=True)
        first, *lines = done.stdout.splitlines()
        assert done.returncode == 0 and first == "I found 1 face(s) in this photograph.", done.stderr
        assert [line.split(" at ")[0] for line in lines] == names
