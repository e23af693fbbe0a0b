"""Simulated presentation attacks: what a face looks like when a print or a screen is held before the camera.

Few photographs of real attacks can be had openly, so these are drawn. `unit` is the side of the aligned crop in pixels of the
picture; every length follows it or is in camera pixels where the camera makes it. The kinds in HELD_OUT are never trained
on: they show how far the network carries beyond what it was shown. All pictures are float32, blue green red, 0 to 255.
"""
import cv2
import numpy as np

PRINTS = ("halftone", "inkjet", "glossy print", "cut-out print")
SCREENS = ("pixel grid", "moire", "bands", "screen glare", "soft screen", "device edge")
HELD_OUT = ("newsprint", "pentile screen", "projection")
NIR_KINDS = ("dark screen", "dye print", "toner print", "glossy print")
NIR_HELD_OUT = ("bright screen", "newsprint")

_grids = {}


def _grid(shape):
    h, w = shape[:2]
    if (h, w) not in _grids:
        if len(_grids) > 64:
            _grids.clear()
        _grids[h, w] = tuple(a.astype(np.float32) for a in np.mgrid[0:h, 0:w])
    return _grids[h, w]


def _wave(rng, shape, period, angle=None, bend=0.0):
    """Phase of a line pattern in camera pixels; bend: how much a curved or tilted surface stretches it."""
    yy, xx = _grid(shape)
    a = rng.uniform(0, np.pi) if angle is None else angle
    s = xx * np.float32(np.cos(a)) + yy * np.float32(np.sin(a))
    if bend:
        t = yy * np.float32(np.cos(a)) - xx * np.float32(np.sin(a))
        n = float(max(shape[:2]))
        s = s * np.float32(1 + bend * rng.uniform(-1, 1)) + np.float32(bend * rng.uniform(-1, 1) / n) * s * t \
            + np.float32(bend * rng.uniform(-1, 1) / n) * t * t
    return s * np.float32(2 * np.pi / period) + np.float32(rng.uniform(0, 6.3))


def _clouds(rng, shape, cells, channels=1):
    c = rng.normal(0, 1, (cells, cells, channels)).astype(np.float32)
    out = cv2.resize(c, (shape[1], shape[0]), interpolation=cv2.INTER_CUBIC)
    return out.reshape(shape[0], shape[1], channels)


def _tone(rng, x, low, high, gamma, saturation, cast):
    """Gamut of a medium: black and white points, gamma, saturation, colour cast."""
    x = np.power(np.clip(x, 0, 255) * np.float32(1 / 255), np.float32(rng.uniform(*gamma)))
    grey = x.mean(2, keepdims=True)
    x = grey + (x - grey) * np.float32(rng.uniform(*saturation))
    black, white = rng.uniform(*low), rng.uniform(*high)
    return (black + x * np.float32(white - black)) * (1 + rng.normal(0, cast, 3)).astype(np.float32)


def _light(rng, x, strength):
    """The room's light on a flat sheet: a smooth ramp."""
    yy, xx = _grid(x.shape)
    a, n = rng.uniform(0, 2 * np.pi), float(max(x.shape[:2]))
    ramp = (np.float32(np.cos(a)) * (xx / n - 0.5) + np.float32(np.sin(a)) * (yy / n - 0.5)) * np.float32(rng.uniform(0, strength))
    return x * (1 + ramp)[..., None]


def _glare(rng, x, unit, amount):
    """Reflected lamps and windows: soft blobs and straight edged patches, white or tinted."""
    yy, xx = _grid(x.shape)
    h, w = x.shape[:2]
    for _ in range(int(rng.integers(1, 3))):
        cx, cy = rng.uniform(0, w), rng.uniform(0, h)
        if rng.random() < 0.6:
            rx, ry = unit * rng.uniform(0.06, 0.5), unit * rng.uniform(0.06, 0.5)
            shine = np.exp(-((xx - cx) / rx) ** 2 - ((yy - cy) / ry) ** 2)
        else:
            box = cv2.boxPoints(((cx, cy), (unit * rng.uniform(0.1, 0.7), unit * rng.uniform(0.2, 1.2)), rng.uniform(0, 90)))
            shine = np.zeros((h, w), np.float32)
            cv2.fillPoly(shine, [np.round(box).astype(np.int32)], 1.0, cv2.LINE_AA)
            shine = cv2.GaussianBlur(shine, (0, 0), max(0.6, unit * rng.uniform(0.005, 0.05)))
        tint = np.float32(rng.uniform(0.8, 1.0, 3) * 255 * rng.uniform(*amount))
        x = x + shine[..., None] * tint
    return x


def _screen_dots(rng, x, period, hardness, line=False):
    """Ink dots: each ink has its own raster angle."""
    out = np.empty_like(x)
    base = rng.uniform(0, np.pi / 2)
    for c, turn in enumerate((0.0, 0.26, 0.52)):
        u = np.cos(_wave(rng, x.shape, period, base + turn, 0.04))
        if line:
            raster = 0.5 + 0.5 * u
        else:
            raster = 0.5 + 0.25 * (u + np.cos(_wave(rng, x.shape, period, base + turn + np.pi / 2, 0.04)))
        out[..., c] = np.clip((x[..., c] / 255 - raster) * hardness + 0.5, 0, 1) * 255
    return out


def _paper(rng, x, strength):
    fibre = _clouds(rng, x.shape, int(rng.integers(20, 60))) * 0.5 + rng.normal(0, 1, x.shape[:2] + (1,)).astype(np.float32) * 0.5
    return x * (1 + np.float32(rng.uniform(*strength)) * fibre)


def _edges(rng, x, unit, bezel, centre):
    """The end of the sheet or of the device somewhere beside the face; behind it something else."""
    h, w = x.shape[:2]
    cx, cy = (w / 2, h / 2) if centre is None else centre
    sheet = cv2.boxPoints(((cx + unit * rng.normal(0, 0.04), cy + unit * rng.normal(0, 0.04)),
                           (unit * rng.uniform(0.78, 1.05), unit * rng.uniform(0.85, 1.15)), rng.normal(0, 5)))
    inside = np.zeros((h, w), np.float32)
    cv2.fillPoly(inside, [np.round(sheet * 16).astype(np.int32)], 1.0, cv2.LINE_AA, 4)
    behind = np.float32(rng.uniform(20, 230)) + _clouds(rng, x.shape, 4, 3) * np.float32(rng.uniform(5, 40))
    rim_width = max(1, int(unit * rng.uniform(0.02, 0.12)))
    rim = cv2.dilate(inside, np.ones((rim_width * 2 + 1,) * 2, np.uint8))[..., None]
    colour = np.float32(rng.uniform(0, 40, 3) if bezel else rng.uniform(200, 255) * np.ones(3))
    behind = behind * (1 - rim) + colour * rim
    return x * inside[..., None] + behind * (1 - inside[..., None])


def _subpixels(rng, x, period, depth):
    """Red, green and blue stripes side by side, and the dark rows between pixels. Periods near the camera's own give moire."""
    angle, bend = rng.normal(0, 0.08) + (np.pi / 2 if rng.random() < 0.15 else 0), 0.06
    phase = _wave(rng, x.shape, period, angle, bend)
    rows = _wave(rng, x.shape, period * rng.uniform(0.95, 1.05), angle + np.pi / 2, bend)
    mask = np.stack([1 + depth * np.cos(phase + k * 2 * np.pi / 3) for k in range(3)], 2)
    return x * mask * (1 + 0.6 * depth * np.cos(rows))[..., None]


def _moire(rng, x, unit, strength):
    """The slow coloured waves themselves."""
    for _ in range(int(rng.integers(1, 4))):
        p = _wave(rng, x.shape, unit * np.exp(rng.uniform(np.log(0.03), np.log(0.4))), None, 0.6)
        tint = rng.normal(0, 1, 3).astype(np.float32) + rng.normal(0, 0.7)
        x = x + np.cos(p)[..., None] * tint * np.float32(rng.uniform(*strength))
    return x


def _bands(rng, x, unit):
    """Rolling bars of a screen that is refreshed while the camera reads its rows."""
    p = _wave(rng, x.shape, unit * rng.uniform(0.12, 1.4), np.pi / 2 + rng.normal(0, 0.02))
    bar = np.clip(np.cos(p) * rng.uniform(1, 6) + rng.uniform(-1, 1), -1, 1)
    tint = (1 + rng.normal(0, 0.15, 3)).astype(np.float32)
    return x * (1 - np.float32(rng.uniform(0.1, 0.35)) * (0.5 + 0.5 * bar)[..., None] * tint)


def _curl(rng, x, unit):
    """A sheet that is not flat, a device that is not square to the camera."""
    yy, xx = _grid(x.shape)
    a, b = np.float32(unit * rng.uniform(0, 0.02)), np.float32(2 * np.pi / (unit * rng.uniform(1.2, 4)))
    return cv2.remap(x, xx + a * np.sin(yy * b + np.float32(rng.uniform(0, 6))), yy + a * np.sin(xx * b + np.float32(rng.uniform(0, 6))),
                     cv2.INTER_LINEAR, borderMode=cv2.BORDER_REPLICATE)


def _soften(rng, x, unit, low, high):
    return cv2.GaussianBlur(x, (0, 0), max(0.05, unit / 168 * rng.uniform(low, high)))


def attack(rng, kind, image, unit, centre=None):
    """The picture as a camera sees it when it is shown on the medium `kind`; centre: of the face, when it is not the picture's."""
    x = image.astype(np.float32)
    if kind in PRINTS or kind == "newsprint":
        x = _soften(rng, x, unit, 0.0, 0.9)  # the original that was printed was a photo itself
        if kind == "newsprint":
            x = np.repeat(x.mean(2, keepdims=True), 3, 2)
            x = _tone(rng, x, (30, 70), (150, 220), (0.8, 1.3), (1, 1), 0.03)
            x = x * 0.3 + 0.7 * _screen_dots(rng, x, unit / 168 * rng.uniform(2.5, 6), rng.uniform(1.2, 3), True).mean(2, keepdims=True)
            x = x * np.float32([0.86, 0.95, 1.0])
        else:
            x = _tone(rng, x, (5, 60), (170, 250), (0.7, 1.4), (0.45, 1.15), 0.07)
            if kind == "halftone" or rng.random() < 0.15:
                mix = np.float32(rng.uniform(0.25, 0.9))
                x = x * (1 - mix) + mix * _screen_dots(rng, x, unit / 168 * np.exp(rng.uniform(np.log(1.6), np.log(6))), rng.uniform(1.0, 4))
            if kind == "inkjet":
                x = x + rng.normal(0, rng.uniform(4, 16), x.shape).astype(np.float32)
                if rng.random() < 0.6:  # passes of the head
                    depth = np.float32(rng.uniform(0.02, 0.09))
                    wave = _wave(rng, x.shape, unit * rng.uniform(0.02, 0.12), np.pi / 2 * int(rng.integers(2)) + rng.normal(0, 0.05))
                    x = x * (1 + depth * np.cos(wave))[..., None]
        x = _paper(rng, x, (0.01, 0.07))
        x = _curl(rng, x, unit)
        if kind == "glossy print" or rng.random() < 0.15:
            x = _glare(rng, x, unit, (0.2, 0.8))
        if kind == "cut-out print":
            x = _edges(rng, x, unit, False, centre)
        x = _light(rng, x, 0.5)
        x = _soften(rng, x, unit, 0.3, 1.1)
    elif kind == "projection":
        x = _tone(rng, x, (40, 90), (140, 210), (0.8, 1.3), (0.4, 0.9), 0.1)
        pixel = unit / 168 * rng.uniform(2.5, 6)
        lattice = np.maximum(np.cos(_wave(rng, x.shape, pixel, 0.02, 0.02)), np.cos(_wave(rng, x.shape, pixel, np.pi / 2 + 0.02, 0.02)))
        x = _soften(rng, x * (1 - 0.25 * np.clip(lattice - 0.5, 0, 1))[..., None], unit, 0.4, 1.2)
        x = _paper(rng, x, (0.005, 0.02))
        x = _light(rng, x, 0.6)
    else:
        # A screen lifts black by what it reflects, has its own gamma and often a blue white.
        x = _soften(rng, x, unit, 0.0, 1.0)
        x = _tone(rng, x, (0, 50), (175, 265), (0.65, 1.6), (0.6, 1.5), 0.09)
        if kind == "pixel grid":
            x = _subpixels(rng, x, np.exp(rng.uniform(np.log(1.05), np.log(5))), rng.uniform(0.15, 0.5))
        elif kind == "moire":
            x = _subpixels(rng, x, rng.uniform(0.93, 1.15), rng.uniform(0.1, 0.35)) if rng.random() < 0.4 else x
            x = _moire(rng, x, unit, (4, 15))
        elif kind == "pentile screen":
            pixel = unit / 168 * rng.uniform(1.8, 4.5)
            a, b = _wave(rng, x.shape, pixel, np.pi / 4, 0.05), _wave(rng, x.shape, pixel, 3 * np.pi / 4, 0.05)
            depth = rng.uniform(0.15, 0.45)
            x = x * np.stack([1 + depth * np.cos(a), 1 + 0.5 * depth * (np.cos(a) + np.cos(b)), 1 + depth * np.cos(b)], 2)
        if kind == "bands" or rng.random() < 0.12:
            x = _bands(rng, x, unit)
        if kind == "screen glare" or rng.random() < 0.15:
            x = _glare(rng, x, unit, (0.12, 0.7))
        if kind == "device edge":
            x = _edges(rng, x, unit, True, centre)
        elif kind in ("soft screen", "bands", "screen glare") and rng.random() < 0.5:
            x = _moire(rng, x, unit, (0.5, 4))
        x = _light(rng, x, 0.3)
        # A camera meters the bright screen: it burns out, or its surroundings go dark.
        x = (x - 128) * np.float32(rng.uniform(0.85, 1.5)) + 128 + np.float32(rng.uniform(-35, 45))
        x = _soften(rng, x, unit, 0.9, 2.8) if kind == "soft screen" else _soften(rng, x, unit, 0.2, 0.9)
    return np.clip(x, 0, 255)


# Near infrared ---------------------------------------------------------------------------------------------------------

def _grey(rng, image):
    """Skin reflects near infrared much as it does red light, hair and cloth get brighter, colours vanish."""
    x = image.astype(np.float32)
    red = rng.uniform(0.6, 1.0)
    return x[..., 2] * np.float32(red) + x[..., 1] * np.float32(1 - red)


def _near(x, points, unit):
    """1 on the face, falling to 0 where the background is."""
    yy, xx = _grid(x.shape)
    eyes, mouth = points[:2].mean(0), points[3:].mean(0)
    c, down = 0.45 * eyes + 0.55 * mouth, mouth - eyes
    n = max(float(np.hypot(*down)), 1e-6)
    d = down / n
    v = ((xx - c[0]) * np.float32(d[0]) + (yy - c[1]) * np.float32(d[1])) / (unit * 0.58)
    u = ((xx - c[0]) * np.float32(-d[1]) + (yy - c[1]) * np.float32(d[0])) / (unit * 0.44)
    return np.clip(2.2 - 2.0 * np.sqrt(u * u + v * v), 0, 1), np.clip(1 - 0.5 * (u * u + v * v), 0, 1)


def near_infrared(rng, image, points, unit):
    """A live face before a near-infrared camera with its own lamp. Simulated: no such photographs were at hand."""
    x = _grey(rng, image)
    near, round_ = _near(x, points, unit)
    # Skin evens out: blemishes and make-up do not show, large forms do.
    smooth = cv2.bilateralFilter(np.clip(x, 0, 255).astype(np.uint8), 5, rng.uniform(12, 45), unit / 168 * rng.uniform(1.5, 4)).astype(np.float32)
    keep = rng.uniform(0.0, 0.5)
    x = smooth * (1 - keep) + x * keep
    low = cv2.GaussianBlur(x, (0, 0), unit * 0.12)
    x = low + (x - low) * np.float32(rng.uniform(0.55, 1.0))
    level = float((x * near).sum() / max(near.sum(), 1.0))
    x = x * np.float32(rng.uniform(110, 185) / max(level, 20.0)) if rng.random() < 0.8 else x
    # The lamp is beside the lens: what is near and turned to it is bright, the room behind is dark.
    x = x * (1 - np.float32(rng.uniform(0.1, 0.5)) * (1 - round_)) * (near + (1 - near) * np.float32(rng.uniform(0.1, 0.75)))
    yy, xx = _grid(x.shape)
    for e in points[:2]:
        if rng.random() < 0.85:  # the lamp's reflection, and the pupil that sends it back
            r = unit * rng.uniform(0.012, 0.03)
            glow = np.exp(-((xx - e[0] - rng.normal(0, unit * 0.012)) ** 2 + (yy - e[1] - rng.normal(0, unit * 0.012)) ** 2) / (2 * r * r))
            x = x + glow * np.float32(rng.uniform(30, 150))
    if rng.random() < 0.3:  # shine on forehead and nose
        x = x + np.float32(rng.uniform(10, 60)) * np.clip(_clouds(rng, x.shape, 6)[..., 0], 0, 1) * near
    return np.clip(x, 0, 255)


def near_infrared_attack(rng, kind, image, points, unit):
    """The same camera before a medium: a screen sends out no near infrared, dyes let it through, toner absorbs it. All simulated."""
    x = _grey(rng, image)
    yy, xx = _grid(x.shape)
    n = float(max(x.shape[:2]))
    if "screen" in kind:
        low = cv2.GaussianBlur(x, (0, 0), max(0.3, unit / 168 * rng.uniform(0.5, 2.5)))
        if kind == "dark screen":      # what little shows is a faint ghost of the picture
            x = rng.uniform(5, 60) + (low - low.mean()) * np.float32(rng.uniform(0.03, 0.35))
        else:                          # a screen with a backlight that leaks, and its pixels
            x = rng.uniform(70, 150) + (low - low.mean()) * np.float32(rng.uniform(0.4, 0.9))
            x = x * (1 + 0.2 * np.cos(_wave(rng, x.shape, rng.uniform(1.1, 4), None, 0.05)))
        x = _glare(rng, np.repeat(x[..., None], 3, 2), unit, (0.1, 0.7))[..., 0] if rng.random() < 0.7 else x
    else:
        if kind == "dye print":        # bright paper with little of the picture left
            x = rng.uniform(130, 215) + (x - x.mean()) * np.float32(rng.uniform(0.06, 0.4))
        elif kind == "newsprint":
            x = np.clip((x / 255 - 0.5 - 0.4 * np.cos(_wave(rng, x.shape, unit / 168 * rng.uniform(2.5, 5), None, 0.03))) * 2 + 0.5, 0, 1) * 160 + 40
        else:
            x = rng.uniform(20, 70) + np.clip(x, 0, 255) / 255 * np.float32(rng.uniform(100, 170))
        if kind == "toner print":
            period, hard = unit / 168 * np.exp(rng.uniform(np.log(1.6), np.log(5))), rng.uniform(1.0, 3.5)
            dots = _screen_dots(rng, np.repeat(x[..., None], 3, 2), period, hard)[..., 0]
            mix = np.float32(rng.uniform(0.15, 0.9))
            x = x * (1 - mix) + dots * mix
        x = _paper(rng, x[..., None], (0.01, 0.08))[..., 0]
        if kind == "glossy print" or rng.random() < 0.2:
            x = _glare(rng, np.repeat(x[..., None], 3, 2), unit, (0.15, 0.8))[..., 0]
        x = _curl(rng, x, unit)
    # The lamp lights a flat thing evenly: a spot that knows nothing of the face.
    cx, cy = rng.uniform(0.2, 0.8, 2) * n
    x = x * (1 - np.float32(rng.uniform(0, 0.5)) * np.clip(((xx - cx) ** 2 + (yy - cy) ** 2) / np.float32(n * n), 0, 1))
    return np.clip(_soften(rng, x, unit, 0.2, 1.6), 0, 255)


def camera(rng, image, worst=1.0):
    """What every camera does to live faces and attacks alike: exposure, white balance, blur, noise, compression.

    Both classes must get the same, or the network learns the codec instead of the attack."""
    x = image.astype(np.float32)
    if rng.random() < 0.6:
        x = x * np.float32(rng.uniform(0.65, 1.35)) + np.float32(rng.uniform(-25, 25))
    if rng.random() < 0.12 * worst:
        x = x * np.float32(rng.uniform(0.2, 0.6))
    elif rng.random() < 0.12 * worst:
        x = x * np.float32(rng.uniform(1.3, 2.2)) + np.float32(rng.uniform(0, 40))
    if x.ndim == 3:
        if rng.random() < 0.5:
            x = x * (1 + rng.normal(0, 0.08, 3)).astype(np.float32)
        if rng.random() < 0.3:
            g = x.mean(2, keepdims=True)
            x = g + (x - g) * np.float32(rng.uniform(0.0, 1.5))
    if rng.random() < 0.4:
        x = np.float32(255) * np.power(np.clip(x, 0, 255) / 255, np.float32(rng.uniform(0.65, 1.5)))
    if rng.random() < 0.35 * worst:
        x = cv2.GaussianBlur(x, (0, 0), rng.uniform(0.3, 1.6))
    if rng.random() < 0.45 * worst:
        x = x + rng.normal(0, rng.uniform(0.5, 9), x.shape).astype(np.float32)
    if rng.random() < 0.12:  # a scaler that sharpens
        x = x + (x - cv2.GaussianBlur(x, (0, 0), 1.2)) * np.float32(rng.uniform(0.3, 1.2))
    x = np.clip(x, 0, 255).astype(np.uint8)
    if rng.random() < 0.6:
        x = cv2.imdecode(cv2.imencode(".jpg", x, [cv2.IMWRITE_JPEG_QUALITY, int(rng.integers(90 - int(50 * worst), 97))])[1], 1 if x.ndim == 3 else 0)
    return x
