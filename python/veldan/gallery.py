"""Galleries: the files in which persons are enrolled, shared with the ``veldan`` command."""

import hashlib
import os
from types import TracebackType
from typing import Any, Iterator, List, NamedTuple, Optional, Tuple, Type, Union

from ._native import KINDS, _veldan
from .engine import Engine
from .errors import ClosedError, MissingError, UnsuitableError
from .face import Face
from .pictures import decoded, read_bytes
from .template import Template


class Person(NamedTuple):
    """A person of a gallery: name, number of photos, when the first and the last one were enrolled (UTC)."""

    name: str
    photos: int
    first_date: str
    last_date: str


class EnrolledPhoto(NamedTuple):
    """What a gallery keeps of a photo: file name, SHA-256 of the file, date (UTC), quality, 520 bytes of each kind."""

    source: str
    digest: str
    date: str
    quality: int
    bare: bytes
    masked: bytes


class Match(NamedTuple):
    """A person who may be the one that is looked for, and the enrolled photo that is most similar."""

    name: str
    similarity: float
    source: str
    digest: str


class Identity(NamedTuple):
    """Who a face is.

    Attributes
    ----------
    name : str or None
        None when nobody is similar enough.
    similarity : float
        Of the most similar person, 0 to 1, also when that is not enough.
    kind : str
        ``"bare"`` or ``"masked"``: the templates that were compared.
    candidates : list of Match
        The nearest persons, where they were asked for.
    """

    name: Optional[str]
    similarity: float
    kind: str
    candidates: List[Match]


class Gallery:
    """A gallery file, as ``veldan enroll`` makes it.

    Changes are on the disk when a call returns. Several processes may use a file at once; searches see what others have
    changed. Calls of several threads wait for each other.

    Parameters
    ----------
    path : path
        The file.
    engine : Engine, optional
        For templates and searches; the gallery makes one when it is first needed.
    read_only : bool
        Whether the file must be there and stays as it is. Otherwise a new one appears with its first photo.

    Raises
    ------
    MissingError
        When there is no such file to read.
    GalleryError
        When the file is no gallery, damaged, newer than this version or in use.
    """

    def __init__(self, path: "Union[str, os.PathLike[str]]", engine: Optional[Engine] = None, read_only: bool = False) -> None:
        self._path = os.fspath(path)
        self._read_only = read_only
        self._store: Optional[_veldan.GalleryStore] = _veldan.GalleryStore(os.fsencode(path), not read_only)
        self._engine = engine
        self._snapshot: Optional[_veldan.SearchableGallery] = None
        self._seen: Any = None

    def add(self, name: str, photo: Any, min_quality: int = _veldan.ENROLMENT_QUALITY, largest: bool = False) -> str:
        """Enrols a photo of a bare face.

        Parameters
        ----------
        name : str
            The person, new or known: up to 200 bytes of UTF-8 without slashes and control characters.
        photo : path, bytes, file object, Face, or pair of Template
            A photo of one bare face; a bare face that an engine found; or a bare and a masked template of a face.
        min_quality : int
            Least quality, 0 to 100; a blurred face counts as 0.8 of its quality.
        largest : bool
            Take the largest face of a photo with several.

        Returns
        -------
        str
            ``"enrolled"``; ``"unchanged"`` when the photo was enrolled for the person before; ``"repaired"`` when it was,
            with a damaged template.

        Raises
        ------
        UnsuitableError
            When the photo cannot serve.
        UsageError
            When the name cannot be one.
        GalleryError
            When other networks made the gallery's templates.
        """
        source = ""
        if isinstance(photo, tuple):
            bare, masked = photo
            digest, quality = self._digest(bytes(bare) + bytes(masked)), 0
        elif isinstance(photo, Face):
            quality, bare, masked = self._enrolled(photo, min_quality)
            digest = self._digest(bytes(bare) + bytes(masked))
        else:
            content = read_bytes(photo)
            if isinstance(photo, (str, os.PathLike)):
                source = os.fspath(photo)
            digest = self._digest(content)
            if self._open().holds(name, digest):
                return "unchanged"
            faces = self._own_engine().detect(decoded(content, photo))
            if not faces:
                raise UnsuitableError("no face was found")
            if len(faces) > 1 and not largest:
                raise UnsuitableError(f"there are {len(faces)} faces in the photo; largest=True takes the largest one")
            quality, bare, masked = self._enrolled(faces[0], min_quality)
        return self._open().add(name, os.fsencode(source), digest, quality, bytes(bare), bytes(masked))

    def remove(self, name: str, photo: Optional[str] = None) -> None:
        """Removes a person, or one photo.

        Parameters
        ----------
        photo : str, optional
            File name, or four and more digits of the digest. A person is gone with the last photo.

        Raises
        ------
        MissingError
            When there is no such person or photo.
        """
        if photo is not None:
            self._open().remove_photo(name, os.fsencode(photo))
        elif self._open().remove_person(name) == 0:
            raise MissingError(f"{self._path}: there is no {name}")

    def rename(self, name: str, new: str) -> None:
        """Gives a person a name that is nobody's yet."""
        self._open().rename(name, new)

    def merge(self, name: str, into: str) -> int:
        """Gives the photos of a person to another one. Returns how many that one has now."""
        return self._open().merge(name, into)

    def persons(self) -> List[Person]:
        """All persons by name."""
        return [Person(*one) for one in self._open().persons()]

    def photos(self, name: str) -> List[EnrolledPhoto]:
        """The photos of a person, oldest first; empty when there is no such person."""
        return [EnrolledPhoto(*one) for one in self._open().photos_of(name)]

    def search(self, template: Template, top: int = 5) -> List[Match]:
        """The persons that are most similar to a template, the most similar one first.

        Parameters
        ----------
        template : Template
            Of either kind; it is compared with templates of its kind.
        top : int
            Most persons.
        """
        found = self._searchable().nearest(self._own_engine()._instance, bytes(template), KINDS[template.kind], top)
        return [Match(*one) for one in found]

    def identify(self, face: Union[Face, Template], threshold: float = _veldan.SAME_PERSON / 100,
                 mask_threshold: float = _veldan.SAME_PERSON_MASKED / 100, top: int = 0) -> Identity:
        """Who a face is.

        Parameters
        ----------
        face : Face or Template
            A masked face is compared with what is enrolled for masked ones.
        threshold, mask_threshold : float
            Similarity that a bare and a masked face need, 0 to 1.
        top : int
            So many of the nearest persons are told as well.
        """
        template = face if isinstance(face, Template) else self._own_engine().template(face, "masked" if face.masked else "bare")
        gallery = self._searchable()
        wanted = mask_threshold if template.kind == "masked" else threshold
        person, similarity = gallery.identify(self._own_engine()._instance, bytes(template), KINDS[template.kind], wanted)
        return Identity(gallery.names[person] if person >= 0 else None, similarity, template.kind,
                        self.search(template, top) if top > 0 else [])

    @property
    def damaged(self) -> List[str]:
        """Photos whose templates cannot be used and are passed over, in words."""
        return self._searchable().damaged

    def close(self) -> None:
        """Closes the file. May be called again."""
        self._store = None
        self._snapshot = None

    def __len__(self) -> int:
        return len(self.persons())

    def __iter__(self) -> Iterator[str]:
        return iter([person.name for person in self.persons()])

    def __contains__(self, name: object) -> bool:
        return isinstance(name, str) and bool(self._open().photos_of(name))

    def __bool__(self) -> bool:
        return True  # an empty gallery is one

    def __enter__(self) -> "Gallery":
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException],
                 trace: Optional[TracebackType]) -> None:
        self.close()

    def __reduce__(self) -> Tuple[object, ...]:
        return Gallery, (self._path, self._engine, self._read_only)

    def _open(self) -> "_veldan.GalleryStore":
        if self._store is None:
            raise ClosedError(f"{self._path} was closed")
        return self._store

    def _own_engine(self) -> Engine:
        if self._engine is None:
            self._engine = Engine()
        return self._engine

    def _searchable(self) -> "_veldan.SearchableGallery":
        store = self._open()
        seen = self._state_of_file()
        if self._snapshot is None or seen != self._seen:
            self._snapshot = store.searchable()
            self._seen = seen
        return self._snapshot

    def _state_of_file(self) -> Any:
        """Another one after every change, whoever made it."""
        states: List[Optional[Tuple[int, int, int]]] = []
        for path in (self._path, self._path + "-wal"):
            try:
                state = os.stat(path)
                states.append((state.st_ino, state.st_size, state.st_mtime_ns))
            except FileNotFoundError:
                states.append(None)
        return states

    def _enrolled(self, face: Face, min_quality: int) -> Tuple[int, Template, Template]:
        if face.masked:
            raise UnsuitableError(f"the face wears a mask ({face.mask_score}); a bare face serves both")
        engine = self._own_engine()
        quality = engine.enrolment_quality(face)
        if quality < min_quality:
            raise UnsuitableError(f"quality {quality}, at least {min_quality} is wanted")
        return quality, engine.template(face, "bare"), engine.template(face, "masked")

    @staticmethod
    def _digest(content: bytes) -> str:
        return hashlib.sha256(content).hexdigest()
