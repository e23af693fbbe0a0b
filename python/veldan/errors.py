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


class UsageError(Error, ValueError):
    """A name cannot be that of a person or is taken, or words mean no photo or several."""

    code = 2


class MissingError(Error, FileNotFoundError, LookupError):
    """There is no such photo, gallery or person."""

    code = 3


class PhotoError(Error, ValueError):
    """A file cannot be read, or is no picture."""

    code = 4


class WriteError(Error, OSError):
    """A picture or gallery cannot be written."""

    code = 7


class UnsuitableError(Error):
    """A photo cannot serve for enrolment."""

    code = 9


class GalleryError(Error):
    """A file is no gallery, a damaged one, one of other networks, or in use."""

    code = 10


class WorkerError(Error):
    """A process that worked on photos died."""

    code = 11


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

_CLASSES_OF_EXIT_CODES: "dict[int, type[Error]]" = {
    2: UsageError,
    3: MissingError,
    4: PhotoError,
    5: ImageTooSmallError,
    7: WriteError,
    8: EngineError,
    9: UnsuitableError,
    10: GalleryError,
}


def of_code(code: int, message: str) -> Error:
    """The exception for a result code of the library."""
    return _CLASSES.get(code, Error)(message, code)


def of_exit_code(code: int, message: str) -> Error:
    """The exception for an exit code of the command."""
    return _CLASSES_OF_EXIT_CODES.get(code, Error)(message, code)
