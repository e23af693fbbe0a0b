"""Moves a network's face score so that the library's fixed thresholds fall where the trade-off is best.

All figures come from the development photos (kept out of training); the shift is a constant added to the face logit."""
import numpy as np

from . import cascade, photos

MIN_FACE = 45.0   # faces that count
MIN_SIZE = 45     # what the library looks for in a frame of this size
FIT = 640


def frames(photo_list):
    """(photo index, frame, certain faces of at least MIN_FACE as boxes, all labels as boxes) of every photo, fitted."""
    for photo in photo_list:
        frame, scale = cascade.fit(photo.image, FIT)
        boxes = photo.boxes * scale
        large = np.sqrt(boxes[:, 2] * boxes[:, 3]) >= MIN_FACE
        yield photo, frame, boxes[photo.certain & large], boxes


def _squared(boxes):
    side = np.maximum(boxes[:, 2], boxes[:, 3])
    return np.stack([boxes[:, 0] + (boxes[:, 2] - side) / 2, boxes[:, 1] + (boxes[:, 3] - side) / 2, side, side], 1)


def _best_scores(boxes, scores, faces, least):
    """For each face the best score among the boxes (left, top, right, bottom) that overlap it by `least`."""
    sizes = np.stack([boxes[:, 0], boxes[:, 1], boxes[:, 2] - boxes[:, 0] + 1, boxes[:, 3] - boxes[:, 1] + 1], 1)
    best = []
    for f in faces:
        hit = photos.overlap(f, sizes) >= least if len(boxes) else np.zeros(0, bool)
        best.append(scores[hit].max() if hit.any() else 0.0)
    return best


def logit(p):
    return float(np.log(p / (1 - p)))


def proposal_threshold(detector, photo_list, miss=0.003):
    """The score below which the proposal network finds all but `miss` of the faces it can find at all."""
    return _stage_threshold("proposal", lambda frame: detector.proposals(frame, MIN_SIZE, 0.08), photo_list, miss)


def refine_threshold(detector, photo_list, miss=0.003):
    """The same for the refinement network."""
    return _stage_threshold("refinement", lambda frame: detector.refined(frame, MIN_SIZE, 0.05), photo_list, miss)


def _stage_threshold(stage, boxes_of, photo_list, miss):
    best, scores, count = [], [], 0
    for _, frame, faces, _ in frames(photo_list):
        b, s = boxes_of(frame)
        best += _best_scores(b, s, _squared(faces), 0.5)
        scores.append(s)
        count += 1
    return _report(stage, np.array(best), np.concatenate(scores), count, miss)


def _report(stage, best, scores, count, miss):
    found = np.sort(best[best > 0])
    threshold = float(found[int(miss * len(found))])
    for t in sorted({0.05, 0.1, 0.2, 0.3, 0.4, 0.5, 0.6, 0.7, threshold}):
        print(f"  {stage} threshold {t:.3f}: recall {np.mean(best >= t):.4f}, {np.sum(scores >= t) / count:.1f} boxes a photo", flush=True)
    return threshold


def match(detector, photo_list, threshold, **stage_thresholds):
    """Detections of every photo compared with its labels: (scores of true, scores of false, faces, point errors, photos)."""
    true, false, faces_seen, errors, count = [], [], 0, [], 0
    for photo, frame, faces, labels in frames(photo_list):
        boxes, scores, points = detector.detect(frame, threshold=threshold, **stage_thresholds)
        sizes = np.stack([boxes[:, 0], boxes[:, 1], boxes[:, 2] - boxes[:, 0], boxes[:, 3] - boxes[:, 1]], 1) if len(boxes) else np.zeros((0, 4))
        taken = np.zeros(len(sizes), bool)
        faces_seen += len(faces)
        for f in faces:
            iou = np.where(taken, 0, photos.overlap(f, sizes)) if len(sizes) else np.zeros(0)
            if len(iou) and iou.max() >= 0.5:
                taken[iou.argmax()] = True
                true.append(scores[iou.argmax()])
        for i in np.flatnonzero(~taken):
            if len(labels) == 0 or photos.overlap(sizes[i], labels).max() < 0.35:
                false.append((scores[i], photo.name))
            elif len(faces) and photos.overlap(sizes[i], faces).max() >= 0.35:
                false.append((scores[i], photo.name + " (double)"))
        scale = FIT / max(photo.image.shape[:2])
        for k in np.flatnonzero(photo.human):
            wanted = (photo.points[k] * scale).reshape(5, 2)
            centre = wanted.mean(0)
            for s, p in zip(sizes, points):
                if abs(p.reshape(5, 2).mean(0) - centre).max() < 0.3 * s[3]:
                    eye = np.hypot(*(wanted[1] - wanted[0]))
                    errors.append((photo.pack, np.hypot(*(p.reshape(5, 2) - wanted).T).mean() / eye))
                    break
        count += 1
    return np.array(true), sorted(false, reverse=True), faces_seen, errors, count


def report(detector, photo_list, threshold=0.3, **stage_thresholds):
    true, false, faces, errors, count = match(detector, photo_list, threshold, **stage_thresholds)
    scores = np.array([s for s, _ in false])
    for t in (0.3, 0.5, 0.6, 0.7, 0.8, 0.9, 0.95, 0.98):
        print(f"  output threshold {t}: recall {np.sum(true >= t) / faces:.4f} of {faces}, "
              f"{np.sum(scores >= t) / count:.4f} false a photo", flush=True)
    for pack in sorted({p for p, _ in errors}):
        e = np.array([v for p, v in errors if p == pack])
        print(f"  points {pack}: mean {e.mean():.4f}, median {np.median(e):.4f} of the eye distance, {len(e)} faces", flush=True)
    return true, false, faces, count
