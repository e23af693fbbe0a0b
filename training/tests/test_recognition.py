"""The faces that recognizers learn from, their changes, and the part of the loss that counts the hard end."""
import cv2
import numpy as np
import pytest
import torch

from veldan_training import device_batches, face_store, recognition_batches, train_recognition

RNG = np.random.default_rng(2)
IMAGE = cv2.resize(RNG.integers(0, 256, (16, 16, 3), np.uint8), (128, 128), interpolation=cv2.INTER_CUBIC)


def pixels(image):
    return torch.from_numpy(np.ascontiguousarray(image)).permute(2, 0, 1)[None].float()


def near(x, image, most):
    assert np.abs(x[0].permute(1, 2, 0).numpy() - image.astype(np.float32)).mean() < most


def test_faces_come_back_with_their_answers(tmp_path):
    images = [np.roll(IMAGE, 30 * k, 0) for k in range(3)]
    answers, crops = RNG.normal(size=(3, 2, 128)), [np.eye(3) * k for k in (1, 2, 3)]
    face_store.write(f"{tmp_path}/a.npz", [face_store.encode(i, 95) for i in images], ["x", "", "y"], crops, [False, True, False], answers)
    face_store.write(f"{tmp_path}/b.npz", [face_store.encode(IMAGE, 95)], [""], crops[:1], [False])
    faces, others = face_store.read(tmp_path), face_store.read(tmp_path, development=True)
    assert (faces.names, others.names) == (["x", "y", ""], [""])
    assert np.abs(faces.images[1].astype(int) - images[2][..., ::-1]).mean() < 8
    both = answers[2].sum(0)
    np.testing.assert_allclose(faces.answers[1], both / np.linalg.norm(both), atol=1e-3)
    np.testing.assert_allclose(faces.crops[1], 3 * np.eye(3))
    assert np.isnan(faces.answers[2]).all()


class TestOnTheDevice:
    """The forms for whole batches beside OpenCV's."""

    def test_warp(self):
        m = np.array([[1.05, 0.1, 3.0], [-0.1, 1.05, -2.0], [0, 0, 1]]) @ np.diag([-1.0, 1.0, 1.0])
        near(device_batches.warp(pixels(IMAGE), torch.from_numpy(m)[None].float(), 112), recognition_batches.warp(IMAGE, m, 112), 1.0)

    def test_blur_and_few_pixels(self):
        near(device_batches.blurred(pixels(IMAGE), 2.0), cv2.GaussianBlur(IMAGE, (0, 0), 2.0, borderType=cv2.BORDER_REFLECT_101), 0.7)
        small = cv2.resize(IMAGE, (32, 32), interpolation=cv2.INTER_AREA)
        near(device_batches.few_pixels(pixels(IMAGE), 32), cv2.resize(small, (128, 128), interpolation=cv2.INTER_LINEAR), 0.7)

    @pytest.mark.parametrize("quality", [15, 50, 90])
    def test_compression(self, quality):
        # In grey: OpenCV halves the resolution of colours.
        grey = np.repeat(IMAGE[..., :1], 3, 2)
        want = cv2.imdecode(cv2.imencode(".jpg", grey, [cv2.IMWRITE_JPEG_QUALITY, quality])[1], 1)
        near(device_batches.compressed(pixels(grey), quality), want, 0.7)
        near(device_batches.compressed(pixels(IMAGE), 100), IMAGE, 1.5)

    @pytest.mark.parametrize("network", ["FaceRecog", "FaceMaskRecog"])
    def test_half_keeps_the_stored_answers(self, network):
        class Teacher:
            def embed_pixels(self, x):
                assert x.shape[1:] == (3, 112, 112) and 0 <= x.min() and x.max() <= 255
                return torch.ones(len(x), 128)

        stored = RNG.normal(size=(5, 128)).astype(np.float32)
        faces = face_store.Faces(np.stack([IMAGE] * 5), [""] * 5, np.stack([np.eye(3)] * 5), stored)
        x, wanted, which = device_batches.Batches(faces, Teacher(), network, 128, 1, "cpu").draw()
        assert x.shape == (128, 3, 112, 112) and -1 <= x.min() and x.max() <= 1
        np.testing.assert_array_equal(wanted[:64], stored[which[:64]])
        np.testing.assert_allclose(wanted[64:], 128 ** -0.5, rtol=1e-5)


def test_only_other_faces_and_the_most_similar_count():
    queue, e = train_recognition.Queue(8, "cpu"), torch.eye(128)
    queue.add(e[:3], e[:3], torch.tensor([1, 2, 3]))
    # The network takes face 9 for face 2, the teacher for nobody; face 1's own entry does not count.
    unit, wanted = torch.stack([e[1], e[0]]), torch.stack([e[7], e[8]])
    assert float(queue.tail(unit, wanted, torch.tensor([9, 1]))) == pytest.approx(2 / 6)
    assert float(queue.tail(wanted, wanted, torch.tensor([9, 1]))) == 0
