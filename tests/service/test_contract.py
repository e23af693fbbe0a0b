"""The OpenAPI document, the answers, the examples of docs/service.md and the command agree."""

import json
import os
import pathlib
import re
import shutil
import subprocess

import jsonschema
import pytest

from server import COMMAND, FACE, OTHER_FACE, PHOTOS, Server

DOC = pathlib.Path(os.environ["VELDAN_DOCS"], "service.md").read_text()

# The rules of OpenAPI 3.1 that this document could break.
OBJECT = {"type": "object"}
CONTENT = {"type": "object", "minProperties": 1,
           "additionalProperties": {"type": "object", "required": ["schema"], "additionalProperties": False,
                                    "properties": {"schema": OBJECT}}}
OPERATION = {
    "type": "object", "required": ["operationId", "summary", "responses"], "additionalProperties": False,
    "properties": {
        "operationId": {"type": "string", "pattern": "^[a-zA-Z]+$"}, "summary": {"type": "string"},
        "description": {"type": "string"}, "security": {"type": "array"},
        "parameters": {"type": "array", "items": {
            "type": "object", "required": ["name", "in", "schema"], "additionalProperties": False,
            "properties": {"name": {"type": "string"}, "in": {"enum": ["path", "query"]}, "required": {"type": "boolean"},
                           "description": {"type": "string"}, "schema": OBJECT},
            "if": {"properties": {"in": {"const": "path"}}}, "then": {"required": ["required"]}}},
        "requestBody": {"type": "object", "required": ["content"], "additionalProperties": False,
                        "properties": {"required": {"type": "boolean"}, "content": CONTENT}},
        "responses": {"type": "object", "minProperties": 1, "additionalProperties": False, "patternProperties": {
            "^([1-5][0-9][0-9]|default)$": {"type": "object", "required": ["description"], "additionalProperties": False,
                                            "properties": {"description": {"type": "string"}, "content": CONTENT}}}}}}
OPENAPI = {
    "type": "object", "required": ["openapi", "info", "paths", "components"], "additionalProperties": False,
    "properties": {
        "openapi": {"pattern": r"^3\.1\.\d+$"},
        "info": {"type": "object", "required": ["title", "version"]}, "jsonSchemaDialect": {"type": "string"},
        "paths": {"type": "object", "patternProperties": {"^/": {
            "type": "object", "additionalProperties": False,
            "patternProperties": {"^(get|post|patch|delete)$": OPERATION}}}, "additionalProperties": False},
        "components": {"type": "object", "additionalProperties": False, "properties": {
            "schemas": {"type": "object", "propertyNames": {"pattern": r"^[a-zA-Z0-9._-]+$"}},
            "securitySchemes": {"type": "object"}}},
        "security": {"type": "array"}}}


@pytest.fixture(scope="module")
def server(tmp_path_factory):
    with Server(tmp_path_factory.mktemp("contract")) as its:
        yield its


@pytest.fixture(scope="module")
def document(server):
    return server.ask("GET", "/openapi.json").json()


def operations(document):
    return {(method.upper(), path): operation
            for path, item in document["paths"].items() for method, operation in item.items()}


def test_the_document_is_openapi(document):
    jsonschema.validate(document, OPENAPI, jsonschema.Draft202012Validator)
    for schema in document["components"]["schemas"].values():
        jsonschema.Draft202012Validator.check_schema(schema)
    for reference in re.findall(r'"\$ref": "([^"]*)"', json.dumps(document)):
        assert reference.removeprefix("#/components/schemas/") in document["components"]["schemas"]
    all_operations = operations(document)
    assert len({operation["operationId"] for operation in all_operations.values()}) == len(all_operations)
    for (_, path), operation in all_operations.items():
        declared = [one["name"] for one in operation.get("parameters", []) if one["in"] == "path"]
        assert declared == re.findall(r"\{(\w+)\}", path)
        for content in operation.get("requestBody", {}).get("content", {}).values():
            jsonschema.Draft202012Validator.check_schema(content["schema"])


def test_the_page_of_the_documentation_lists_the_same_requests(document):
    listed = set()
    for row in re.findall(r"^\| `([A-Z]+) ([^`]*)`(.*?)\|", DOC, re.M):
        method, target, more = row
        for one in [target, *re.findall(r"`(/\w+)`", more)]:
            path, _, query = one.partition("?")
            listed.add((method, path, tuple(re.findall(r"(\w+)=", query))))
    described = {(method, path, tuple(one["name"] for one in operation.get("parameters", []) if one["in"] == "query"))
                 for (method, path), operation in operations(document).items()}
    assert listed == described


def check(document, operation, answer):
    """An answer is one that the document promises."""
    responses = operation["responses"]
    content = responses.get(str(answer.status), responses["default"])["content"]
    media = answer.headers["Content-Type"]
    assert media in content
    if "json" in media:
        schema = {**content[media]["schema"], "components": document["components"]}
        jsonschema.validate(answer.json(), schema, jsonschema.Draft202012Validator)


def test_every_operation_answers_as_described(server, document):
    left = operations(document)

    def ask(method, path, target=None, form=(), status=200, **how):
        operation = left.pop((method, path)) if (method, path) in left else operations(document)[(method, path)]
        answer = server.form(target or path, *form) if form else server.ask(method, target or path, **how)
        assert answer.status == status, answer.body
        check(document, operation, answer)
        return answer

    photo = {"body": FACE, "content_type": "image/jpeg"}
    for path in ("/healthz", "/readyz", "/metrics", "/openapi.json", "/v1/version", "/v1/people"):
        ask("GET", path)
    ask("POST", "/v1/detect", **photo)
    ask("POST", "/v1/inspect", **photo)
    ask("POST", "/v1/match", "/v1/match?threshold=0.7", form=[("a", FACE), ("b", OTHER_FACE)])
    template = ask("POST", "/v1/templates", form=[("photo", FACE)]).json()
    assert len(template["template"]) == 696
    added = ask("POST", "/v1/people", form=[("name", "Zo\u00eb \U0001f600"), ("photo", FACE, "z.jpg")], status=201)
    at = added.headers["Location"]
    digest = added.json()["photos"][0]["digest"]
    ask("POST", "/v1/people", form=[("name", "Zo\u00eb \U0001f600"), ("photo", FACE)], status=409)
    ask("POST", "/v1/people/{person}/photos", at + "/photos", **photo)
    ask("POST", "/v1/people/{person}/photos", at + "/photos?minQuality=5", form=[("photo", OTHER_FACE)], status=201)
    ask("POST", "/v1/people/{person}/photos", at + "/photos", status=422, body=b"\xff\xd8\xff", content_type="image/jpeg")
    found = ask("POST", "/v1/identify", "/v1/identify?top=3", **photo).json()["photos"][0]["faces"][0]
    assert found["name"] == "Zo\u00eb \U0001f600" and found["candidates"][0]["digest"] == digest
    ask("GET", "/v1/people/{person}", at)
    ask("GET", "/v1/people/{person}/photos", at + "/photos")
    ask("GET", "/v1/people/{person}/photos/{photo}", f"{at}/photos/{digest}")
    ask("GET", "/v1/people/{person}/photos/{photo}", f"{at}/photos/0", status=404)
    change = {"body": '{"name": "Ada"}', "content_type": "application/json"}
    ask("PATCH", "/v1/people/{person}", at, **change)
    ask("DELETE", "/v1/people/{person}/photos/{photo}", f"/v1/people/Ada/photos/{digest}")
    ask("DELETE", "/v1/people/{person}", "/v1/people/Ada")
    ask("DELETE", "/v1/people/{person}", "/v1/people/Ada", status=404)
    assert left == {}


def without_times(value):
    if isinstance(value, dict):
        return {key: without_times(one) for key, one in value.items() if key not in ("milliseconds", "photo")}
    return [without_times(one) for one in value] if isinstance(value, list) else value


@pytest.mark.parametrize("command, path", [("detect", "/v1/detect"), ("inspect", "/v1/inspect")])
def test_answers_are_what_the_command_prints(server, command, path):
    printed = subprocess.run([COMMAND, command, PHOTOS / "astronaut.jpg", "--json"], capture_output=True, check=True)
    assert without_times(server.ask("POST", path, FACE, "image/jpeg").json()) == without_times(json.loads(printed.stdout))


def test_what_another_process_changes_is_seen(server):
    enrolled = subprocess.run([COMMAND, "enroll", "--gallery", server.gallery, "Eve", PHOTOS / "astronaut.jpg"],
                              capture_output=True)
    assert enrolled.returncode == 0, enrolled.stderr
    faces = server.ask("POST", "/v1/identify", FACE, "image/jpeg").json()["photos"][0]["faces"]
    assert faces[0]["name"] == "Eve"
    subprocess.run([COMMAND, "gallery", "remove", "--gallery", server.gallery, "Eve"], check=True, capture_output=True)
    faces = server.ask("POST", "/v1/identify", FACE, "image/jpeg").json()["photos"][0]["faces"]
    assert faces[0]["name"] is None


PROGRAMS = {"sh": ["bash", "-eu"], "python": ["/usr/bin/python3"], "javascript": ["node"]}


@pytest.mark.parametrize("language", PROGRAMS)
def test_the_clients_of_the_documentation_run(server, language, tmp_path):
    if shutil.which(PROGRAMS[language][0]) is None:
        pytest.skip(f"no {PROGRAMS[language][0]}")
    text = DOC.split("## Clients", 1)[1]
    code = re.search(rf"```{language}\n(.*?)```", text, re.S).group(1)
    assert len(code.strip().splitlines()) <= 10
    for name in ("ada.jpg", "visitor.jpg"):
        (tmp_path / name).write_bytes(FACE)
    script = tmp_path / ("client.mjs" if language == "javascript" else "client")
    script.write_text(code.replace("127.0.0.1:8080", f"127.0.0.1:{server.port}"))
    result = subprocess.run([*PROGRAMS[language], script], cwd=tmp_path, capture_output=True, text=True, timeout=60)
    assert result.returncode == 0, result.stderr
    assert "Ada Lovelace" in result.stdout
    assert server.ask("DELETE", "/v1/people/Ada%20Lovelace").status == 200
