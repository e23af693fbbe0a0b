"""Starts and asks a server of the built command."""

import http.client
import json
import os
import pathlib
import signal
import socket
import subprocess

COMMAND = os.environ["VELDAN_COMMAND"]
PHOTOS = pathlib.Path(os.environ["VELDAN_PHOTOS"])
FACE = (PHOTOS / "astronaut.jpg").read_bytes()
OTHER_FACE = (PHOTOS / "first-bare.webp").read_bytes()
MASKED_FACE = (PHOTOS / "first-mask.webp").read_bytes()


def multipart(parts, boundary="part-of-a-test"):
    """(type, body) of a form; parts are (name, content) or (name, content, file name)."""
    body = b""
    for name, content, *file_name in parts:
        content = content.encode() if isinstance(content, str) else content
        file_name = f'; filename="{file_name[0]}"' if file_name else ""
        body += f'--{boundary}\r\nContent-Disposition: form-data; name="{name}"{file_name}\r\n\r\n'.encode()
        body += content + b"\r\n"
    return f"multipart/form-data; boundary={boundary}", body + f"--{boundary}--\r\n".encode()


class Answer:
    def __init__(self, response, body):
        self.status = response.status
        self.headers = response.headers
        self.body = body

    def json(self):
        return json.loads(self.body)


class Server:
    """A server on a free port of this machine; ends with the block."""

    def __init__(self, folder, *options, gallery="gallery.db", token=None):
        self.folder = pathlib.Path(folder)
        self.gallery = self.folder / gallery
        self.options = [str(option) for option in options]
        self.token = token
        self.log = self.folder / "log.jsonl"
        self.start()

    def start(self):
        with open(self.log, "ab") as log:
            self.process = subprocess.Popen(
                [COMMAND, "serve", "--gallery", self.gallery, "--listen", "127.0.0.1:0", *self.options],
                stdout=subprocess.PIPE, stderr=log)
        line = self.process.stdout.readline().decode()
        assert line.startswith("listening on "), self.log.read_text()
        self.port = int(line.rsplit(":", 1)[1])

    def stop(self, how=signal.SIGTERM):
        self.process.send_signal(how)
        code = self.process.wait(60)
        self.process.stdout.close()
        return code

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.process.poll() is None:
            assert self.stop() == 0

    def ask(self, method, target, body=None, content_type=None, token=None, headers=None, connection=None):
        headers = dict(headers or {})
        if content_type:
            headers["Content-Type"] = content_type
        if token or self.token:
            headers["Authorization"] = f"Bearer {token or self.token}"
        own = connection or http.client.HTTPConnection("127.0.0.1", self.port, timeout=60)
        own.request(method, target, body, headers)
        response = own.getresponse()
        answer = Answer(response, response.read())
        if connection is None:
            own.close()
        return answer

    def form(self, target, *parts, **how):
        content_type, body = multipart(parts)
        return self.ask("POST", target, body, content_type, **how)

    def raw(self, *pieces, patience=20):
        """Sends bytes as they are (a callable among them is called) and gives (status, all bytes that come back)."""
        with socket.create_connection(("127.0.0.1", self.port), timeout=patience) as peer:
            answer = b""
            try:
                for piece in pieces:
                    if callable(piece):
                        piece()
                    else:
                        peer.sendall(piece)
                peer.shutdown(socket.SHUT_WR)
            except OSError:
                pass  # the answer has come already
            try:
                while chunk := peer.recv(65536):
                    answer += chunk
            except OSError:
                pass
            return (int(answer[9:12]) if answer.startswith(b"HTTP/1.1 ") else None), answer


def new_token(file, name, role, *options):
    return subprocess.run([COMMAND, "token", "new", "--tokens", file, name, role, *options], check=True,
                          capture_output=True, text=True).stdout.strip()
