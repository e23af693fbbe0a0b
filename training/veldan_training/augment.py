"""Changes to a crop that a camera, a codec or a scene could have made. Works on uint8 crops, blue green red."""
import cv2
import numpy as np


def colour(rng, image):
    x = image.astype(np.float32)
    if rng.random() < 0.5:
        x = x * rng.uniform(0.7, 1.3) + rng.uniform(-25, 25)
    if rng.random() < 0.3:
        x = x * rng.uniform(0.8, 1.2, 3).astype(np.float32)
    if rng.random() < 0.2:
        g = x.mean(2, keepdims=True)
        x = g + (x - g) * rng.uniform(0, 0.7)
    if rng.random() < 0.2:
        x = 255 * np.power(np.clip(x, 0, 255) / 255, rng.uniform(0.5, 2.2))
    if rng.random() < 0.06:  # low light: dark, little contrast, noisy
        x = x * rng.uniform(0.15, 0.45) + rng.uniform(0, 12)
        x = x + rng.normal(0, rng.uniform(1, 6), x.shape)
    if rng.random() < 0.06:  # light from one side
        a = rng.uniform(0, 2 * np.pi)
        yy, xx = np.mgrid[0:x.shape[0], 0:x.shape[1]]
        ramp = (np.cos(a) * (xx / x.shape[1] - 0.5) + np.sin(a) * (yy / x.shape[0] - 0.5)) * rng.uniform(0.5, 1.4)
        x = x * np.clip(1 + ramp, 0.15, 1.8)[..., None]
    return np.clip(x, 0, 255).astype(np.uint8)


def resolution(rng, image, strength=1.0):
    """Blur, coarse pixels, noise, JPEG."""
    h, w = image.shape[:2]
    if rng.random() < 0.15 * strength:
        image = cv2.GaussianBlur(image, (0, 0), rng.uniform(0.3, 0.02 * w + 0.5))
    if rng.random() < 0.1 * strength:
        f = rng.uniform(0.4, 0.9)
        image = cv2.resize(cv2.resize(image, (max(4, int(w * f)), max(4, int(h * f))), interpolation=cv2.INTER_AREA), (w, h))
    if rng.random() < 0.1 * strength:
        image = np.clip(image + rng.normal(0, rng.uniform(2, 12), image.shape), 0, 255).astype(np.uint8)
    if rng.random() < 0.1 * strength:
        image = cv2.imdecode(cv2.imencode(".jpg", image, [cv2.IMWRITE_JPEG_QUALITY, int(rng.integers(25, 85))])[1], 1)
    return image


def camera(rng, image):
    """What a poor or distant camera leaves of a face; one or two of: few pixels, blur of the lens or of motion, hard compression,
    darkness with noise."""
    h, w = image.shape[:2]
    for kind in rng.choice(4, int(rng.integers(1, 3)), replace=False, p=(0.3, 0.3, 0.25, 0.15)):
        if kind == 0:
            small = int(rng.integers(18, 64))
            how = cv2.INTER_AREA if rng.random() < 0.5 else cv2.INTER_LINEAR
            image = cv2.resize(cv2.resize(image, (small, small), interpolation=how), (w, h), interpolation=cv2.INTER_LINEAR)
        elif kind == 1 and rng.random() < 0.5:
            image = cv2.GaussianBlur(image, (0, 0), rng.uniform(0.8, 3.0))
        elif kind == 1:
            length, angle = int(rng.integers(3, 12)), rng.uniform(0, 180)
            line = np.zeros((length, length), np.float32)
            line[length // 2] = 1
            line = cv2.warpAffine(line, cv2.getRotationMatrix2D(((length - 1) / 2,) * 2, angle, 1), (length, length))
            image = cv2.filter2D(image, -1, line / line.sum(), borderType=cv2.BORDER_REFLECT)
        elif kind == 2:
            image = cv2.imdecode(cv2.imencode(".jpg", image, [cv2.IMWRITE_JPEG_QUALITY, int(rng.integers(8, 40))])[1], 1)
        else:
            dark = image * rng.uniform(0.12, 0.5) + rng.normal(0, rng.uniform(1, 7), image.shape)
            image = np.clip(dark, 0, 255).astype(np.uint8)
    return image


def occlude(rng, image, box):
    """A patch over a part of the face; box: left, top, width, height in the crop. Flat colour, noise or a piece of the crop."""
    h, w = image.shape[:2]
    pw, ph = box[2] * rng.uniform(0.2, 0.6), box[3] * rng.uniform(0.15, 0.45)
    x0 = int(np.clip(box[0] + rng.uniform(-0.1, 1.1) * box[2] - pw / 2, 0, w - 2))
    y0 = int(np.clip(box[1] + rng.uniform(-0.1, 1.1) * box[3] - ph / 2, 0, h - 2))
    x1, y1 = int(np.clip(x0 + pw, x0 + 1, w)), int(np.clip(y0 + ph, y0 + 1, h))
    image = image.copy()
    kind = rng.random()
    if kind < 0.5:
        image[y0:y1, x0:x1] = rng.integers(0, 256, 3)
    elif kind < 0.7:
        image[y0:y1, x0:x1] = rng.integers(0, 256, (y1 - y0, x1 - x0, 3))
    else:
        sx, sy = int(rng.integers(0, w - (x1 - x0) + 1)), int(rng.integers(0, h - (y1 - y0) + 1))
        image[y0:y1, x0:x1] = image[sy:sy + y1 - y0, sx:sx + x1 - x0].copy()
    return image


def paint_mask(rng, image, points):
    """A face mask from nose to chin; points: 5 x 2 in the crop."""
    eyes, mouth = points[:2].mean(0), points[3:].mean(0)
    down = mouth - eyes
    across = points[1] - points[0]
    if np.hypot(*across) < 4 or np.hypot(*down) < 4:
        return image
    top = eyes + down * rng.uniform(0.3, 0.6)
    chin = eyes + down * rng.uniform(1.5, 1.75)
    half = across * rng.uniform(0.75, 1.0)
    polygon = np.array([top - half, top + down * rng.uniform(-0.15, 0.0), top + half, top + half * 0.95 + (chin - top) * 0.5,
                        chin + half * 0.35, chin - half * 0.35, top - half * 0.95 + (chin - top) * 0.5])
    if rng.random() < 0.5:
        base = np.array([[235, 225, 215], [200, 180, 120], [30, 30, 30], [240, 240, 240]][int(rng.integers(4))], np.float32)
    else:
        base = rng.uniform(0, 255, 3)
    layer = np.empty(image.shape, np.float32)
    layer[:] = base
    yy = np.arange(image.shape[0], dtype=np.float32)[:, None, None]
    layer += 12 * np.sin(yy * rng.uniform(0.3, 1.2) + rng.uniform(0, 6)) * rng.random()
    light = cv2.GaussianBlur(image, (0, 0), max(1.0, np.hypot(*across) / 4)).astype(np.float32).mean(2, keepdims=True)
    layer *= np.clip(light / max(float(light.mean()), 1.0), 0.4, 1.6)
    alpha = np.zeros(image.shape[:2], np.uint8)
    cv2.fillPoly(alpha, [np.round(polygon * 8).astype(np.int32)], 255, cv2.LINE_AA, 3)
    a = alpha[..., None].astype(np.float32) / 255
    return np.clip(image * (1 - a) + layer * a, 0, 255).astype(np.uint8)
