"""Galleries: what Python enrols the command knows, and the other way round."""

import threading

import pytest
from conftest import PHOTOS, pixels

import veldan


@pytest.fixture
def path(tmp_path):
    return tmp_path / "staff.db"


@pytest.fixture
def gallery(path, engine):
    with veldan.Gallery(path, engine) as one:
        yield one


def face_of(engine, name):
    return engine.detect(pixels(name))[0]


def test_python_and_the_command_share_a_gallery(gallery, path, engine, command):
    command("enroll", "--gallery", path, "Ada", PHOTOS / "first-bare.webp")
    assert gallery.add("Ada", PHOTOS / "first-bare.webp") == "unchanged"
    assert gallery.add("Grace", str(PHOTOS / "second-bare.webp")) == "enrolled"
    assert list(gallery) == ["Ada", "Grace"] and len(gallery) == 2 and "Ada" in gallery and "Eve" not in gallery
    listed = command("gallery", "show", "--json", "--gallery", path)["persons"]
    assert [(one["name"], [photo["digest"] for photo in one["photos"]]) for one in listed] == \
        [(name, [photo.digest for photo in gallery.photos(name)]) for name in gallery]

    for name in ("first-mask.webp", "second-mask.webp", "astronaut.jpg", "first-bare.webp"):
        identity = gallery.identify(face_of(engine, name), top=2)
        [said] = command("identify", "--gallery", path, "--json", "--top", "2", PHOTOS / name)["photos"][0]["faces"]
        assert (identity.name, identity.kind) == (said["name"], said["kind"])
        assert identity.similarity == pytest.approx(said["similarity"], abs=1e-6)
        assert [(one.name, one.source, one.digest) for one in identity.candidates] == \
            [(one["name"], one["photo"], one["digest"]) for one in said["candidates"]]
    # What another process changes meanwhile is seen.
    command("gallery", "rename", "--gallery", path, "Ada", "Ada Lovelace")
    assert gallery.identify(face_of(engine, "first-bare.webp")).name == "Ada Lovelace"


def test_persons_are_managed(gallery, engine):
    ada = face_of(engine, "first-bare.webp")
    assert gallery.add("Ada", ada) == "enrolled" and gallery.add("Ada", ada) == "unchanged"
    assert gallery.add("Ada", (engine.template(face_of(engine, "second-bare.webp")),
                               engine.template(face_of(engine, "second-bare.webp"), "masked"))) == "enrolled"
    assert [person[:2] for person in gallery.persons()] == [("Ada", 2)]
    stored = gallery.photos("Ada")[0]
    assert veldan.Template(stored.bare) == engine.template(ada) and stored.quality == engine.enrolment_quality(ada)
    assert veldan.Template(stored.masked) == engine.template(ada, "masked")
    gallery.remove("Ada", gallery.photos("Ada")[1].digest[:8])
    gallery.rename("Ada", "Ada Lovelace")
    gallery.add("Copy", PHOTOS / "astronaut.jpg")
    assert gallery.merge("Copy", "Ada Lovelace") == 2 and list(gallery) == ["Ada Lovelace"]
    assert gallery.search(engine.template(ada))[0].name == "Ada Lovelace" and gallery.damaged == []
    gallery.remove("Ada Lovelace")
    assert len(gallery) == 0 and gallery.identify(ada) == (None, 0.0, "bare", [])


def test_what_cannot_be_is_refused(gallery, engine, path, tmp_path, rows):
    gallery.add("Ada", PHOTOS / "first-bare.webp")
    face = face_of(engine, "first-bare.webp")
    template = engine.template(face)
    cases = [
        (veldan.UnsuitableError, 9, lambda: gallery.add("Eve", PHOTOS / "first-mask.webp")),
        (veldan.UnsuitableError, 9, lambda: gallery.add("Eve", PHOTOS / "street.webp")),
        (veldan.UnsuitableError, 9, lambda: gallery.add("Eve", face, min_quality=100)),
        (veldan.TemplateError, 17, lambda: gallery.add("Eve", (template, template))),
        (veldan.UsageError, 2, lambda: gallery.add("E/ve", face)),
        (veldan.UsageError, 2, lambda: gallery.add("", face)),
        (veldan.MissingError, 3, lambda: gallery.add("Eve", tmp_path / "none.jpg")),
        (veldan.MissingError, 3, lambda: gallery.remove("Eve")),
        (veldan.MissingError, 3, lambda: gallery.remove("Ada", "none.jpg")),
        (veldan.MissingError, 3, lambda: gallery.rename("Eve", "Adam")),
        (veldan.MissingError, 3, lambda: veldan.Gallery(tmp_path / "none.db", read_only=True)),
        (veldan.GalleryError, 10, lambda: veldan.Gallery(PHOTOS / "README.md")),
        (veldan.WriteError, 7, lambda: veldan.Gallery(path, engine, read_only=True).add("Eve", face)),
    ]
    for kind, code, call in cases:
        with pytest.raises(kind) as failure:
            call()
        assert failure.value.code == code
    assert list(gallery) == ["Ada"]
    assert not (tmp_path / "none.db").exists()
    gallery.close()
    with pytest.raises(veldan.ClosedError):
        len(gallery)


def test_threads_may_share_a_gallery(gallery, engine):
    ada = face_of(engine, "first-bare.webp")
    gallery.add("Ada", ada)
    template, names = engine.template(ada), []

    def work(number):
        for _ in range(5):
            gallery.rename(f"Copy {number}", f"Kopie {number}")
            names.append(gallery.search(template, 1)[0].name)
            gallery.rename(f"Kopie {number}", f"Copy {number}")

    for number in range(3):
        gallery.add(f"Copy {number}", (template, engine.template(ada, "masked")))
    threads = [threading.Thread(target=work, args=(number,)) for number in range(3)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join(60)
    assert names == ["Ada"] * 15 and list(gallery) == ["Ada", "Copy 0", "Copy 1", "Copy 2"]


def test_trackers_search_galleries(gallery, engine):
    gallery.add("Ada", PHOTOS / "first-bare.webp")
    tracker = veldan.Tracker(engine)
    tracker.next(pixels("first-bare.webp"))
    [face] = tracker.search(gallery)
    assert (face.name, face.unknown) == ("Ada", False) and face.similarity >= 0.8
    assert tracker.next(pixels("first-bare.webp"))[0].name == "Ada"
    stranger = veldan.Tracker(engine)
    for _ in range(6):
        stranger.next(pixels("astronaut.jpg"))
        [face] = stranger.search(gallery)
    assert (face.name, face.unknown) == (None, True)
