"""A piece of a photo gives the crops that the whole photo gives."""
import cv2
import numpy as np
import pytest

from veldan_training import photos, pieces, refinement

FACE = np.array([[60, 40, 36, 48]], np.float32)
POINTS = np.array([[70, 60, 86, 60, 78, 68, 72, 78, 84, 78]], np.float32)


@pytest.fixture
def photo():
    noise = np.random.default_rng(3).integers(0, 256, (15, 20, 3), np.uint8)
    image = cv2.resize(noise, (200, 150), interpolation=cv2.INTER_CUBIC)
    return photos.Photo("helen", "a", image, FACE, np.ones(1, bool), POINTS, np.ones(1, bool))


def crop(photo, box, scale, kind, seed):
    crops = refinement.Crops.__new__(refinement.Crops)
    crops.size = 48
    return crops.crop(np.random.default_rng(seed), photo, np.array(box, float), scale, *kind)


@pytest.mark.parametrize("seed", range(6))
@pytest.mark.parametrize("box,kind", [((55, 42, 46), (refinement.POSITIVE, 0)), ((-10, 100, 60), (refinement.NEGATIVE, -1)),
                                      ((150, -8, 60), (refinement.NEGATIVE, -1))])
def test_crop(photo, box, kind, seed):
    collection = pieces.Collection()
    collection.add_box(photo, box, 1.3, kind, 0.5, 100)
    number, x, y, side, scale, label, face, _ = collection.rows[0]
    assert collection.pieces[number].image.size < photo.image.size
    ours = crop(collection.pieces[number], (x, y, side), scale, (label, face), seed)
    whole = crop(photo, box, 1.3, kind, seed)
    for a, b in zip(ours[1:], whole[1:]):
        np.testing.assert_allclose(a, b, atol=1e-5)
    assert (np.abs(ours[0].astype(int) - whole[0]) <= 1).mean() > 0.99  # a turned crop may reach beyond the piece by a corner


def test_large_boxes_are_made_smaller(photo):
    collection = pieces.Collection()
    collection.add_box(photo, (50, 30, 80), 1.0, (refinement.POSITIVE, 0), 0.5, 40)
    number, x, y, side, scale, _, face, _ = collection.rows[0]
    assert side == 40 and scale == 2
    np.testing.assert_allclose(collection.pieces[number].boxes[face] - (x, y, 0, 0), np.array([10, 10, 36, 48]) / 2, atol=1e-5)


def test_certainty_of_two_looks():
    scores, mirrored = np.array([0.5, 0.7, 0.3, 0.69, 0.9]), np.array([0.5, 0.3, 0.7, 0.49, 0.2])
    assert photos.certain_everyday(scores, mirrored).tolist() == [True, True, True, False, False]
