"""The aligned faces that the recognizers learn from: files of some hundred faces each in one folder.

A file is a .npz of `data` and `ends` (the pictures' bytes, one behind the other, and where each ends), `names` (person, or empty),
`crops`, `development` and `answers` (n x 2 x 128 half precision: the teacher's, of the crop and of its mirror image; or none).
"""
import glob
import os

import cv2
import numpy as np

SIDE = 128      # pixels; the crop of 112 in their middle is the teacher's
AROUND = 8


class Faces:
    """Pictures n x 128 x 128 x 3, red, green, blue, as the packs are aligned; names; crops, n x 3 x 3 around the middle: to the
    library's crop out of the pack's; answers n x 128 of length one, of a crop and its mirror image together, NaN where none was stored.

    The packs are aligned by the points of the teacher of detection. The library's points are like those that people set, and so
    its crops are a twentieth closer and a pixel higher. The recognizer that is learnt from sees the packs' crop, as it was trained
    to; the network sees the library's, as it will be used."""

    def __init__(self, images, names, crops, answers):
        self.images, self.names, self.crops, self.answers = images, names, crops, answers

    def __len__(self):
        return len(self.images)

    @property
    def plain(self):
        return self.images[:, AROUND:-AROUND, AROUND:-AROUND]


def write(path, pictures, names, crops, development, answers=None):
    """pictures: encoded, bytes."""
    with open(path + ".part", "wb") as f:
        np.savez(f, data=np.frombuffer(b"".join(pictures), np.uint8), ends=np.cumsum([len(p) for p in pictures], dtype=np.int64),
                 names=np.array(names, str), crops=np.array(crops, np.float32).reshape(-1, 3, 3), development=np.array(development, bool),
                 answers=np.zeros((0, 2, 128), np.float16) if answers is None else answers.astype(np.float16))
    os.replace(path + ".part", path)


def encode(image, quality):
    """image: blue, green, red."""
    return cv2.imencode(".webp", image, [cv2.IMWRITE_WEBP_QUALITY, quality])[1].tobytes()


def stored(folder):
    """(picture's bytes, name, crop, development, answers or None) of every face in the folder."""
    for path in sorted(glob.glob(os.path.join(folder, "*.npz"))):
        with np.load(path) as z:
            z = {key: z[key] for key in z.files}
        begin = 0
        for k, end in enumerate(z["ends"]):
            answers = z["answers"][k] if len(z["answers"]) else None
            yield z["data"][begin:end].tobytes(), str(z["names"][k]), z["crops"][k], bool(z["development"][k]), answers
            begin = int(end)


def read(folder, development=False):
    """The faces to train with, or those that decisions are made on."""
    count = sum(int((np.load(path)["development"] == development).sum()) for path in glob.glob(os.path.join(folder, "*.npz")))
    if not count:
        raise SystemExit(f"no faces in {folder}: training/make_faces.py writes them")
    images, names, crops, answers = np.empty((count, SIDE, SIDE, 3), np.uint8), [], [], []
    for picture, name, crop, kept_out, of_teacher in stored(folder):
        if kept_out == development:
            images[len(names)] = cv2.imdecode(np.frombuffer(picture, np.uint8), cv2.IMREAD_COLOR)[..., ::-1]
            names.append(name)
            crops.append(crop)
            both = np.full(128, np.nan, np.float32) if of_teacher is None else of_teacher.astype(np.float32).sum(0)
            answers.append(both / np.linalg.norm(both))
    return Faces(images, names, np.stack(crops), np.stack(answers))
