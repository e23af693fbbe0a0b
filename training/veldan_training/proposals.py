"""Training data and loss of the proposal network."""
import cv2
import numpy as np
import torch
import torch.nn.functional as F

from . import augment, photos

ANCHORS = 24.0 * 0.7937 ** np.arange(4)
STRIDE = 4
PIXELS = 64 * 88 * 88           # a batch of patches has about this many pixels
CENTRE_VARIANCE, SIZE_VARIANCE = 0.1, 0.2


def anchors(width, height):
    """n x 3 of a patch: centre x, centre y, side; anchor-major, then row by row, as the network's maps lie."""
    cy, cx = np.meshgrid(np.arange(12, height - 11, STRIDE, dtype=np.float32),
                         np.arange(12, width - 11, STRIDE, dtype=np.float32), indexing="ij")
    return np.concatenate([np.stack([cx.ravel(), cy.ravel(), np.full(cx.size, a, np.float32)], 1) for a in ANCHORS])


def squares_overlap(a, b):
    """IoU of squares given as centre x, centre y, side, and the part of a that b covers; both n x m."""
    half = (a[:, None, 2] + b[None, :, 2]) / 2
    small = np.minimum(a[:, None, 2], b[None, :, 2])
    ix = np.clip(half - np.abs(a[:, None, 0] - b[None, :, 0]), 0, small)
    iy = np.clip(half - np.abs(a[:, None, 1] - b[None, :, 1]), 0, small)
    inter = ix * iy
    area = a[:, None, 2] ** 2
    return inter / (area + b[None, :, 2] ** 2 - inter), inter / area


def label(faces, certain, grid):
    """Labels (1 face, 0 background, -1 ignored) and regression targets of one patch.

    faces: n x 4 boxes in the patch; they are squared as the later stages square them."""
    labels = np.zeros(len(grid), np.int64)
    targets = np.zeros((len(grid), 4), np.float32)
    if len(faces) == 0:
        return labels, targets
    side = np.maximum(faces[:, 2], faces[:, 3])
    squares = np.stack([faces[:, 0] + faces[:, 2] / 2, faces[:, 1] + faces[:, 3] / 2, side], 1)
    iou, covered = squares_overlap(grid, squares)
    # Far too small for any anchor, or not surely a face: ignored. Far too big: its parts are background.
    usable = certain & (side >= 10.5)
    doubtful = ~usable
    if doubtful.any():
        labels[((iou[:, doubtful] > 0.2) | (covered[:, doubtful] > 0.5)).any(1)] = -1
    if usable.any():
        u, s = iou[:, usable], squares[usable]
        best = u.argmax(1)
        value = u[np.arange(len(grid)), best]
        # A narrow band is ignored: every anchor that may fire costs the refinement network a crop.
        labels[value > 0.45] = -1
        positive = value >= 0.58
        for k in range(len(s)):
            # Where no anchor fits (a face cut by the picture's edge, a level with few cells) the nearest ones stand in.
            top = u[:, k].max()
            if 0.28 <= top < 0.58:
                near = u[:, k] >= 0.92 * top
                positive |= near
                best[near] = k
        labels[positive] = 1
        t = s[best]
        targets[:, 0] = (t[:, 0] - grid[:, 0]) / grid[:, 2] / CENTRE_VARIANCE
        targets[:, 1] = (t[:, 1] - grid[:, 1]) / grid[:, 2] / CENTRE_VARIANCE
        targets[:, 2] = targets[:, 3] = np.log(t[:, 2] / grid[:, 2]) / SIZE_VARIANCE
    return labels, targets


def hard(photo):
    """Faces of everyday scenes that are turned far to the side are rare and easily lost."""
    return photo.pack in photos.EVERYDAY and bool(photos.profile(photo.points[photo.certain]).any())


class Patches(torch.utils.data.IterableDataset):
    """Endless random patches of photos at the scales of the pyramid."""

    def __init__(self, photo_list, seed):
        self.photos, self.seed = photo_list, seed
        weight = {"groups": 4.0, "helen": 1.0, "portraits": 1.0, "mask_close": 0.8, "net80": 0.35, "babies": 1.5}
        self.with_faces = [p for p in photo_list if p.certain.any()]
        w = np.array([weight.get(p.pack, 1.0) * (2 if hard(p) else 1) for p in self.with_faces])
        self.face_weight = w / w.sum()
        self.without = [p for p in photo_list if not p.certain.any()]

    def __iter__(self):
        info = torch.utils.data.get_worker_info()
        rng = np.random.default_rng([self.seed, info.id if info else 0])
        cv2.setNumThreads(1)
        while True:
            width, height = self.shape(rng)
            grid, batch = anchors(width, height), []
            for _ in range(min(PIXELS // (width * height), 320)):
                faces = rng.random() < 0.7
                photo = self.with_faces[rng.choice(len(self.with_faces), p=self.face_weight)] if faces \
                    else self.without[int(rng.integers(len(self.without)))]
                batch.append(self.patch(rng, photo, width, height, grid))
            yield tuple(torch.from_numpy(np.stack(part)) for part in zip(*batch))

    @staticmethod
    def shape(rng):
        """Levels are large or, for the large faces, hardly larger than the window; there the network sees its own border."""
        u = rng.random()
        if u < 0.45:
            return 88, 88
        low, high = (24, 31) if u < 0.8 else (31, 62)
        short, aspect = rng.uniform(low, high), rng.uniform(1, 1.8)
        sides = int(short), int(short * aspect)
        return sides if rng.random() < 0.4 else sides[::-1]

    def patch(self, rng, photo, width, height, grid):
        h, w = photo.image.shape[:2]
        if photo.certain.any() and rng.random() < 0.85:
            k = rng.choice(np.flatnonzero(photo.certain))
            x, y, bw, bh = photo.boxes[k]
            target = np.exp(rng.uniform(np.log(10.8), np.log(min(34, min(width, height)))))
            scale = target / max(bw, bh)
            room = np.maximum(np.array([width, height]) / 2 - target * 0.5, 0) + (target * 0.2 if rng.random() < 0.3 else 1)
            dx, dy = rng.uniform(-1, 1, 2) * room
            cx, cy = (x + bw / 2) * scale + dx, (y + bh / 2) * scale + dy
        else:
            scale = 640 / max(h, w) * 0.2667 * 0.5 ** rng.uniform(0, 3)
            cx, cy = rng.uniform(0, w * scale), rng.uniform(0, h * scale)
        # The level is a whole picture, so a patch is filled by one; small pictures are drawn larger.
        scale = max(scale, min(1.25 * scale, max(width / w, height / h)))
        stretch = np.exp(rng.normal(0, 0.05, 2))
        sx, sy = scale * stretch
        # Most patches keep to the picture, as levels do; where the picture is smaller, the rest is black.
        if w * sx > width and rng.random() < 0.9:
            cx = np.clip(cx, width / 2, w * sx - width / 2)
        if h * sy > height and rng.random() < 0.9:
            cy = np.clip(cy, height / 2, h * sy - height / 2)
        # Sampled like cv::resize: bilinear between the four neighbours, whatever the scale.
        image = photo.image
        if rng.random() < 0.25 and scale < 0.5:
            image = cv2.blur(image, (int(1 / scale), int(1 / scale)))
        x0, y0 = cx - width / 2, cy - height / 2
        m = np.array([[1 / sx, 0, (x0 + 0.5) / sx - 0.5], [0, 1 / sy, (y0 + 0.5) / sy - 0.5]])
        patch = cv2.warpAffine(image, m, (width, height), flags=cv2.INTER_LINEAR | cv2.WARP_INVERSE_MAP,
                               borderMode=cv2.BORDER_CONSTANT)
        boxes = photo.boxes * np.array([sx, sy, sx, sy], np.float32) - np.array([x0, y0, 0, 0], np.float32)
        if rng.random() < 0.5:
            patch = patch[:, ::-1]
            boxes = boxes.copy()
            boxes[:, 0] = width - boxes[:, 0] - boxes[:, 2]
        certain = photo.certain.copy()
        patch = augment.resolution(rng, augment.colour(rng, patch), 0.5)
        for k in np.flatnonzero(photo.certain):
            if 10 < boxes[k, 3] < 40 and rng.random() < 0.1:
                patch = augment.occlude(rng, patch, boxes[k])
        near = (boxes[:, 0] < width) & (boxes[:, 1] < height) & (boxes[:, 0] + boxes[:, 2] > 0) & (boxes[:, 1] + boxes[:, 3] > 0)
        labels, targets = label(boxes[near], certain[near], grid)
        return np.ascontiguousarray(patch.transpose(2, 0, 1)), labels, targets


def loss(outputs, labels, targets):
    """Cross entropy over the face anchors and the hardest background anchors, smooth L1 on the face anchors."""
    n = labels.shape[0]
    logits = outputs[0].reshape(n, 4, 2, -1).permute(0, 1, 3, 2).reshape(-1, 2)
    boxes = outputs[1].reshape(n, 4, 4, -1).permute(0, 1, 3, 2).reshape(-1, 4)
    labels, targets = labels.reshape(-1), targets.reshape(-1, 4)
    ce = F.cross_entropy(logits, labels.clamp(min=0), reduction="none")
    positive, negative = labels == 1, labels == 0
    count = max(int(positive.sum()), 32)
    hard = ce[negative].topk(min(6 * count, int(negative.sum()))).values
    box = F.smooth_l1_loss(boxes[positive], targets[positive], reduction="sum") / (4 * count)
    return ce[positive].sum() / count + hard.sum() / (3 * count), box
