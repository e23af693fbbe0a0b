"""Whoever was told 201 is in the gallery, whenever the server is killed."""

import http.client
import itertools
import json
import random
import signal
import subprocess
import threading
import time

from server import COMMAND, FACE, OTHER_FACE, Server

ROUNDS = 20


def test_every_201_survives_kill_9(tmp_path):
    choice = random.Random(20)
    numbers = itertools.count()
    told = {}  # name: digests

    def enrol(server, over):
        while not over.is_set():
            # Bytes behind a JPEG picture's end make it another photo.
            name, mark = f"person {next(numbers)}", str(next(numbers)).encode()
            try:
                answer = server.form("/v1/people", ("name", name), ("photo", FACE + mark), ("photo", OTHER_FACE))
            except (OSError, http.client.HTTPException):
                continue
            if answer.status == 201:
                told[name] = {photo["digest"] for photo in answer.json()["photos"]}

    server = Server(tmp_path, "--workers", 2)
    in_time = 0
    for _ in range(ROUNDS):
        over = threading.Event()
        clients = [threading.Thread(target=enrol, args=(server, over)) for _ in range(4)]
        before = len(told)
        for client in clients:
            client.start()
        deadline = time.monotonic() + 60
        while len(told) < before + 2 and time.monotonic() < deadline:
            time.sleep(0.01)
        time.sleep(choice.random() * 0.3)
        server.process.send_signal(signal.SIGKILL)
        server.process.wait()
        over.set()
        for client in clients:
            client.join()
        server.process.stdout.close()
        in_time += len(told) > before
        shown = subprocess.run([COMMAND, "gallery", "show", "--gallery", server.gallery, "--json"], capture_output=True, check=True)
        kept = {person["name"]: {photo["digest"] for photo in person["photos"]} for person in json.loads(shown.stdout)["persons"]}
        for name, digests in told.items():
            assert kept.get(name) == digests, name
        assert all(len(digests) == 2 for digests in kept.values()), "no half of a request"
        server.start()
    server.stop()
    assert in_time == ROUNDS
    print(f"{len(told)} persons acknowledged and kept over {ROUNDS} kills")
