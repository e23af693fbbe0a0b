"""The extension module, which is loaded here alone, and the names of its constants."""

from . import _veldan

BARE = 1
MASKED = 2
KINDS = {"bare": BARE, "masked": MASKED}
NAMES = {BARE: "bare", MASKED: "masked"}


def network_digest(kind: str) -> str:
    """SHA-256 of the weights behind the templates of a kind, as ``veldan networks`` prints it."""
    return _veldan.recognizer_digest(KINDS[kind])


__all__ = ["BARE", "KINDS", "MASKED", "NAMES", "_veldan", "network_digest"]
