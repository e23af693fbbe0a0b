"""Every snippet of docs/python.md runs as it stands there."""

import builtins
import pathlib
import re
import shutil

import cv2
import pytest
from conftest import PHOTOS

TEXT = (pathlib.Path(__file__).resolve().parents[2] / "docs" / "python.md").read_text()
SNIPPETS = re.findall(r"^```python\n(.*?)^```$", TEXT, re.S | re.M)


@pytest.fixture
def folder(tmp_path, monkeypatch):
    """Where the snippets find the files that they name."""
    for name, photo in {"photo.jpg": "astronaut.jpg", "ada.jpg": "first-bare.webp", "visitor.jpg": "first-bare.webp",
                        "group.jpg": "rows.webp", "people/Ada/1.jpg": "first-bare.webp",
                        "people/Grace/1.jpg": "second-bare.webp", "people/Grace/2.jpg": "README.md"}.items():
        (tmp_path / name).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(PHOTOS / photo, tmp_path / name)
    monkeypatch.chdir(tmp_path)
    return tmp_path


class Camera:
    def __init__(self, index):
        self.frames = [cv2.imread("ada.jpg")] * 3

    def read(self):
        return (True, self.frames.pop()) if self.frames else (False, None)


def run(snippet, monkeypatch):
    """What it prints."""
    printed, shown = [], []
    monkeypatch.setattr(builtins, "print", lambda *words: printed.append(words))
    monkeypatch.setattr(cv2, "VideoCapture", Camera)
    monkeypatch.setattr(cv2, "imshow", lambda title, image: shown.append(image))
    monkeypatch.setattr(cv2, "waitKey", lambda delay: -1)
    exec(compile(snippet, "docs/python.md", "exec"), {"__name__": "__main__"})
    return printed, shown


def cases():
    for number, snippet in enumerate(SNIPPETS):
        yield pytest.param(snippet, id=str(number), marks=[pytest.mark.slow] if "distributed" in snippet else [])


@pytest.mark.parametrize("snippet", cases())
@pytest.mark.filterwarnings("ignore")
def test_snippets_run(folder, snippet, monkeypatch):
    printed, shown = run(snippet, monkeypatch)
    assert len(printed) > 0 or len(shown) == 3


def test_the_answers_are_those_that_the_page_tells(folder, monkeypatch):
    assert run(SNIPPETS[0], monkeypatch)[0][-1] == ("the same person",)
    assert any(line[0] == "Ada Lovelace" for line in run(next(one for one in SNIPPETS if "identify" in one), monkeypatch)[0])
    folders = run(next(one for one in SNIPPETS if "people.db" in one), monkeypatch)[0]
    assert folders[-1] == ([("Ada", 1), ("Grace", 1)],) and "refused:" in folders[2]
    [(_, match, distance)] = run(SNIPPETS[-1], monkeypatch)[0]
    assert match is True and distance == 0
