"""Writes TensorFlow GraphDef files that OpenCV's dnn module reads, without TensorFlow.

Only the handful of protobuf fields that the reader looks at are declared here; the field numbers are those of the public
GraphDef format. Weights are stored the way that format wants them: HWIO for convolutions, (in, out) for dense layers.
"""
import numpy as np

from .protobuf import FIELD as _F, build_messages

_SCHEMA = {
    "Dim": [("size", 1, _F.TYPE_INT64, 0, None)],
    "Shape": [("dim", 2, _F.TYPE_MESSAGE, 1, "Dim")],
    "Tensor": [("dtype", 1, _F.TYPE_INT32, 0, None), ("shape", 2, _F.TYPE_MESSAGE, 0, "Shape"),
               ("content", 4, _F.TYPE_BYTES, 0, None)],
    "ListValue": [("i", 3, _F.TYPE_INT64, 1, None)],
    "AttrValue": [("list", 1, _F.TYPE_MESSAGE, 0, "ListValue"), ("s", 2, _F.TYPE_BYTES, 0, None),
                  ("i", 3, _F.TYPE_INT64, 0, None), ("f", 4, _F.TYPE_FLOAT, 0, None),
                  ("b", 5, _F.TYPE_BOOL, 0, None), ("type", 6, _F.TYPE_INT32, 0, None),
                  ("shape", 7, _F.TYPE_MESSAGE, 0, "Shape"), ("tensor", 8, _F.TYPE_MESSAGE, 0, "Tensor")],
    "Attr": [("key", 1, _F.TYPE_STRING, 0, None), ("value", 2, _F.TYPE_MESSAGE, 0, "AttrValue")],
    "Node": [("name", 1, _F.TYPE_STRING, 0, None), ("op", 2, _F.TYPE_STRING, 0, None),
             ("input", 3, _F.TYPE_STRING, 1, None), ("attr", 5, _F.TYPE_MESSAGE, 1, "Attr")],
    "Graph": [("node", 1, _F.TYPE_MESSAGE, 1, "Node")],
}
DT_FLOAT, DT_INT32 = 1, 3

_M = build_messages("veldan.graphdef", _SCHEMA)


class GraphWriter:
    """Adds nodes one after the other; every method returns the name of the tensor it made."""

    def __init__(self):
        self.graph = _M["Graph"]()

    def _node(self, name, op, inputs=(), **attrs):
        node = self.graph.node.add(name=name, op=op, input=list(inputs))
        for key, value in attrs.items():
            attr = node.attr.add(key=key).value
            if isinstance(value, bytes):
                attr.s = value
            elif isinstance(value, bool):
                attr.b = value
            elif isinstance(value, list):
                attr.list.i.extend(value)
            elif isinstance(value, np.ndarray):
                attr.tensor.dtype = DT_INT32 if value.dtype == np.int32 else DT_FLOAT
                for size in value.shape:
                    attr.tensor.shape.dim.add(size=size)
                attr.tensor.content = np.ascontiguousarray(value).tobytes()
            else:
                attr.type = value
        return name

    def const(self, name, value):
        value = np.asarray(value)
        value = value.astype(np.int32 if value.dtype.kind == "i" else np.float32)
        return self._node(name, "Const", dtype=DT_INT32 if value.dtype == np.int32 else DT_FLOAT, value=value)

    def placeholder(self, name):
        return self._node(name, "Placeholder", dtype=DT_FLOAT)

    def conv(self, name, x, weight, bias, stride, padding):
        """weight: (out, in, kh, kw) as torch keeps it; padding "VALID" or "SAME"."""
        w = self.const(f"{name}/weights", weight.transpose(2, 3, 1, 0))
        y = self._node(f"{name}/Conv2D", "Conv2D", [x, w], T=DT_FLOAT, data_format=b"NHWC", padding=padding.encode(),
                       strides=[1, stride, stride, 1])
        return self._bias(name, y, bias)

    def dense(self, name, x, weight, bias):
        """weight: (out, in) as torch keeps it."""
        w = self.const(f"{name}/weights", weight.T)
        return self._bias(name, self._node(f"{name}/MatMul", "MatMul", [x, w], T=DT_FLOAT), bias)

    def _bias(self, name, x, bias):
        b = self.const(f"{name}/biases", bias)
        return self._node(f"{name}/BiasAdd", "BiasAdd", [x, b], T=DT_FLOAT, data_format=b"NHWC")

    def prelu(self, name, x, alpha):
        """The five-node pattern that the reader fuses into one layer."""
        positive = self._node(f"{name}/Relu", "Relu", [x], T=DT_FLOAT)
        neg = self._node(f"{name}/Neg", "Neg", [x], T=DT_FLOAT)
        negative = self._node(f"{name}/Relu_1", "Relu", [neg], T=DT_FLOAT)
        a = self.const(f"{name}/alphas", -alpha)
        scaled = self._node(f"{name}/mul", "Mul", [a, negative], T=DT_FLOAT)
        return self._node(f"{name}/add", "Add", [positive, scaled], T=DT_FLOAT)

    def window(self, name, x, top, left, height, width):
        """Only these pixels go on."""
        begin = self.const(f"{name}/begin", np.array([0, top, left, 0], np.int32))
        size = self.const(f"{name}/size", np.array([-1, height, width, -1], np.int32))
        return self._node(name, "Slice", [x, begin, size], T=DT_FLOAT)

    def flatten(self, name, x, size):
        shape = self.const(f"{name}/shape", np.array([-1, size], np.int32))
        return self._node(name, "Reshape", [x, shape], T=DT_FLOAT)

    def softmax(self, name, x):
        return self._node(name, "Softmax", [x], T=DT_FLOAT)

    def tobytes(self):
        return self.graph.SerializeToString()
