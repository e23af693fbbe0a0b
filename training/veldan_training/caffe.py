"""Writes Caffe networks, text and weights, that OpenCV's dnn module reads, without Caffe.

Only the protobuf fields that the reader needs are declared; the field numbers are those of the public format.
"""
import numpy as np

from .protobuf import FIELD as _F, build_messages

_M = build_messages("veldan.caffe", {
    "Shape": [("dim", 1, _F.TYPE_INT64, 1, None)],
    "Blob": [("shape", 7, _F.TYPE_MESSAGE, 0, "Shape"), ("data", 5, _F.TYPE_FLOAT, 1, None)],
    "Layer": [("name", 1, _F.TYPE_STRING, 0, None), ("type", 2, _F.TYPE_STRING, 0, None), ("blobs", 7, _F.TYPE_MESSAGE, 1, "Blob")],
    "Net": [("name", 1, _F.TYPE_STRING, 0, None), ("layer", 100, _F.TYPE_MESSAGE, 1, "Layer")],
})


class NetWriter:
    """Adds layers one after the other; every method returns the name of the blob it made."""

    def __init__(self, name):
        self.net = _M["Net"](name=name)
        self.lines = [f'name: "{name}"']

    def _layer(self, name, kind, bottoms=(), tops=None, parameters="", weights=()):
        tops = tops or [name]
        blobs = "".join(f' bottom: "{b}"' for b in bottoms) + "".join(f' top: "{t}"' for t in tops)
        self.lines.append(f'layer {{ name: "{name}" type: "{kind}"{blobs}{" " if parameters else ""}{parameters} }}')
        if weights:
            layer = self.net.layer.add(name=name, type=kind)
            for w in weights:
                blob = layer.blobs.add()
                blob.shape.dim.extend(w.shape)
                blob.data.extend(np.asarray(w, np.float32).ravel())
        return tops[0]

    def input(self, name, shape):
        return self._layer(name, "Input", parameters=f'input_param {{ shape {{ {" ".join(f"dim: {d}" for d in shape)} }} }}')

    def upper_rows(self, name, x, rows):
        return self._layer(name, "Slice", [x], [name, f"{name}_rest"], f"slice_param {{ axis: 2 slice_point: {rows} }}")

    def mirrored(self, name, x, columns):
        """The picture's columns in reverse order, written as a product with a matrix: the format has no layer for it."""
        return self._layer(name, "InnerProduct", [x], parameters=f"inner_product_param {{ num_output: {columns} axis: 3 bias_term: false }}",
                           weights=[np.eye(columns)[::-1]])

    def batch(self, name, x, y):
        """Both as one batch of two."""
        return self._layer(name, "Concat", [x, y], parameters="concat_param { axis: 0 }")

    def mean_of_batch(self, name, x):
        self._layer(f"{name}_parts", "Slice", [x], [f"{name}_first", f"{name}_second"], "slice_param { axis: 0 slice_point: 1 }")
        return self._layer(name, "Eltwise", [f"{name}_first", f"{name}_second"],
                           parameters="eltwise_param { operation: SUM coeff: 0.5 coeff: 0.5 }")

    def conv(self, name, x, weight, bias, stride, pad, groups):
        h, w = weight.shape[2:]
        return self._layer(name, "Convolution", [x], parameters=f"convolution_param {{ num_output: {weight.shape[0]} kernel_h: {h} kernel_w: {w} "
                           f"stride: {stride} pad: {pad} group: {groups} }}", weights=[weight, bias])

    def relu(self, name, x):
        return self._layer(name, "ReLU", [x])

    def prelu(self, name, x, slopes):
        return self._layer(name, "PReLU", [x], weights=[slopes])

    def add(self, name, x, y):
        return self._layer(name, "Eltwise", [x, y], parameters="eltwise_param { operation: SUM }")

    def dense(self, name, x, weight, bias):
        return self._layer(name, "InnerProduct", [x], parameters=f"inner_product_param {{ num_output: {weight.shape[0]} }}", weights=[weight, bias])

    def text(self):
        return ("\n".join(self.lines) + "\n").encode()

    def weights(self):
        return self.net.SerializeToString()
