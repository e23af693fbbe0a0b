"""Who gets in, what is written about it, and how a server starts and ends."""

import http.client
import json
import os
import signal
import socket
import ssl
import subprocess
import threading
import time

import pytest

from server import COMMAND, FACE, Server, new_token


@pytest.mark.parametrize("options, words", [
    (["--listen", "0.0.0.0:0"], "--insecure goes without"), (["--listen", "[::]:0"], "--insecure goes without"),
    (["--tls-cert", "a.pem"], "go together"), (["--listen", "nonsense"], "ADDRESS:PORT"),
    (["--listen", "127.0.0.1:99999"], "ADDRESS:PORT"), (["--listen", "127.0.0.1:"], "ADDRESS:PORT")])
def test_nobody_is_let_in_by_mistake(options, words, tmp_path):
    result = subprocess.run([COMMAND, "serve", "--gallery", tmp_path / "g.db", *options], capture_output=True, text=True,
                            timeout=60)
    assert result.returncode == 2
    assert words in result.stderr


def test_tokens_without_tls_do_not_open_an_address(tmp_path):
    new_token(tmp_path / "tokens", "a", "admin")
    result = subprocess.run([COMMAND, "serve", "--gallery", tmp_path / "g.db", "--listen", "0.0.0.0:0", "--tokens",
                             tmp_path / "tokens"], capture_output=True, text=True, timeout=60)
    assert result.returncode == 2


def test_a_token_is_told_once_and_kept_as_a_digest(tmp_path):
    token = new_token(tmp_path / "tokens", "door", "read", "--expires", "2999-12-31")
    text = (tmp_path / "tokens").read_text()
    assert text.startswith("door read ") and token not in text
    assert (tmp_path / "tokens").stat().st_mode & 0o777 == 0o600
    again = subprocess.run([COMMAND, "token", "new", "--tokens", tmp_path / "tokens", "door", "admin"], capture_output=True)
    assert again.returncode == 2
    assert (tmp_path / "tokens").read_text() == text
    with Server(tmp_path, "--tokens", tmp_path / "tokens", token=token) as server:
        assert server.ask("GET", "/v1/people").status == 200
        assert server.ask("DELETE", "/v1/people/x").status == 403


@pytest.mark.parametrize("line", ["door read", "door king " + "0" * 64, "door read 12", "door read " + "0" * 64 + " soon"])
def test_a_wrong_file_of_tokens_lets_nobody_in(line, tmp_path):
    (tmp_path / "tokens").write_text(line + "\n")
    result = subprocess.run([COMMAND, "serve", "--gallery", tmp_path / "g.db", "--listen", "127.0.0.1:0", "--tokens",
                             tmp_path / "tokens"], capture_output=True, text=True, timeout=60)
    assert result.returncode == 2 and "tokens:1" in result.stderr


def test_wrong_tokens_are_counted_and_tokens_are_reloaded(tmp_path):
    file = tmp_path / "tokens"
    admin = new_token(file, "boss", "admin")
    with Server(tmp_path, "--tokens", file, token=admin) as server:
        for _ in range(5):
            assert server.ask("GET", "/v1/people", token="veldan_x").status == 401
        assert b"veldan_refused_tokens_total 5\n" in server.ask("GET", "/metrics").body
        late = new_token(file, "late", "read")
        assert server.ask("GET", "/v1/people", token=late).status == 401
        server.process.send_signal(signal.SIGHUP)
        time.sleep(1)
        assert server.ask("GET", "/v1/people", token=late).status == 200
        file.write_text("nonsense\n")  # refused: the tokens stay
        server.process.send_signal(signal.SIGHUP)
        time.sleep(1)
        assert server.ask("GET", "/v1/people", token=late).status == 200
        assert server.ask("GET", "/v1/version", token="x").status == 401


def test_other_names_and_places_are_refused(tmp_path):
    with Server(tmp_path, "--cors-origin", "https://faces.example") as server:
        own = f"http://127.0.0.1:{server.port}"
        for headers, status in [({"Host": "rebound.example"}, 421), ({"Host": "localhost:80"}, 200), ({"Origin": own}, 200),
                                ({"Origin": "https://faces.example"}, 200), ({"Origin": "https://other.example"}, 403)]:
            answer = server.ask("GET", "/v1/people", headers=headers)
            assert answer.status == status, headers
            wanted = "https://faces.example" if headers.get("Origin") == "https://faces.example" else None
            assert answer.headers["Access-Control-Allow-Origin"] == wanted
        answer = server.ask("GET", "/")
        assert "default-src 'none'" in answer.headers["Content-Security-Policy"]
        assert "unsafe" not in answer.headers["Content-Security-Policy"]
        assert answer.headers["X-Content-Type-Options"] == "nosniff"


@pytest.fixture(scope="module")
def certificate(tmp_path_factory):
    folder = tmp_path_factory.mktemp("tls")
    subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", "/CN=localhost", "-addext",
                    "subjectAltName=DNS:localhost,IP:127.0.0.1", "-keyout", folder / "key.pem", "-out", folder / "cert.pem"],
                   check=True, capture_output=True)
    return folder


def test_tls(certificate, tmp_path):
    with Server(tmp_path, "--tls-cert", certificate / "cert.pem", "--tls-key", certificate / "key.pem", "--timeout", 3) as server:
        context = ssl.create_default_context(cafile=certificate / "cert.pem")
        client = http.client.HTTPSConnection("localhost", server.port, context=context, timeout=30)
        for _ in range(2):  # one connection, two requests
            client.request("POST", "/v1/detect", FACE, {"Content-Type": "image/jpeg"})
            response = client.getresponse()
            assert response.status == 200 and len(json.loads(response.read())["photos"][0]["faces"]) == 1
        assert response.headers["Strict-Transport-Security"]
        client.close()
        assert server.raw(b"GET / HTTP/1.1\r\nHost: a\r\n\r\n")[0] is None  # no plain HTTP there
        with socket.create_connection(("127.0.0.1", server.port)) as silent:
            silent.settimeout(30)
            assert silent.recv(1) == b""  # no greeting within the time
        old = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
        old.check_hostname, old.verify_mode = False, ssl.CERT_NONE
        old.minimum_version = ssl.TLSVersion.TLSv1
        old.maximum_version = ssl.TLSVersion.TLSv1_1
        with pytest.raises((ssl.SSLError, ConnectionError)):
            old.wrap_socket(socket.create_connection(("127.0.0.1", server.port)))


def test_changes_are_in_the_audit_file_and_faces_nowhere(tmp_path):
    admin = new_token(tmp_path / "tokens", "boss", "admin")
    audit = tmp_path / "audit.jsonl"
    audit.write_text("first\n")
    with Server(tmp_path, "--tokens", tmp_path / "tokens", "--audit", audit, token=admin) as server:
        assert server.form("/v1/people", ("name", "Ada"), ("photo", FACE)).status == 201
        assert server.ask("PATCH", "/v1/people/Ada", '{"name": "Eve"}', "application/json").status == 200
        assert server.ask("DELETE", "/v1/people/Eve").status == 200
        assert server.ask("DELETE", "/v1/people/Eve").status == 404
        assert server.ask("GET", "/v1/people").status == 200
    first, *lines = audit.read_text().splitlines()
    assert first == "first"
    events = [json.loads(line) for line in lines]
    assert [(one["event"], one["person"], one["caller"]) for one in events] == [
        ("photo enrolled", "Ada", "boss"), ("person renamed", "Ada", "boss"), ("person removed", "Eve", "boss")]
    log = [json.loads(line) for line in server.log.read_text().splitlines()]
    assert [one["status"] for one in log] == [201, 200, 200, 404, 200]
    assert {one["caller"] for one in log} == {"boss"}
    assert "Ada" not in server.log.read_text() and admin not in server.log.read_text()
    for left in tmp_path.iterdir():  # what was removed is overwritten
        assert b"Ada" not in left.read_bytes() or left == audit


def test_nothing_is_changed_that_cannot_be_recorded(tmp_path):
    with Server(tmp_path, "--audit", "/dev/full") as server:
        server.form("/v1/people", ("name", "Ada"), ("photo", FACE))  # the first one finds out
        assert server.ask("DELETE", "/v1/people/Ada").status == 503
        assert server.ask("GET", "/v1/people/Ada").status == 200
        assert server.ask("GET", "/readyz").status == 503


def test_what_has_begun_is_answered_before_the_end(tmp_path):
    with Server(tmp_path, "--workers", 1) as server:
        answers = []
        clients = [threading.Thread(target=lambda: answers.append(server.ask("POST", "/v1/inspect", FACE, "image/jpeg")))
                   for _ in range(6)]
        for client in clients:
            client.start()
        time.sleep(0.3)
        assert server.stop() == 0
        for client in clients:
            client.join()
    assert [answer.status for answer in answers] == [200] * 6
    with pytest.raises(ConnectionRefusedError):
        server.ask("GET", "/healthz")


def test_systemd_is_told(tmp_path):
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as ear:
        ear.bind(str(tmp_path / "notify"))
        ear.settimeout(30)
        os.environ["NOTIFY_SOCKET"] = str(tmp_path / "notify")
        try:
            with Server(tmp_path) as server:
                assert ear.recv(100) == b"READY=1"
                server.stop()
                assert ear.recv(100) == b"STOPPING=1"
        finally:
            del os.environ["NOTIFY_SOCKET"]
