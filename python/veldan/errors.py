"""What can go wrong. Every exception of the package is an `Error` and carries a code."""


class Error(Exception):
    """A call failed.

    Attributes
    ----------
    code : int
        The library's result code (``veldan/result_codes.h``); of photos and galleries the exit code of the command.
    """

    code = -1

    def __init__(self, message: str, code: "int | None" = None) -> None:
        super().__init__(message)
        if code is not None:
            self.code = code


class ImageError(Error, ValueError):
    """An array is no image that the library can work on: type, shape, order or size."""

    code = 13


class ImageTooSmallError(ImageError):
    """An image has a side of less than 100 pixels."""

    code = 27


class ClosedError(Error):
    """The engine was closed."""

    code = 12


class NotJudgedError(Error):
    """A face that has left its process, and so its frame, was asked for something that nobody had judged before."""

    code = 13


class EngineError(Error):
    """One of the engines behind detection, quality, masks, landmarks or extraction failed."""

    code = 32


class TemplateError(Error, ValueError):
    """Bytes are no template, a template is damaged, or it comes from other networks or is of the other kind."""

    code = 17


class NetworkError(Error):
    """An embedded network cannot be loaded."""

    code = 20


class CapacityError(Error):
    """A gallery has more persons than the engine allows."""

    code = -3


_CLASSES: "dict[int, type[Error]]" = {
    12: ClosedError,
    13: ImageError,
    14: EngineError,
    17: TemplateError,
    18: EngineError,
    20: NetworkError,
    27: ImageTooSmallError,
    32: EngineError,
    -3: CapacityError,
}


def of_code(code: int, message: str) -> Error:
    """The exception for a result code of the library."""
    return _CLASSES.get(code, Error)(message, code)
