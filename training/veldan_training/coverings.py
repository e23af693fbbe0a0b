"""Things that people wear or hold before their faces, painted onto a patch: masks, and what must not be taken for one.

All take the patch's picture and the five points in it; sizes follow the distance of the eyes and the distance from eyes to mouth."""
import cv2
import numpy as np

SHIFT = 4  # fractional bits of polygon coordinates


class Frame:
    """Coordinates of a face: u to the image's right in eye distances, v from the eyes' middle (0) to the mouth's (1)."""

    def __init__(self, points):
        self.eyes, self.nose, self.mouth = points[:2].mean(0), points[2], points[3:].mean(0)
        self.down, self.across = self.mouth - self.eyes, points[1] - points[0]
        # A turned head shows its eyes close together; its width on the picture shrinks much less.
        length, height = np.hypot(*self.across), np.hypot(*self.down)
        if 1e-6 < length < 0.75 * height:
            self.across = self.across * (0.75 * height / length)
        self.unit = float(max(np.hypot(*self.across), height))
        self.usable = height >= 4 and np.hypot(*self.across) >= 4

    def at(self, u, v):
        return self.eyes + u * self.across + v * self.down


def _random_colour(rng):
    if rng.random() < 0.22:
        return rng.uniform(0, 255, 3)
    common = np.array([[238, 232, 226], [225, 195, 150], [200, 165, 95], [28, 26, 26], [60, 50, 45], [205, 200, 200], [140, 150, 90],
                       [160, 150, 215], [45, 40, 160], [110, 60, 30], [90, 110, 150]])
    return np.clip(common[int(rng.integers(len(common)))] + rng.normal(0, 14, 3), 0, 255)


def fabric(rng, size, unit, scenery=None):
    """A size x size picture of cloth. scenery: a picture that a piece may be taken from."""
    base = _random_colour(rng)
    layer = np.empty((size, size, 3), np.float32)
    layer[:] = base
    kind = rng.random()
    yy, xx = np.mgrid[0:size, 0:size].astype(np.float32)
    angle, period = rng.uniform(0, np.pi), unit * rng.uniform(0.08, 0.5)
    along = (xx * np.cos(angle) + yy * np.sin(angle)) * 2 * np.pi / period
    other = _random_colour(rng).astype(np.float32)
    if kind < 0.12:
        layer += (other - layer) * ((np.sin(along) > rng.uniform(-0.6, 0.6))[..., None])
    elif kind < 0.22:
        dots = np.sin(along) * np.sin((-xx * np.sin(angle) + yy * np.cos(angle)) * 2 * np.pi / period)
        layer += (other - layer) * ((dots > rng.uniform(0.1, 0.7))[..., None])
    elif kind < 0.32:
        blobs = cv2.resize(rng.normal(0, 1, (8, 8, 3)).astype(np.float32), (size, size), interpolation=cv2.INTER_CUBIC)
        layer += blobs * rng.uniform(20, 70)
    elif kind < 0.42 and scenery is not None and min(scenery.shape[:2]) > 16:
        h, w = scenery.shape[:2]
        s = int(rng.integers(8, min(h, w)))
        x, y = int(rng.integers(0, w - s + 1)), int(rng.integers(0, h - s + 1))
        layer[:] = cv2.resize(scenery[y:y + s, x:x + s], (size, size), interpolation=cv2.INTER_LINEAR)
    layer += rng.normal(0, rng.uniform(0, 5), (size, size, 1)).astype(np.float32)
    return layer


def _alpha(shape, polygon, soft=0.0):
    mask = np.zeros(shape[:2], np.uint8)
    cv2.fillPoly(mask, [np.round(polygon * (1 << SHIFT)).astype(np.int32)], 255, cv2.LINE_AA, SHIFT)
    if soft > 0.3:
        mask = cv2.GaussianBlur(mask, (0, 0), soft)
    return mask[..., None].astype(np.float32) / 255


def _curve(points, smooth=6):
    """A closed polygon with its corners rounded."""
    p = np.asarray(points, np.float64)
    for _ in range(2 if smooth else 0):
        n = np.roll(p, -1, 0)
        p = np.stack([0.75 * p + 0.25 * n, 0.25 * p + 0.75 * n], 1).reshape(-1, 2)
    return p


def _shade(rng, image, frame, layer):
    """The light that falls on the face falls on what is before it; sides turn away and get darker."""
    small = cv2.resize(image, None, fx=0.25, fy=0.25, interpolation=cv2.INTER_AREA)
    light = cv2.resize(cv2.GaussianBlur(small, (0, 0), max(1.0, frame.unit / 8)), image.shape[1::-1]).astype(np.float32).mean(2)
    x, y = np.clip(frame.at(0, 0.6), 0, np.array(image.shape[1::-1]) - 1).astype(int)
    level = max(float(light[y, x]), 8.0)
    ratio = np.clip(light / level, 0.45, 1.6)
    yy, xx = np.mgrid[0:image.shape[0], 0:image.shape[1]].astype(np.float32)
    a = frame.across / max(np.hypot(*frame.across), 1e-6)
    offset = ((xx - frame.nose[0]) * a[0] + (yy - frame.nose[1]) * a[1]) / frame.unit
    ratio = ratio * (1 - np.clip(rng.uniform(0.0, 0.35) * offset ** 2 + rng.uniform(-0.15, 0.15) * offset, -0.3, 0.6))
    exposure = np.clip(level / 150, 0.25, 1.25) ** rng.uniform(0.4, 1.0)
    return layer * (ratio * exposure)[..., None]


def _put(image, layer, alpha):
    return np.clip(image * (1 - alpha) + layer * alpha, 0, 255).astype(np.uint8)


def mask(rng, image, points, scenery=None, under_nose=False):
    """A worn face mask. under_nose: the nose is free, the mouth is covered."""
    frame = Frame(points)
    if not frame.usable:
        return image
    size = max(image.shape[:2])
    layer = fabric(rng, size, frame.unit, scenery)[:image.shape[0], :image.shape[1]]
    top = rng.uniform(0.66, 0.84) if under_nose else rng.uniform(0.18, 0.5)
    side_top = top + (rng.uniform(-0.05, 0.12) if under_nose else rng.uniform(0.0, 0.22))
    chin, half = rng.uniform(1.42, 1.8), rng.uniform(0.78, 1.12)
    # The nose tells which way the head is turned: the mask's middle follows it.
    lean = float(np.clip(np.dot(frame.nose - frame.at(0, 0.55), frame.across) / max(np.dot(frame.across, frame.across), 1e-6), -0.5, 0.5))
    left, right, middle = -half + 0.45 * lean, half + 0.45 * lean, lean
    style = rng.random()
    if style < 0.55:    # flat and pleated, or plain cloth
        outline = [(left, side_top), (middle - 0.2, top + 0.04), (middle, top), (middle + 0.2, top + 0.04), (right, side_top),
                   (right * 0.97, side_top + 0.5), (middle + 0.48, chin - 0.05), (middle, chin), (middle - 0.48, chin - 0.05),
                   (left * 0.97, side_top + 0.5)]
    elif style < 0.85:  # cup shaped, narrow below
        outline = [(left * 0.92, side_top + 0.15), (middle - 0.18, top + 0.05), (middle, top - 0.03), (middle + 0.18, top + 0.05),
                   (right * 0.92, side_top + 0.15), (right * 0.8, side_top + 0.6), (middle + 0.3, chin), (middle, chin + 0.05),
                   (middle - 0.3, chin), (left * 0.8, side_top + 0.6)]
    else:               # a tube of cloth down to the neck
        outline = [(left * 1.1, side_top), (middle, top), (right * 1.1, side_top), (right * 1.12, chin), (right * 0.9, chin + 0.7),
                   (left * 0.9, chin + 0.7), (left * 1.12, chin)]
    polygon = _curve([frame.at(u, v) for u, v in outline])
    if style < 0.55 and rng.random() < 0.6:  # pleats
        yy, xx = np.mgrid[0:image.shape[0], 0:image.shape[1]].astype(np.float32)
        d = frame.down / max(np.hypot(*frame.down), 1e-6)
        v = ((xx - frame.eyes[0]) * d[0] + (yy - frame.eyes[1]) * d[1]) / frame.unit
        layer *= (1 - rng.uniform(0.05, 0.22) * (np.mod(v * rng.uniform(3, 7), 1) > 0.8))[..., None]
    elif style < 0.85 and rng.random() < 0.5:  # a seam
        a, b = frame.at(middle, top), frame.at(middle, chin)
        cv2.line(layer, tuple(np.round(a).astype(int).tolist()), tuple(np.round(b).astype(int).tolist()),
                 (layer.mean((0, 1)) * rng.uniform(0.6, 1.15)).tolist(), max(1, int(frame.unit * 0.03)), cv2.LINE_AA)
    if rng.random() < 0.12:  # a print or a valve
        c = frame.at(middle + rng.uniform(-0.4, 0.4), rng.uniform(0.8, 1.2))
        radius = max(1, int(frame.unit * rng.uniform(0.05, 0.2)))
        cv2.circle(layer, tuple(np.round(c).astype(int).tolist()), radius, _random_colour(rng).tolist(), -1, cv2.LINE_AA)
    layer = _shade(rng, image, frame, layer)
    if rng.random() < 0.6 and style < 0.85:  # straps
        colour = np.clip(layer.mean((0, 1)) * rng.uniform(0.7, 1.3), 0, 255).tolist()
        image = image.copy()
        for s, edge in ((-1, left), (1, right)):
            for v in (side_top + 0.02, side_top + 0.45):
                ear = frame.at(edge + s * rng.uniform(0.2, 0.5), rng.uniform(0.0, 0.4))
                cv2.line(image, tuple(np.round(frame.at(edge * 0.95, v)).astype(int).tolist()), tuple(np.round(ear).astype(int).tolist()),
                         colour, max(1, int(frame.unit * rng.uniform(0.015, 0.05))), cv2.LINE_AA)
    # The edge throws a shadow on the cheeks.
    image = _put(image, image * np.float32(rng.uniform(0.6, 1.0)), _alpha(image.shape, polygon, frame.unit * 0.05))
    return _put(image, layer, _alpha(image.shape, polygon, frame.unit * rng.uniform(0.0, 0.012)))


def _skin(image, frame):
    x, y = np.clip(frame.at(0.3, 0.55), 1, np.array(image.shape[1::-1]) - 2).astype(int)
    return image[y - 1:y + 2, x - 1:x + 2].reshape(-1, 3).astype(np.float32).mean(0)


def hand(rng, image, points, where=None):
    """A hand over the mouth or a part of the face: fingers side by side in the face's own colour."""
    frame = Frame(points)
    if not frame.usable:
        return image
    skin = _skin(image, frame) * rng.uniform(0.75, 1.15)
    u, v = (rng.uniform(-0.35, 0.35), rng.uniform(0.75, 1.35)) if where is None else where
    angle, fingers = rng.uniform(0, 2 * np.pi), int(rng.integers(2, 6))
    thick, length = frame.unit * rng.uniform(0.15, 0.26), frame.unit * rng.uniform(0.7, 1.5)
    along, aside = np.array([np.cos(angle), np.sin(angle)]), np.array([-np.sin(angle), np.cos(angle)])
    start = frame.at(u, v) - along * length * 0.35
    layer, alpha = np.empty(image.shape, np.float32), np.zeros(image.shape[:2], np.uint8)
    layer[:] = skin
    for k in range(fingers):
        a = start + aside * thick * (k - (fingers - 1) / 2)
        b = a + along * length * rng.uniform(0.85, 1.1)
        a, b = tuple(np.round(a).astype(int).tolist()), tuple(np.round(b).astype(int).tolist())
        cv2.line(alpha, a, b, 255, max(2, int(thick * 0.96)), cv2.LINE_AA)
        cv2.line(layer, a, b, (skin * rng.uniform(0.95, 1.12)).tolist(), max(1, int(thick * 0.6)), cv2.LINE_AA)
    palm = np.array([start - along * length * 0.9 + aside * thick * fingers * 0.6, start + along * length * 0.1 + aside * thick * fingers * 0.5,
                     start + along * length * 0.1 - aside * thick * fingers * 0.5, start - along * length * 0.9 - aside * thick * fingers * 0.6])
    cv2.fillPoly(alpha, [np.round(palm * (1 << SHIFT)).astype(np.int32)], 255, cv2.LINE_AA, SHIFT)
    layer = cv2.GaussianBlur(layer, (0, 0), max(0.6, frame.unit * 0.03))
    edge = cv2.GaussianBlur(alpha, (0, 0), max(0.6, frame.unit * 0.04)).astype(np.float32)[..., None] / 255
    layer = layer * (0.6 + 0.4 * edge)
    return _put(image, layer, alpha[..., None].astype(np.float32) / 255)


def microphone(rng, image, points):
    frame = Frame(points)
    if not frame.usable:
        return image
    head = frame.at(rng.uniform(-0.35, 0.35), rng.uniform(0.95, 1.6))
    foot = head + frame.unit * np.array([rng.uniform(-1, 1), rng.uniform(0.6, 2.0)])
    image, colour = image.copy(), rng.uniform(5, 110)
    radius = frame.unit * rng.uniform(0.12, 0.3)
    cv2.line(image, tuple(np.round(head).astype(int).tolist()), tuple(np.round(foot).astype(int).tolist()), (colour * 0.7,) * 3,
             max(2, int(radius * rng.uniform(0.7, 1.4))), cv2.LINE_AA)
    cv2.ellipse(image, tuple(np.round(head).astype(int).tolist()), (max(1, int(radius)), max(1, int(radius * rng.uniform(1, 1.5)))),
                rng.uniform(0, 180), 0, 360, rng.uniform(0, 120, 3).tolist() if rng.random() < 0.3 else (colour,) * 3, -1, cv2.LINE_AA)
    return image


def beard(rng, image, points):
    """Hair around the mouth and on chin and cheeks; the lips stay free."""
    frame = Frame(points)
    if not frame.usable:
        return image
    colour = np.array([25, 30, 38]) * rng.uniform(0.4, 2.2) if rng.random() < 0.75 else np.full(3, rng.uniform(120, 210))
    top = rng.uniform(0.72, 0.95)
    outline = [(-0.72, top - 0.25), (-0.5, top + 0.05), (-0.2, top), (0, top + 0.03), (0.2, top), (0.5, top + 0.05), (0.72, top - 0.25), (0.68, 1.2),
               (0.38, rng.uniform(1.5, 1.9)), (-0.38, rng.uniform(1.5, 1.9)), (-0.68, 1.2)]
    alpha = _alpha(image.shape, _curve([frame.at(u, v) for u, v in outline]), frame.unit * rng.uniform(0.03, 0.1))
    lips = _curve([frame.at(u, v) for u, v in [(-0.33, 1.0), (0, 0.9), (0.33, 1.0), (0, 1.13)]])
    alpha = alpha * (1 - rng.uniform(0.6, 1.0) * _alpha(image.shape, lips, frame.unit * 0.02))
    hair = rng.normal(0, 1, image.shape[:2] + (1,)).astype(np.float32)
    alpha = np.clip(alpha * (rng.uniform(0.45, 0.95) + 0.35 * hair * (alpha > 0.05)), 0, 1)
    layer = np.empty(image.shape, np.float32)
    layer[:] = colour
    return _put(image, layer * (1 + 0.25 * hair), alpha)


def scarf(rng, image, points, scenery=None):
    """Cloth around the neck up to the chin or over the mouth; unlike a mask it is wider than the face and goes on below it."""
    frame = Frame(points)
    if not frame.usable:
        return image
    layer = fabric(rng, max(image.shape[:2]), frame.unit, scenery)[:image.shape[0], :image.shape[1]]
    # Folds across.
    yy, xx = np.mgrid[0:image.shape[0], 0:image.shape[1]].astype(np.float32)
    fold = np.sin((yy + rng.uniform(-0.4, 0.4) * xx) * 2 * np.pi / (frame.unit * rng.uniform(0.25, 0.6)) + 2 * np.sin(xx / frame.unit))
    layer = _shade(rng, image, frame, layer * (1 + rng.uniform(0.08, 0.3) * fold)[..., None])
    top = rng.uniform(1.15, 1.5) if rng.random() < 0.65 else rng.uniform(0.8, 1.0)
    wave = [(u, top + rng.uniform(-0.1, 0.1) - 0.15 * u * u) for u in np.linspace(-1.5, 1.5, 7)]
    polygon = _curve([frame.at(u, v) for u, v in wave + [(1.8, 4.0), (-1.8, 4.0)]])
    return _put(image, layer, _alpha(image.shape, polygon, frame.unit * 0.015))


def cup(rng, image, points):
    """A glass, cup or phone before the mouth."""
    frame = Frame(points)
    if not frame.usable:
        return image
    u, v, w, h = rng.uniform(-0.3, 0.3), rng.uniform(0.95, 1.6), rng.uniform(0.2, 0.5), rng.uniform(0.25, 0.7)
    outline = [(u - w, v - h), (u + w, v - h), (u + w * rng.uniform(0.7, 1), v + h), (u - w * rng.uniform(0.7, 1), v + h)]
    layer = np.empty(image.shape, np.float32)
    layer[:] = _random_colour(rng)
    alpha = _alpha(image.shape, np.array([frame.at(a, b) for a, b in outline])) * rng.uniform(0.75, 1.0)
    return _put(image, _shade(rng, image, frame, layer), alpha)


def glasses(rng, image, points, dark=True):
    frame = Frame(points)
    if not frame.usable:
        return image
    layer, alpha = np.empty(image.shape, np.float32), np.zeros(image.shape[:2], np.uint8)
    layer[:] = rng.uniform(0, 60, 3)
    for e in points[:2]:
        centre = tuple(np.round(e).astype(int).tolist())
        axes = max(1, int(frame.unit * rng.uniform(0.26, 0.4))), max(1, int(frame.unit * rng.uniform(0.2, 0.32)))
        cv2.ellipse(alpha, centre, axes, 0, 0, 360, 255, -1 if dark else max(1, int(frame.unit * 0.05)), cv2.LINE_AA)
    cv2.line(alpha, *(tuple(np.round(e).astype(int).tolist()) for e in points[:2]), 255, max(1, int(frame.unit * 0.05)), cv2.LINE_AA)
    return _put(image, layer, alpha[..., None].astype(np.float32) / 255 * rng.uniform(0.7, 1.0))


def headwear(rng, image, points, scenery=None):
    """A hat or a scarf over the hair: everything above the forehead."""
    frame = Frame(points)
    if not frame.usable:
        return image
    layer = _shade(rng, image, frame, fabric(rng, max(image.shape[:2]), frame.unit, scenery)[:image.shape[0], :image.shape[1]])
    brim = rng.uniform(-0.75, -0.35)
    outline = [(-1.1, brim + 0.15), (0, brim), (1.1, brim + 0.15), (1.3, -2.2), (-1.3, -2.2)]
    return _put(image, layer, _alpha(image.shape, _curve([frame.at(u, v) for u, v in outline]), frame.unit * 0.01))


def not_a_mask(rng, image, points, scenery=None):
    """Something before the mouth that is no mask."""
    u = rng.random()
    if u < 0.3:
        return hand(rng, image, points)
    if u < 0.48:
        return beard(rng, image, points)
    if u < 0.64:
        return scarf(rng, image, points, scenery)
    if u < 0.82:
        return microphone(rng, image, points)
    return cup(rng, image, points)
