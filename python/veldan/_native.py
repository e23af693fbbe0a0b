"""The extension module, which is loaded here alone, and what is computed from it once."""

import functools
import hashlib

from . import _veldan

BARE = 1
MASKED = 2
KINDS = {"bare": BARE, "masked": MASKED}
NAMES = {BARE: "bare", MASKED: "masked"}


@functools.lru_cache(maxsize=None)
def network_digest(kind: str) -> str:
    """SHA-256 of the weights behind the templates of a kind, as ``veldan networks`` prints it."""
    return hashlib.sha256(_veldan.recognizer(KINDS[kind])).hexdigest()


__all__ = ["BARE", "KINDS", "MASKED", "NAMES", "_veldan", "network_digest"]
