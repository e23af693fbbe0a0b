"""What makes a face hard to recognise, each kind with a level from 0 (nothing) to 1 (hardly a face any more).

Strength is relative to the face's size in the frame: what counts is how much of the face is lost, not how many pixels. The
same functions make the training crops and the validation photos, so a level means the same in both. The lowest levels are
meant to be just visible."""
import cv2
import numpy as np

KINDS = ("blur", "motion", "noise", "dark", "bright", "low resolution", "occlusion", "half")


def blur(rng, image, box, level):
    return cv2.GaussianBlur(image, (0, 0), max(box[2:]) * (0.008 + 0.047 * level))


def motion(rng, image, box, level):
    length = max(max(box[2:]) * (0.04 + 0.2 * level), 1.0)
    n = int(length) + 3 | 1
    kernel = np.zeros((n, n), np.float32)
    a, c = rng.uniform(0, np.pi), n // 2
    d = np.array([np.cos(a), np.sin(a)]) * (length - 1) / 2
    s = 16
    cv2.line(kernel, tuple(np.round((c - d) * s).astype(int).tolist()), tuple(np.round((c + d) * s).astype(int).tolist()), 1.0, 1, cv2.LINE_AA, 4)
    return cv2.filter2D(image, -1, kernel / kernel.sum(), borderType=cv2.BORDER_REPLICATE)


def noise(rng, image, box, level):
    sigma = 75 * level
    grain = rng.normal(0, sigma, image.shape[:2] + (1,)) * 0.8 + rng.normal(0, sigma, image.shape) * 0.6
    return np.clip(image + grain, 0, 255).astype(np.uint8)


def _face_light(image, box):
    """A small grey picture of the face, to judge its exposure."""
    x, y, w, h = (int(v) for v in box)
    piece = image[max(y, 0):max(y, 0) + max(h, 1), max(x, 0):max(x, 0) + max(w, 1)]
    return cv2.resize(piece, (24, 24), interpolation=cv2.INTER_AREA).astype(np.float32).mean(2)


def dark(rng, image, box, level):
    """Darkens the face, however light it was, towards a mean of 5."""
    mean = max(float(_face_light(image, box).mean()), 6.0)
    gain = (5.0 / mean) ** level
    grain = rng.normal(0, 4.0 * level, image.shape)
    return np.clip(image * gain + grain, 0, 255).astype(np.uint8)


def bright(rng, image, box, level):
    """Exposes the face, however dark it was, until the share `level` of what is not burnt out yet is."""
    light = _face_light(image, box)
    burnt = float((light >= 245).mean())
    wanted, low, high = burnt + (0.97 - burnt) * level, 0.0, 30.0
    for _ in range(14):
        middle = (low + high) / 2
        low, high = (middle, high) if (light * (1 + middle) + 8 * middle >= 245).mean() < wanted else (low, middle)
    return np.clip(image * (1 + low) + 8 * low, 0, 255).astype(np.uint8)


def low_resolution(rng, image, box, level):
    pixels = np.exp(np.log(34) + (np.log(6) - np.log(34)) * level)  # over the face's longer side
    f = min(1.0, pixels / max(box[2:]))
    h, w = image.shape[:2]
    small = cv2.resize(image, (max(2, round(w * f)), max(2, round(h * f))), interpolation=cv2.INTER_AREA)
    return cv2.resize(small, (w, h), interpolation=cv2.INTER_LINEAR if rng.random() < 0.5 else cv2.INTER_CUBIC)


def occlusion(rng, image, box, level):
    """Something before the face that covers up to 0.65 of its box: a blob or a plank, flat or with the texture of another piece of the scene."""
    x, y, w, h = box
    area = 0.65 * level * w * h
    shape = np.exp(rng.uniform(np.log(0.5), np.log(2)))
    pw = min(np.sqrt(area * shape), w * 1.05)
    ph = min(area / max(pw, 1e-6), h * 1.05)
    # Inside the face as far as it fits, so that the level says how much is covered.
    cx = x + w / 2 + rng.uniform(-0.5, 0.5) * max(w - pw, 0)
    cy = y + h / 2 + rng.uniform(-0.5, 0.5) * max(h - ph, 0)
    alpha = np.zeros(image.shape[:2], np.uint8)
    if rng.random() < 0.5:
        cv2.ellipse(alpha, (int(cx), int(cy)), (max(1, int(pw * 0.56)), max(1, int(ph * 0.56))), 0, 0, 360, 255, -1, cv2.LINE_AA)
    else:
        corners = cv2.boxPoints(((cx, cy), (pw, ph), rng.uniform(-25, 25)))
        cv2.fillPoly(alpha, [np.round(corners * 16).astype(np.int32)], 255, cv2.LINE_AA, 4)
    if rng.random() < 0.6:
        layer = np.empty(image.shape, np.float32)
        layer[:] = rng.uniform(0, 255, 3)
    else:
        layer = np.roll(image, (int(rng.integers(image.shape[0])), int(rng.integers(image.shape[1]))), (0, 1))[::-1].astype(np.float32)
    a = alpha[..., None].astype(np.float32) / 255
    return np.clip(image * (1 - a) + layer * a, 0, 255).astype(np.uint8)


def half(rng, image, box, level):
    """The frame ends within the face: up to 0.55 of it is outside. Returns the smaller picture; its right or lower end is
    cut, or its left or upper one, in which case the box has to move: see moved()."""
    x, y, w, h = box
    edge = int(rng.integers(4))
    cut = 0.55 * level
    if edge == 0:
        return image[:, int(x + w * cut):], (int(x + w * cut), 0)
    if edge == 1:
        return image[:, :max(2, int(x + w * (1 - cut)))], (0, 0)
    if edge == 2:
        return image[int(y + h * cut):], (0, int(y + h * cut))
    return image[:max(2, int(y + h * (1 - cut)))], (0, 0)


def apply(rng, kind, image, box, level):
    """The damaged picture and the box in it, cut to the picture as the detector does."""
    if kind != "half":
        return globals()[kind.replace(" ", "_")](rng, image, box, level), np.asarray(box, np.float64)
    image, (dx, dy) = half(rng, image, box, level)
    x, y, w, h = box
    x1, y1 = max(x - dx, 0), max(y - dy, 0)
    x2, y2 = min(x - dx + w, image.shape[1]), min(y - dy + h, image.shape[0])
    return image, np.array([x1, y1, max(x2 - x1, 2), max(y2 - y1, 2)])


def pose_level(points):
    """How far the head is turned to the side, from the five points: 0 up to a fifth of the way from the eyes' middle to one eye,
    1 when the nose is below an eye."""
    across = points[1] - points[0]
    offset = np.dot(points[2] - points[:2].mean(0), across) / max(np.dot(across, across) / 2, 1e-6)
    return float(np.clip((abs(offset) - 0.2) / 0.8, 0, 1))
