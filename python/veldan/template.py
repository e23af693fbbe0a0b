"""Templates: what stands for a face when it is recognised."""

from typing import Tuple, Union

import numpy as np
import numpy.typing as npt

from ._native import KINDS, NAMES, _veldan, network_digest
from .errors import TemplateError


class Template:
    """The 520 bytes that stand for a face. Immutable, comparable, hashable; pickles.

    Parameters
    ----------
    data : bytes-like
        520 bytes, as ``bytes(template)`` gives them or ``veldan template`` writes them.
    network : str, optional
        `network` of the template when it was made. The bytes themselves do not say which network made them, so keep
        it beside them; a template of another network is refused.

    Raises
    ------
    TemplateError
        When the bytes are damaged, are no template that a face gives, or come from another network.
    """

    __slots__ = ("_data", "_kind")

    def __init__(self, data: Union[bytes, bytearray, memoryview], network: "str | None" = None) -> None:
        if not isinstance(data, (bytes, bytearray, memoryview)):
            raise TemplateError(f"template: it is of type {type(data).__name__}, not bytes")
        self._data = bytes(data)
        self._kind = NAMES[_veldan.kind_of(self._data)]
        if network is not None and network != self.network:
            raise TemplateError(f"template: another network made it, {network[:12]} and not {self.network[:12]}")

    @property
    def kind(self) -> str:
        """``"bare"`` or ``"masked"``; templates of two kinds cannot be compared."""
        return self._kind

    @property
    def network(self) -> str:
        """SHA-256 of the weights of the network that made it."""
        return network_digest(self._kind)

    @property
    def feature(self) -> "npt.NDArray[np.float32]":
        """The face's direction in space: 128 numbers, shape (128,), float32, not normalised."""
        return _veldan.feature(self._data)

    def __bytes__(self) -> bytes:
        return self._data

    def __eq__(self, other: object) -> bool:
        return isinstance(other, Template) and self._data == other._data

    def __hash__(self) -> int:
        return hash(self._data)

    def __repr__(self) -> str:
        return f"<veldan.Template {self._kind} {self._data[8:12].hex()}>"

    def __reduce__(self) -> Tuple[object, ...]:
        return Template, (self._data, self.network)


def similarity(a: Template, b: Template) -> float:
    """How similar two faces are.

    Parameters
    ----------
    a, b : Template
        Of one kind.

    Returns
    -------
    float
        0 to 1: 1 for equal templates, 0.5 for faces that have nothing in common. From `SAME_PERSON` on (of masked
        templates from `SAME_PERSON_MASKED` on) they count as one person.

    Raises
    ------
    TemplateError
        When they are of two kinds or no templates.
    """
    for one in (a, b):
        if not isinstance(one, Template):
            raise TemplateError(f"similarity: {type(one).__name__} is no veldan.Template")
    if a.kind != b.kind:
        raise TemplateError("similarity: a bare and a masked template cannot be compared")
    return _veldan.similarity(bytes(a), bytes(b), KINDS[a.kind])
