"""Whatever Python says of a photo, the command and the C interface say as well, to the bit."""

import ctypes
import os

import numpy as np
import pytest
from conftest import PHOTOS, pixels

import veldan

NAMES = sorted(path.name for path in PHOTOS.iterdir() if path.suffix in (".jpg", ".webp"))


@pytest.fixture(scope="module")
def inspected(command):
    photos = command("inspect", "--json", *(PHOTOS / name for name in NAMES))["photos"]
    return dict(zip(NAMES, photos))


@pytest.fixture(scope="module")
def library():
    dll = ctypes.CDLL(os.environ["VELDAN_LIBRARY"])
    dll.zzInitAlgThread.restype = ctypes.c_void_p
    handle = ctypes.c_void_p(dll.zzInitAlgThread(None, None))
    yield dll, handle
    dll.zzFreeAlgThread(handle)


def described(face):
    return {"box": face.box._asdict(), "points": face.points.tolist(), "eyeDistance": face.eye_distance,
            "maskPoints": face.mask_points.tolist(), "quality": face.quality, "sharp": face.sharp,
            "frontal": face.frontal, "maskScore": face.mask_score, "masked": face.masked, "liveness": face.liveness,
            "live": face.live, "light": "visible"}


@pytest.mark.parametrize("name", NAMES)
def test_faces_are_those_of_the_command(engine, inspected, name):
    assert [described(face) for face in engine.detect(pixels(name))] == inspected[name]["faces"]


def test_records_are_those_of_the_c_interface(engine, library):
    dll, handle = library
    image = pixels("queue.webp")
    height, width = image.shape[:2]
    records, count = np.zeros((5000, 262), np.int32), ctypes.c_int()
    assert dll.zzDetectFaceThread(handle, image.ctypes.data_as(ctypes.c_void_p), width, height, ctypes.byref(count),
                                  records.ctypes.data_as(ctypes.c_void_p)) == 0
    faces = engine.detect(image)
    assert count.value > 1
    assert np.array_equal(np.stack([face.record for face in faces]), records[:count.value])


@pytest.mark.parametrize("name", ["first-bare.webp", "first-mask.webp"])
@pytest.mark.parametrize("kind", ["bare", "masked"])
def test_templates_are_those_of_the_command(engine, command, name, kind):
    words = ["--mask"] if kind == "masked" else []
    template = engine.template(engine.detect(pixels(name))[0], kind)
    assert bytes(template) == command("template", *words, PHOTOS / name, "-o", "-")
    assert template.kind == kind


def test_similarity_is_that_of_the_c_interface(engine, library):
    dll, handle = library
    templates = [engine.template(face) for name in ("first-bare.webp", "second-bare.webp", "street.webp")
                 for face in engine.detect(pixels(name))]
    score = ctypes.c_float()
    for a in templates:
        for b in templates:
            assert dll.zzMatchFeatureThread(handle, bytes(a), bytes(b), ctypes.byref(score)) == 0
            assert veldan.similarity(a, b) == score.value
            cosine = float(a.feature @ b.feature / (np.linalg.norm(a.feature) * np.linalg.norm(b.feature)))
            assert score.value == pytest.approx((cosine + 1) / 2, abs=1e-6)


def test_crops_are_those_of_the_command(engine, command, tmp_path):
    command("inspect", PHOTOS / "first-mask.webp", "--aligned", tmp_path)
    face = engine.detect(pixels("first-mask.webp"))[0]
    for points, suffix in (("five", ""), ("two", "-mask")):
        crop = pixels(tmp_path / f"first-mask-face1{suffix}.png")
        assert np.array_equal(engine.align(face, points), crop)


def test_networks_are_those_of_the_command(command):
    digests = {network["name"]: network["sha256"] for network in command("networks", "--json")["networks"]}
    assert veldan.network_digest("bare") == digests["VELDAN_V5_0_0_FaceRecog_Model"]
    assert veldan.network_digest("masked") == digests["VELDAN_V5_2_0_FaceMaskRecog_Model"]


def test_enrolment_quality_is_lower_for_blurred_faces(engine):
    quality = {}
    for face in engine.detect(pixels("street.webp")) + engine.detect(pixels("queue.webp")):
        expected = face.quality if face.sharp else int(face.quality * 0.8)
        assert engine.enrolment_quality(face) == expected
        quality.setdefault(face.sharp, []).append(face.quality)
    assert len(quality) == 2  # both cases were there


def test_near_infrared_is_another_network(engine):
    image = np.repeat(pixels("astronaut.jpg")[..., 1:2], 3, axis=2)
    visible, infrared = (engine.judge(engine.detect(image), light)[0].liveness for light in ("visible", "near_infrared"))
    assert visible != infrared
