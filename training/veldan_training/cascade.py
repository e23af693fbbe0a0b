"""The library's detector in Python: what one stage hands to the next, for mining training boxes and for calibration."""
import cv2
import numpy as np

ANCHOR_SCALE, CELL, STRIDE, FACTOR = 0.7937, 24, 4, 0.7937
PROPOSAL, REFINE, OUTPUT = 0.6, 0.6, 0.7  # the library's fixed score thresholds
BATCH = 128


def nms(boxes, scores, threshold, mode="u"):
    """Indices that survive, best first. Side lengths count both end pixels, as everywhere in the cascade."""
    order = np.argsort(-scores, kind="stable")
    b = boxes[order]
    area = (b[:, 2] - b[:, 0] + 1) * (b[:, 3] - b[:, 1] + 1)
    alive, kept, block = np.ones(len(b), bool), [], 256
    for first in range(0, len(b), block):
        # Overlaps of those that are still there with all behind them, in one go: a loop over boxes is slow in Python.
        own = first + np.flatnonzero(alive[first:first + block])
        rest = first + np.flatnonzero(alive[first:])
        a, r = b[own, None], b[None, rest]
        iw = np.minimum(a[..., 2], r[..., 2]) - np.maximum(a[..., 0], r[..., 0]) + 1
        ih = np.minimum(a[..., 3], r[..., 3]) - np.maximum(a[..., 1], r[..., 1]) + 1
        inter = np.maximum(iw, 0) * np.maximum(ih, 0)
        base = np.minimum(area[own, None], area[None, rest]) if mode == "m" else area[own, None] + area[None, rest] - inter
        near, still = inter / base > threshold, np.ones(len(rest), bool)
        for i in range(len(own)):  # own are the first of rest
            if still[i]:
                kept.append(order[own[i]])
                still &= ~near[i]
        alive[rest] = still
    return np.array(kept, np.int64)


def levels(rows, cols, min_size):
    scale = CELL * ANCHOR_SCALE ** 3 / min_size
    shorter, scales = min(rows, cols) * scale, []
    while shorter >= CELL:
        scales.append(scale)
        scale *= FACTOR
        shorter *= FACTOR
    chosen = list(range(0, len(scales), 3))
    if scales and chosen[-1] != len(scales) - 1:
        chosen.append(len(scales) - 1)
    return [scales[i] for i in chosen]


def square(boxes):
    w, h = boxes[:, 2] - boxes[:, 0] + 1, boxes[:, 3] - boxes[:, 1] + 1
    side = np.maximum(w, h)
    x1, y1 = np.round((w - side) * 0.5 + boxes[:, 0]), np.round((h - side) * 0.5 + boxes[:, 1])
    return np.stack([x1, y1, x1 + np.round(side - 1), y1 + np.round(side - 1)], 1)


def regress(boxes, r):
    w, h = boxes[:, 2:3] - boxes[:, 0:1] + 1, boxes[:, 3:4] - boxes[:, 1:2] + 1
    return boxes + r * np.concatenate([w, h, w, h], 1)


def crop(image, box, size):
    x1, y1, x2, y2 = (int(v) for v in box)
    h, w = image.shape[:2]
    if x1 < 0 or y1 < 0 or x2 > w or y2 > h:
        piece = np.zeros((max(y2 - y1, 1), max(x2 - x1, 1), 3), np.uint8)
        cx1, cy1, cx2, cy2 = max(x1, 0), max(y1, 0), min(x2, w), min(y2, h)
        if cx2 > cx1 and cy2 > cy1:
            piece[cy1 - y1:cy2 - y1, cx1 - x1:cx2 - x1] = image[cy1:cy2, cx1:cx2]
    else:
        piece = image[y1:y2, x1:x2]
    return cv2.resize(piece, (size, size), interpolation=cv2.INTER_LINEAR)


class Cascade:
    def __init__(self, proposal, refine=None, output=None):
        """Each argument is the exported network file's bytes."""
        def read(data):
            return cv2.dnn.readNetFromTensorflow(np.frombuffer(data, np.uint8)) if data else None
        self.p, self.r, self.o = read(proposal), read(refine), read(output)

    def proposals(self, image, min_size=45, threshold=PROPOSAL):
        """Squared boxes (left, top, right, bottom) and scores, best first."""
        rows, cols = image.shape[:2]
        boxes, scores, regression = [np.zeros((0, 4))], [np.zeros(0)], [np.zeros((0, 4))]
        for s in levels(rows, cols, min_size):
            size = (int(np.ceil(np.float32(s * cols))), int(np.ceil(np.float32(s * rows))))
            level = cv2.resize(image, size, interpolation=cv2.INTER_LINEAR)
            self.p.setInput(cv2.dnn.blobFromImage(level, 0.0078125, None, (127.5,) * 3), "input_image")
            cls, loc = self.p.forward(["conv5_1/Conv2D", "conv5_2/Conv2D"])
            h, w = cls.shape[2:]
            logit = cls.reshape(4, 2, h, w)
            p = 1 / (1 + np.exp(logit[:, 0] - logit[:, 1]))
            a, r, c = np.nonzero(p >= threshold)
            if len(a) == 0:
                continue
            side = CELL * ANCHOR_SCALE ** a
            x, y = 12 + STRIDE * c - side / 2, 12 + STRIDE * r - side / 2
            b = np.stack([x, y, x + side, y + side], 1) / s
            score, reg = p[a, r, c], loc.reshape(4, 4, h, w).transpose(0, 2, 3, 1)[a, r, c]
            keep = nms(b, score, 0.7)
            boxes.append(b[keep])
            scores.append(score[keep])
            regression.append(reg[keep])
        b, score, reg = np.concatenate(boxes), np.concatenate(scores), np.concatenate(regression)
        keep = nms(b, score, 0.7)
        b, score, reg = b[keep], score[keep], reg[keep]
        w, h = b[:, 2] - b[:, 0] + 1, b[:, 3] - b[:, 1] + 1
        nw, nh = np.exp(0.2 * reg[:, 2]) * w, np.exp(0.2 * reg[:, 3]) * h
        dx, dy = 0.1 * reg[:, 0] * w, 0.1 * reg[:, 1] * h
        b = b + np.stack([dx - (nw - w) / 2, dy - (nh - h) / 2, dx + (nw - w) / 2, dy + (nh - h) / 2], 1)
        return square(b[:5000]), score[:5000]

    def run(self, net, image, boxes, size, outputs):
        results = [[] for _ in outputs]
        for i in range(0, len(boxes), BATCH):
            crops = [crop(image, b, size) for b in boxes[i:i + BATCH]]
            net.setInput(cv2.dnn.blobFromImages(crops, 0.0078125, None, (127.5,) * 3), "input_image")
            for result, out in zip(results, net.forward(outputs)):
                result.append(out)
        return [np.concatenate(r) for r in results]

    def refined(self, image, min_size=45, threshold=REFINE, proposal_threshold=PROPOSAL):
        """Squared boxes that the output network gets, and their scores."""
        boxes, _ = self.proposals(image, min_size, proposal_threshold)
        if len(boxes) == 0:
            return boxes, np.zeros(0)
        cls, reg = self.run(self.r, image, boxes, 24, ["cls_fc/Softmax", "bbox_fc/MatMul"])
        good = cls[:, 1] >= threshold
        boxes, scores, reg = boxes[good], cls[good, 1], reg[good]
        keep = nms(boxes, scores, 0.7, "m")
        return square(regress(boxes[keep], reg[keep])), scores[keep]

    def detect(self, image, min_size=None, threshold=OUTPUT, refine_threshold=REFINE, proposal_threshold=PROPOSAL):
        """Boxes (left, top, right, bottom), scores and points (n x 10)."""
        if min_size is None:
            min_size = 70 if image.shape[1] >= 641 and image.shape[0] >= 481 else 45
        boxes, _ = self.refined(image, min_size, refine_threshold, proposal_threshold)
        if len(boxes) == 0:
            return boxes, np.zeros(0), np.zeros((0, 10))
        cls, reg, points = self.run(self.o, image, boxes, 48, ["cls_fc/Softmax", "bbox_fc/MatMul", "landmark_fc/MatMul"])
        good = cls[:, 1] >= threshold
        boxes, scores, reg, points = boxes[good], cls[good, 1], reg[good], points[good]
        side = boxes[:, 2:3] - boxes[:, 0:1] + 1
        points = points * side + np.tile(boxes[:, :2], 5)
        out = regress(boxes, reg)
        keep = nms(out, scores, 0.7, "m")
        return out[keep], scores[keep], points[keep]


def fit(image, longer):
    """The picture scaled so that its longer side is `longer`, and the scale."""
    h, w = image.shape[:2]
    scale = longer / max(h, w)
    return cv2.resize(image, (max(1, round(w * scale)), max(1, round(h * scale))),
                      interpolation=cv2.INTER_AREA if scale < 1 else cv2.INTER_LINEAR), scale
