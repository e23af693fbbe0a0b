"""Requests that mean no good: each gets its right answer, and the server lives on."""

import concurrent.futures
import hashlib
import json
import re
import struct
import time
import zlib

import pytest

from server import FACE, MASKED_FACE, Server, multipart, new_token

ROUTES = {
    "/v1/detect": ["POST"], "/v1/inspect": ["POST"], "/v1/match": ["POST"], "/v1/identify": ["POST"],
    "/v1/templates": ["POST"], "/v1/people": ["GET", "POST"], "/v1/people/x": ["GET", "PATCH", "DELETE"],
    "/v1/people/x/photos": ["GET", "POST"], "/v1/people/x/photos/0": ["GET", "DELETE"], "/v1/version": ["GET"],
    "/healthz": ["GET"], "/readyz": ["GET"], "/metrics": ["GET"], "/openapi.json": ["GET"],
}
ADMIN = "ADMIN-TOKEN"  # put in place of by the test


def request(method, target, *fields, body=b"", token=ADMIN, version="HTTP/1.1", host="127.0.0.1", length=None):
    lines = [f"{method} {target} {version}"] + ([f"Host: {host}"] if host is not None else []) + list(fields)
    if token:
        lines.append(f"Authorization: Bearer {token}")
    if body or method in ("POST", "PATCH") or length is not None:
        lines.append(f"Content-Length: {len(body) if length is None else length}")
    return ("\r\n".join(lines) + "\r\nConnection: close\r\n\r\n").encode("utf-8", "surrogateescape") + body


def photo(target, bytes_, content_type="image/jpeg"):
    return request("POST", target, f"Content-Type: {content_type}", body=bytes_)


def form(target, *parts, **how):
    content_type, body = multipart(parts)
    return request("POST", target, f"Content-Type: {content_type}", body=body, **how)


def person_form(target, name):
    return form(target, ("name", name), ("photo", FACE, "a.jpg"))


def json_body(text, target="/v1/people/x"):
    body = text if isinstance(text, bytes) else text.encode()
    return request("PATCH", target, "Content-Type: application/json", body=body)


def png(width, height, data=b""):
    def chunk(kind, content):
        return struct.pack(">I", len(content)) + kind + content + struct.pack(">I", zlib.crc32(kind + content))
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)) +
            chunk(b"IDAT", data) + chunk(b"IEND", b""))


def jpeg(width, height):
    return b"\xff\xd8\xff\xe0\x00\x10JFIF\x00\x01\x01\x00\x00\x01\x00\x01\x00\x00" + \
        b"\xff\xc0\x00\x11\x08" + struct.pack(">HH", height, width) + b"\x03\x01\x11\x00\x02\x11\x00\x03\x11\x00\xff\xd9"


def webp(width, height):
    chunk = b"VP8X" + struct.pack("<I", 10) + b"\x00" * 4 + (width - 1).to_bytes(3, "little") + \
        (height - 1).to_bytes(3, "little")
    return b"RIFF" + struct.pack("<I", len(chunk) + 4) + b"WEBP" + chunk + b"\x00" * 16


def bmp(width, height):
    return b"BM" + struct.pack("<IHHIIiiHHIIiiII", 54, 0, 0, 54, 40, width, height, 1, 24, 0, 0, 0, 0, 0, 0)


def tiff(width, height, order="<"):
    mark = b"II*\0" if order == "<" else b"MM\0*"
    entries = [(256, 4, 1, width), (257, 4, 1, height)]
    return mark + struct.pack(order + "IH", 8, 2) + \
        b"".join(struct.pack(order + "HHII", *entry) for entry in entries) + b"\0" * 4


BOMB = png(30000, 30000, zlib.compress(b"\0" * 90001))
BOMBS = {"png": BOMB, "png_wide": png(2 ** 31 - 1, 2), "jpeg": jpeg(65500, 65500), "webp": webp(16383, 16383),
         "webp_wide": webp(2 ** 24, 2 ** 24), "bmp": bmp(40000, 40000), "bmp_downwards": bmp(40000, -40000),
         "bmp_least": bmp(2 ** 31 - 1, -2 ** 31), "tiff": tiff(50000, 50000), "tiff_big": tiff(50000, 50000, ">"),
         "tiff_huge": tiff(2 ** 32 - 1, 2 ** 32 - 1)}
NO_PICTURES = {"text": b"no picture", "html": b"<html>", "gif": b"GIF89a" + b"\0" * 20, "zeros": b"\0" * 5000,
               "radiance": b"#?RADIANCE\n\n-Y 9 +X 9\n", "pnm": b"P6 30000 30000 255\n", "template": b"VD_V1" * 104}


def cases():
    yield from requests_that_are_none()
    yield from smuggled()
    yield from paths()
    yield from methods()
    yield from tokens()
    yield from bodies()
    yield from pictures()
    yield from names_and_json()
    yield from queries()


def requests_that_are_none():
    for name, text, status in [
            ("garbage", b"\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03" * 4 + b"\r\n\r\n", 400),
            ("no_version", b"GET /\r\nHost: a\r\n\r\n", 400), ("http_09", b"GET /\r\n\r\n", 400),
            ("http_2", b"PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n", 400), ("http_3", request("GET", "/", version="HTTP/3.0"), 505),
            ("http_12", request("GET", "/", version="HTTP/1.2"), 505), ("lower", request("GET", "/", version="http/1.1"), 400),
            ("no_host", request("GET", "/healthz", host=None), 400), ("two_hosts", request("GET", "/", "Host: b"), 400),
            ("empty_host", request("GET", "/", host=""), 400), ("host_path", request("GET", "/", host="a/b"), 400),
            ("host_user", request("GET", "/", host="me@a"), 400), ("nul", b"GET /\0 HTTP/1.1\r\nHost: a\r\n\r\n", 400),
            ("bare_lf", b"GET / HTTP/1.1\nHost: a\n\n\r\n\r\n", 400), ("bare_cr", request("GET", "/", "X: a\rb"), 400),
            ("lf_in_field", request("GET", "/", "X: a\nY: b"), 400), ("nul_in_field", request("GET", "/", "X: a\0"), 400),
            ("folded", request("GET", "/", "X: a\r\n b"), 400), ("no_colon", request("GET", "/", "nonsense"), 400),
            ("space_colon", request("GET", "/", "X : a"), 400), ("empty_name", request("GET", "/", ": a"), 400),
            ("bad_name", request("GET", "/", "X(): a"), 400), ("method", request("GE T", "/"), 400),
            ("method_signs", request("G@T", "/"), 400), ("leading_crlf", b"\r\n" + request("GET", "/"), 400),
            ("leading_space", b" " + request("GET", "/"), 400), ("tabs", b"GET\t/\tHTTP/1.1\r\nHost: a\r\n\r\n", 400),
            ("long_target", request("GET", "/" + "a" * 5000), 414),
            ("long_line", request("GET", "/", "X: " + "a" * 9000), 431),
            ("long_head", request("GET", "/", *[f"X{i}: " + "a" * 1000 for i in range(40)]), 431),
            ("many_fields", request("GET", "/", *[f"X{i}: a" for i in range(100)]), 431),
            ("expect", request("GET", "/", "Expect: gold"), 417),
            ("two_types", request("POST", "/v1/detect", "Content-Type: image/png", "Content-Type: text/html"), 400),
            ("two_tokens", request("GET", "/v1/people", "Authorization: Bearer x"), 400),
            ("upgrade", request("GET", "/healthz", "Upgrade: websocket"), 200),
            ("h2c", request("GET", "/healthz", "Upgrade: h2c", "HTTP2-Settings: AAMAAABkAARAAAAAAAIAAAAA"), 200),
            ("range", request("GET", "/openapi.json", "Range: bytes=" + ",".join("0-" for _ in range(500))), 200),
            ("http_10", b"GET /healthz HTTP/1.0\r\n\r\n", 200), ("absolute", request("GET", "http://a/healthz"), 400),
            ("star", request("OPTIONS", "*"), 400), ("connect", request("CONNECT", "a:443"), 400)]:
        yield name, text, status


def smuggled():
    after = b"GET /v1/people HTTP/1.1\r\nHost: a\r\n\r\n"
    head = "POST /v1/detect HTTP/1.1\r\nHost: a\r\n"
    for name, fields, body, status in [
            ("both", "Content-Length: 6\r\nTransfer-Encoding: chunked", b"0\r\n\r\nG", 400),
            ("both_other", "Transfer-Encoding: chunked\r\nContent-Length: 6", b"0\r\n\r\nG", 400),
            ("chunked", "Transfer-Encoding: chunked", b"0\r\n\r\n", 411),
            ("chunked_huge", "Transfer-Encoding: chunked", b"ffffffffffffffff\r\n", 411),
            ("coding_case", "tRANSFER-eNCODING: cHUNKED", b"0\r\n\r\n", 411),
            ("coding_twice", "Transfer-Encoding: identity\r\nTransfer-Encoding: chunked", b"0\r\n\r\n", 411),
            ("coding_space", "Transfer-Encoding : chunked", b"0\r\n\r\n", 400),
            ("coding_tab", "Transfer-Encoding:\tchunked", b"0\r\n\r\n", 411),
            ("coding_vt", "Transfer-Encoding: \x0bchunked", b"0\r\n\r\n", 400),
            ("coding_folded", "Transfer-Encoding:\r\n chunked", b"0\r\n\r\n", 400),
            ("gzip_coding", "Transfer-Encoding: gzip", b"", 411),
            ("lengths", "Content-Length: 5\r\nContent-Length: 6", b"hello", 400),
            ("same_lengths", "Content-Length: 5\r\nContent-Length: 5", b"hello", 400),
            ("list", "Content-Length: 5, 5", b"hello", 400), ("plus", "Content-Length: +5", b"hello", 400),
            ("minus", "Content-Length: -5", b"hello", 400), ("hex", "Content-Length: 0x5", b"hello", 400),
            ("point", "Content-Length: 5.0", b"hello", 400), ("empty", "Content-Length: ", b"hello", 400),
            ("words", "Content-Length: five", b"hello", 400),
            ("overflow", "Content-Length: 18446744073709551621", b"hello", 400),
            ("huge", "Content-Length: 999999999999999", b"hello", 413),
            ("gzip", "Content-Encoding: gzip\r\nContent-Length: 5", b"hello", 415),
            ("brotli", "Content-Encoding: br\r\nContent-Length: 5", b"hello", 415)]:
        yield name, (head + fields + "\r\n\r\n").encode() + body, status
        yield name + "_followed", (head + fields + "\r\n\r\n").encode() + body + after, status
    yield "get_body", request("GET", "/v1/people", body=b"hello"), 400
    yield "delete_body", request("DELETE", "/v1/people/x", body=b"hello"), 400
    yield "no_length", b"POST /v1/detect HTTP/1.1\r\nHost: a\r\nAuthorization: Bearer ADMIN-TOKEN\r\n\r\n", 411


def paths():
    for target, status in [
            ("/../etc/passwd", 404), ("/..%2f..%2fetc/passwd", 404), ("/%2e%2e/%2e%2e/etc/passwd", 404),
            ("/index.html/..", 404), ("/./index.html", 404), ("//index.html", 404), ("/index.html%00.js", 400),
            ("/v1/people/..", 404), ("/v1/people/%2e%2e%2fversion", 404), ("/v1/people/%", 400), ("/v1/people/%zz", 400),
            ("/v1/people/%a", 400), ("/v1/people/%00", 400), ("/v1/people/%ff%fe", 404), ("/v1/people/%c0%af", 404),
            ("/v1/people/%0d%0aSet-Cookie:%20a=b", 404), ("/v1/people/'%20OR%201=1--", 404), ("/v1/people/", 404),
            ("/v1//people", 404), ("/v1/people/x/photos/", 404), ("/v1/people/x/photos/../..", 404), ("/V1/people", 404),
            ("/v1/people/x/photos/%", 400), ("/v1/people/" + "%41" * 1000, 404), ("/v1/people/x/y", 404),
            ("/page_files.inc", 404), ("/.git/config", 404), ("/v1/people\\x", 404), ("/#fragment", 400),
            ("/v1/people/" + "a/" * 500, 404), ("/;/v1/people", 404), ("/v1/people;x=1", 404), ("/caf\u00e9", 400)]:
        yield "path " + target[:40], request("GET", target), status


def methods():
    for path, allowed in ROUTES.items():
        for method in ("GET", "POST", "PATCH", "DELETE", "PUT"):
            if method not in allowed:
                yield f"{method} {path}", request(method, path), 405
    for method in ("TRACE", "PROPFIND", "FOO", "M" * 3000):
        yield method[:9], request(method, "/v1/people"), 501
    yield "post to the page", request("POST", "/index.html"), 405


def tokens():
    for name, fields, status in [
            ("none", [], 401), ("basic", ["Authorization: Basic YTpi"], 401), ("empty", ["Authorization: Bearer "], 401),
            ("wrong", ["Authorization: Bearer veldan_" + "0" * 64], 401), ("long", ["Authorization: Bearer " + "a" * 7000], 401),
            ("signs", ["Authorization: Bearer \u20ac"], 401), ("expired", ["Authorization: Bearer EXPIRED-TOKEN"], 401),
            ("digest", ["Authorization: Bearer DIGEST-OF-TOKEN"], 401), ("cookie", ["Cookie: token=ADMIN-TOKEN"], 401),
            ("other_field", ["X-Token: ADMIN-TOKEN"], 401)]:
        yield "token " + name, request("GET", "/v1/people", *fields, token=None), status
    yield "token in the query", request("GET", "/v1/people?token=ADMIN-TOKEN", token=None), 401
    yield "token in the query, too", request("GET", "/v1/people?access_token=ADMIN-TOKEN"), 400
    for target, method in (("/v1/people", "POST"), ("/v1/people/x", "DELETE"), ("/v1/people/x", "PATCH"),
                           ("/v1/people/x/photos", "POST"), ("/v1/people/x/photos/0", "DELETE")):
        yield f"reader: {method} {target}", request(method, target, token="READ-TOKEN"), 403
    yield "enroller removes", request("DELETE", "/v1/people/x", token="ENROL-TOKEN"), 403
    yield "enroller renames", request("PATCH", "/v1/people/x", token="ENROL-TOKEN"), 403
    for origin in ("http://evil.example", "null", "http://127.0.0.1.evil.example", "https://127.0.0.1"):
        yield "origin " + origin, request("GET", "/v1/people", "Origin: " + origin), 403
    yield "preflight", request("OPTIONS", "/v1/people", "Origin: http://evil.example"), 403


def bodies():
    yield "too large", request("POST", "/v1/detect", length=2 ** 20 + 1), 413
    yield "too large, sent", request("POST", "/v1/detect", body=b"\0" * (2 ** 20 + 1)), 413
    yield "cut off", request("POST", "/v1/detect", "Content-Type: image/jpeg", body=FACE[:1000], length=5000), 400
    yield "empty", photo("/v1/detect", b""), 422
    for media in ("text/html", "application/x-www-form-urlencoded", "application/json", "nonsense", "multipart/mixed"):
        yield "type " + media, photo("/v1/detect", FACE, media), 415
    kind = "multipart/form-data"
    for name, media, body, status in [
            ("no boundary", kind, b"x", 400), ("empty boundary", kind + "; boundary=", b"x", 400),
            ("other boundary", kind + "; boundary=a", multipart([("photo", FACE)])[1], 400),
            ("long boundary", kind + "; boundary=" + "b" * 5000, b"x", 400),
            ("not closed", kind + "; boundary=part-of-a-test", multipart([("photo", FACE)])[1][:-30], 400),
            ("no disposition", kind + "; boundary=b", b"--b\r\n\r\nx\r\n--b--\r\n", 422),
            ("nothing", kind + "; boundary=b", b"--b--\r\n", 400),
            ("endless header", kind + "; boundary=b", b"--b\r\nContent-Disposition: " + b"a" * 100000, 400)]:
        yield name, request("POST", "/v1/detect", "Content-Type: " + media, body=body), status
    yield "no photo", form("/v1/detect", ("name", "x")), 422
    yield "other part", form("/v1/detect", ("photo", FACE), ("x", "y")), 422
    yield "two photos", form("/v1/detect", ("photo", FACE), ("photo", FACE)), 422
    yield "one side", form("/v1/match", ("a", FACE)), 422
    yield "three sides", form("/v1/match", ("a", FACE), ("b", FACE), ("a", FACE)), 422
    yield "match without parts", photo("/v1/match", FACE), 415
    yield "many photos", form("/v1/people", ("name", "x"), *[("photo", b"\xff")] * 17), 422
    yield "many parts", form("/v1/detect", *[(f"p{i}", b"") for i in range(2000)]), 400
    yield "person without name", form("/v1/people", ("photo", FACE)), 422
    yield "person without photo", form("/v1/people", ("name", "x")), 422
    yield "person with two names", form("/v1/people", ("name", "x"), ("name", "y"), ("photo", FACE)), 422
    yield "long field", form("/v1/people", ("name", "n" * 2000), ("photo", FACE)), 422
    yield "file name tricks", form("/v1/detect", ("photo", b"x", "../../etc/passwd")), 415


def pictures():
    for name, bomb in BOMBS.items():
        yield "bomb " + name, photo("/v1/detect", bomb), 413
    yield "bomb as a person", form("/v1/people", ("name", "x"), ("photo", BOMB, "a.png")), 413
    yield "bomb to compare", form("/v1/match", ("a", FACE), ("b", BOMB)), 413
    for name, bytes_ in NO_PICTURES.items():
        yield "no picture " + name, photo("/v1/detect", bytes_), 422 if name in ("gif", "radiance") else 415
    for name, bytes_ in {"png": png(200, 200), "png_data": png(200, 200, b"\xff" * 50), "jpeg": jpeg(200, 200),
                         "webp": webp(200, 200), "bmp": bmp(200, 200), "tiff": tiff(200, 200), "no_size": FACE[:20],
                         "png_head": png(200, 200)[:12]}.items():
        yield "damaged " + name, photo("/v1/detect", bytes_), 422
    yield "template damaged", photo("/v1/identify", b"VD_V" + b"\0" * 516), 422
    yield "template cut off", photo("/v1/identify", b"VD_V"), 422
    yield "small", photo("/v1/detect", png(20, 20, zlib.compress((b"\0" + b"\0" * 60) * 20))), 422
    yield "nobody there", form("/v1/people", ("name", "x"), ("photo", png(
        200, 200, zlib.compress((b"\0" + b"\x80" * 600) * 200)))), 422
    yield "mask", form("/v1/people", ("name", "x"), ("photo", MASKED_FACE)), 422


def names_and_json():
    for name in ("", " x", ".", "a/b", "a\tb", "a\0b", "a\x1b[2J", "n" * 201):
        yield "name " + repr(name)[:20], person_form("/v1/people", name), 422
    yield "name not UTF-8", person_form("/v1/people", b"\xff\xfe"), 422
    yield "name overlong", person_form("/v1/people", b"\xc0\xaf"), 422
    yield "photo of nobody", form("/v1/people/nobody/photos", ("photo", FACE)), 404
    for name, text, status in [
            ("none", "", 400), ("words", "name", 400), ("deep", "[" * 2000 + "]" * 2000, 400),
            ("deeper", '{"name":' * 400 + "1" + "}" * 400, 400), ("open", '{"name": "x"', 400), ("array", "[]", 422),
            ("number", '{"name": 1}', 422), ("null", '{"name": null}', 422), ("other", '{"name": "y", "role": "admin"}', 422),
            ("merge", '{"name": "y", "merge": "yes"}', 422), ("utf8", b'{"name": "\xff"}', 400),
            ("surrogate", '{"name": "\\ud800"}', 400), ("nobody", '{"name": "y"}', 404),
            ("long", '{"name": "' + "x" * 5000 + '"}', 413), ("two", '{"name": "a"} {"name": "b"}', 400),
            ("bom_in", '{"name": "a\\u0000b"}', 422), ("nan", '{"name": NaN}', 400)]:
        yield "JSON " + name, json_body(text), status
    yield "JSON as text", request("PATCH", "/v1/people/x", "Content-Type: text/plain", body=b'{"name": "y"}'), 415


def queries():
    for query, status in [("x=1", 400), ("threshold=2.5x", 400), ("threshold=-1", 400), ("threshold=nan", 400),
                          ("threshold=1e999", 400), ("top=0", 400), ("top=-1", 400), ("top=101", 400),
                          ("top=99999999999999999999", 400), ("top=1&top=2", 400), ("top=%", 400), ("top", 400), ("=1", 400),
                          ("&&&", 400), ("top=1%00", 400), ("threshold=0.5&", 415)]:
        yield "query " + query, photo("/v1/identify?" + query, b"x"), status
    for target in ("/v1/inspect?light=red", "/v1/templates?kind=both", "/v1/people/x/photos?largest=2",
                   "/v1/detect?top=1"):
        yield "query " + target, photo(target, b"x"), 400
    yield "query masked", form("/v1/match?masked=maybe", ("a", FACE), ("b", FACE)), 400


ALL = list(cases())


@pytest.fixture(scope="module")
def server(tmp_path_factory):
    folder = tmp_path_factory.mktemp("hostile")
    tokens_file = folder / "tokens"
    known = {role: new_token(tokens_file, role, role) for role in ("read", "enrol", "admin")}
    known["expired"] = new_token(tokens_file, "expired", "admin", "--expires", "2020-01-01")
    with Server(folder, "--tokens", tokens_file, "--max-body", 1, "--max-pixels", 2, "--timeout", 3,
                token=known["admin"]) as its:
        its.words = {f"{role.upper()}-TOKEN".encode(): token.encode() for role, token in known.items()}
        its.words[b"DIGEST-OF-TOKEN"] = hashlib.sha256(known["admin"].encode()).hexdigest().encode()
        yield its


def test_there_are_enough():
    assert len(ALL) >= 200


@pytest.mark.parametrize("text, status", [case[1:] for case in ALL], ids=[case[0] for case in ALL])
def test_gets_its_answer(server, text, status):
    for word, token in server.words.items():
        text = text.replace(word, token)
    got, answer = server.raw(text)
    assert got == status, answer
    assert len(re.findall(rb"HTTP/1.1 \d\d\d ", answer)) == 1, "what follows such a request is not another one"
    if status >= 400:
        head, body = answer.split(b"\r\n\r\n", 1)
        assert b"application/problem+json" in head
        assert json.loads(body)["status"] == status
        assert str(server.folder).encode() not in answer
    assert server.process.poll() is None
    assert server.ask("GET", "/healthz").status == 200


def pause(seconds):
    return lambda: time.sleep(seconds)


def test_slow_clients_time_out(server):
    head = request("POST", "/v1/detect", "Content-Type: image/jpeg", body=FACE).replace(
        b"ADMIN-TOKEN", server.token.encode())
    drip = [piece for i in range(20) for piece in (head[i:i + 1], pause(0.3))]
    late = [head[:2000], pause(5), head[2000:]]
    with concurrent.futures.ThreadPoolExecutor() as pool:
        answers = [pool.submit(server.raw, *pieces) for pieces in (drip, late, [pause(5)]) for _ in range(3)]
        statuses = [answer.result()[0] for answer in answers]
    assert statuses == [408] * 6 + [None] * 3
    assert server.ask("GET", "/healthz").status == 200


def test_only_so_many_clients_and_requests_wait(tmp_path):
    with Server(tmp_path, "--workers", 1, "--queue", 1, "--connections", 12) as server:
        with concurrent.futures.ThreadPoolExecutor(10) as pool:
            answers = list(pool.map(lambda _: server.ask("POST", "/v1/inspect", FACE, "image/jpeg"), range(40)))
        counts = {status: sum(answer.status == status for answer in answers) for status in (200, 503)}
        assert counts[200] > 0 and counts[503] > 0 and sum(counts.values()) == 40
        assert all(answer.headers["Retry-After"] for answer in answers if answer.status == 503)
        assert server.ask("GET", "/healthz").status == 200
