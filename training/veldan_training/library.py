"""The library itself, for data that is to look like what its engines get."""
import ctypes

import numpy as np

WORDS = 262                     # of a face record
X_AT, Y_AT, QUALITY_AT = 5, 125, 248
CAPACITY = 5000


class Library:
    def __init__(self, path):
        self.library, code = ctypes.CDLL(path), ctypes.c_int()
        self.library.zzInitAlgThread.restype = ctypes.c_void_p
        self.handle = ctypes.c_void_p(self.library.zzInitAlgThread(None, ctypes.byref(code)))
        if not self.handle:
            raise RuntimeError(f"the library did not start: code {code.value}")
        self.records = np.zeros((CAPACITY, WORDS), np.int32)

    def _call(self, name, image, count):
        return getattr(self.library, name)(self.handle, image.ctypes.data_as(ctypes.c_void_p), image.shape[1], image.shape[0], count,
                                           self.records.ctypes.data_as(ctypes.c_void_p))

    def faces(self, image):
        """image: blue, green, red, 100 x 100 and larger. (boxes n x 4: left, top, width, height; points n x 5 x 2; quality 0 to 100),
        largest first."""
        image, count = np.ascontiguousarray(image), ctypes.c_int()
        code = self._call("zzDetectFaceThread", image, ctypes.byref(count))
        if code not in (0, 13, 23):  # no face; more than a hundred
            raise RuntimeError(f"detection failed with code {code}")
        found = self.records[:count.value]
        if count.value and self._call("zzFaceQualityThread", image, count.value):
            raise RuntimeError("quality failed")
        points = np.stack([found[:, X_AT:X_AT + 5], found[:, Y_AT:Y_AT + 5]], 2)
        return found[:, :4].copy(), points.astype(np.float64), found[:, QUALITY_AT].copy()
