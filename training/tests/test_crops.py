"""What the trainer cuts, aligns and finds is what the library does: its networks are trained on what they will see."""
import ctypes

import cv2
import numpy as np
import pytest

from conftest import ROOT
from veldan_training import cascade, faces, networks


class Mat(ctypes.Structure):
    """cv::Mat of OpenCV 4.6 around an array of rows x columns x 3 bytes; the caller keeps both."""
    _fields_ = [("flags", ctypes.c_int), ("dims", ctypes.c_int), ("rows", ctypes.c_int), ("cols", ctypes.c_int),
                ("data", ctypes.c_void_p), ("start", ctypes.c_void_p), ("end", ctypes.c_void_p), ("limit", ctypes.c_void_p),
                ("allocator", ctypes.c_void_p), ("owner", ctypes.c_void_p), ("size", ctypes.c_void_p), ("step", ctypes.c_void_p),
                ("steps", ctypes.c_size_t * 2)]

    def __init__(self, pixels):
        rows, cols, _ = pixels.shape
        begin, end = pixels.ctypes.data, pixels.ctypes.data + pixels.nbytes
        super().__init__(0x42FF4010, 2, rows, cols, begin, begin, end, end, None, None, None, None, (cols * 3, 3))
        self.size = ctypes.addressof(self) + Mat.rows.offset
        self.step = ctypes.addressof(self) + Mat.steps.offset


class Record(ctypes.Structure):
    _fields_ = [("box", ctypes.c_int32 * 4), ("count", ctypes.c_int32), ("x", ctypes.c_int32 * 120), ("y", ctypes.c_int32 * 120),
                ("rest", ctypes.c_int32 * 17)]


def picture(seed, width=160, height=120):
    """Smooth enough that a place off by a thousandth of a pixel changes no sample by more than one."""
    noise = np.random.default_rng(seed).integers(0, 256, (height // 8, width // 8, 3), np.uint8)
    return np.ascontiguousarray(cv2.resize(noise, (width, height), interpolation=cv2.INTER_CUBIC))


def aligned(function, image, points):
    out = np.zeros((faces.CROP, faces.CROP, 3), np.uint8)
    values = (ctypes.c_float * points.size)(*points.ravel())
    assert function(image.ctypes.data_as(ctypes.c_void_p), image.shape[1], image.shape[0], out.ctypes.data_as(ctypes.c_void_p),
                    faces.CROP, faces.CROP, values) == 0
    return out


def five_points(rng):
    turn, scale = rng.uniform(-0.6, 0.6), rng.uniform(0.3, 1.1)
    rotation = scale * np.array([[np.cos(turn), -np.sin(turn)], [np.sin(turn), np.cos(turn)]])
    return (faces.TEMPLATE - 56) @ rotation.T + rng.uniform(30, 110, 2) + rng.normal(0, 1, (5, 2))


@pytest.mark.parametrize("seed", range(8))
def test_alignment(library, seed):
    image, points = picture(seed), np.floor(five_points(np.random.default_rng(seed)))
    five = aligned(library.alignface_pinv, image, points)
    assert np.abs(five.astype(int) - faces.align(image, points)).max() <= 1
    corners = np.floor(faces.corners(points))
    two = aligned(library.alignface_mask, image, corners)
    assert np.abs(two.astype(int) - faces.align(image, corners, faces.TWO_CORNERS)).max() <= 1
    # And the corners are those of the five points' crop: the same crop from uncut ones.
    same = aligned(library.alignface_mask, image, faces.corners(points))
    assert np.abs(same.astype(int) - five).max() <= 2


@pytest.mark.parametrize("box", [(50, 40, 30, 41), (50, 40, 41, 30), (-12, 20, 40, 50), (120, 90, 60, 50), (10, -30, 33, 60), (60, 50, 1, 1)])
def test_square_crop(library, box):
    image, crop, rect = picture(9), np.zeros((48, 48, 3), np.uint8), (ctypes.c_int * 4)()
    want, (left, top, side) = faces.square_crop(image, *box, 48)
    source, out = Mat(image), Mat(crop)
    cut = library._Z17get_crop_landmarkN2cv3MatEiiiiiRS0_RNS_5Rect_IiEE
    assert cut(ctypes.byref(source), *box, 48, ctypes.byref(out), rect) == 0
    assert (crop == want).all()
    # The library counts from the corner of the picture with its border.
    border = max(0, -left, -top, left + side - image.shape[1], top + side - image.shape[0])
    assert list(rect) == [left + border, top + border, side, side]
    crop[:] = 0
    assert library._Z8get_cropN2cv3MatEiiiiiRS0_(ctypes.byref(source), *box, 48, ctypes.byref(out)) == 0
    assert (crop == want).all()


@pytest.fixture(scope="module")
def detectors(library):
    files = [(ROOT / "models" / networks.file_name(f"FaceDetect{stage}")).read_bytes() for stage in "PRO"]
    library.zzInitAlgThread.restype = ctypes.c_void_p
    handle = ctypes.c_void_p(library.zzInitAlgThread(None, None))
    yield cascade.Cascade(*files), handle
    library.zzFreeAlgThread(handle)


@pytest.mark.parametrize("name,right", [("astronaut.jpg", None), ("astronaut.jpg", 245), ("first-mask.webp", None), ("queue.webp", None),
                                        ("street.webp", None)])
def test_cascade(library, detectors, name, right):
    ours, handle = detectors
    image = np.ascontiguousarray(cv2.imread(str(ROOT / "examples/photos" / name))[:, :right])  # the last column goes through a face
    count, records = ctypes.c_int(), (Record * 5000)()
    assert library.zzDetectFaceThread(handle, image.ctypes.data_as(ctypes.c_void_p), image.shape[1], image.shape[0],
                                      ctypes.byref(count), records) == 0
    boxes, _, points = ours.detect(image)
    assert len(boxes) == count.value > 0
    found = sorted(list(r.box[:2]) + [v for k in range(5) for v in (r.x[k], r.y[k])] for r in records[:count.value])
    # The library keeps points in the picture.
    wanted = sorted(list(b[:2].clip(0)) + list(p.clip(0, image.shape[1::-1] * 5)) for b, p in zip(boxes, points))
    # Whole pixels there, cut; single precision there, double here.
    np.testing.assert_allclose(found, wanted, atol=1.01)
