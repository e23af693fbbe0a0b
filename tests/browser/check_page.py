"""Checks the page of the service without a browser: it is well formed, keeps to its Content-Security-Policy, and needs
nothing from elsewhere.

usage: check_page.py FOLDER"""
import pathlib
import re
import sys
import xml.etree.ElementTree as ElementTree


def findings(folder):
    files = sorted(path for path in folder.rglob("*") if path.is_file())
    names = {path.relative_to(folder).as_posix() for path in files}
    if not {"index.html", "main.js", "style.css"} <= names:
        yield folder, "this is no page"
    for path in files:
        text = path.read_text(encoding="ascii", errors="strict")
        for number, line in enumerate(text.split("\n"), 1):
            if "\t" in line or line != line.rstrip():
                yield path, f"line {number}: tab or blank at the end"
        outside = re.search(r"(https?:)?//[\w-]+\.\w+", text.replace("http://www.w3.org/2000/svg", ""))
        if outside:
            yield path, f"address of another machine: {outside.group()}"
        yield from {".html": markup, ".svg": markup, ".css": sheet, ".js": module}[path.suffix](path, text, names)


def markup(path, text, names):
    try:
        root = ElementTree.fromstring(text)
    except ElementTree.ParseError as error:
        yield path, f"not well formed: {error}"
        return
    ids = [element.get("id") for element in root.iter() if element.get("id")]
    for identity in {name for name in ids if ids.count(name) > 1}:
        yield path, f"two elements are called {identity}"
    for element in root.iter():
        if element.tag == "style" or (element.tag == "script" and (element.text or not element.get("src"))):
            yield path, f"inline {element.tag}"
        for name, value in element.attrib.items():
            if name == "style" or name.startswith("on"):
                yield path, f"attribute {name} on {element.tag}"
            if name in ("src", "href") and not value.startswith("#") and value not in names:
                yield path, f"{value} is not there"
            if name in ("aria-labelledby", "for") and value not in ids:
                yield path, f"nothing is called {value}"


def sheet(path, text, names):
    if re.search(r"@import|url\(", text):
        yield path, "loads something"
    if text.count("{") != text.count("}"):
        yield path, "braces do not match"
    used = set(re.findall(r"var\((--[\w-]+)\)", text))
    for name in used - set(re.findall(r"(--[\w-]+):", text)):
        yield path, f"{name} has no value"


def module(path, text, names):
    for what in (r"\beval\(", r"new Function\(", r"\.innerHTML\b", r"\.outerHTML\b", r"insertAdjacentHTML", r"document\.write\b",
                 r"localStorage", r"setAttribute\('style'", r"\bstyle:", r"console\."):
        if re.search(what, text):
            yield path, f"uses {what}"
    for name in re.findall(r"from '\./([^']+)'", text):
        if name not in names:
            yield path, f"{name} is not there"


problems = [f"{path}: {what}" for path, what in findings(pathlib.Path(sys.argv[1]))]
print("\n".join(problems) or "nothing found")
sys.exit(1 if problems else 0)
