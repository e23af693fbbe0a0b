#!/usr/bin/env python3
"""Measures searches in PostgreSQL beside those in memory: measure.py [--rows N] [--rounds N]

Starts servers of its own (tests/postgresql/servers.py): one with all templates, and two that share them, with the first
one in front. Run with VELDAN_LIBRARY and VELDAN_EXTENSION as the tests have them (tests/postgresql/CMakeLists.txt).

Wall times are the least of all rounds, processor times the medians, with those of all processes of a server. Processor
times hold on a loaded machine, too, as far as processors do not share caches and arithmetic.
"""

import argparse
import ctypes
import os
import pathlib
import re
import resource
import statistics
import subprocess
import sys
import time

import numpy as np

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tests" / "postgresql"))
from servers import Servers  # noqa: E402  # pylint: disable=wrong-import-position

FEATURE = 128
SIZE = 520
MOST = 10
CHUNK = 50000
PLAIN_SHARE = 20  # of the rows are enough for plain SQL
TICK = os.sysconf("SC_CLK_TCK")


def say(*words):
    sys.stdout.write(" ".join(map(str, words)) + "\n")
    sys.stdout.flush()


def templates_of(features):
    made = np.zeros((len(features), SIZE), np.uint8)
    made[:, :7] = np.frombuffer(b"VD_V5.0", np.uint8)
    made[:, 8:] = features.view(np.uint8).reshape(len(features), -1)
    made[:, 7] = np.bitwise_xor.reduce(made, axis=1)
    return made


def features(count):
    random = np.random.default_rng(1)
    for start in range(0, count, CHUNK):
        yield start, (random.standard_normal((min(CHUNK, count - start), FEATURE)) * 6).astype(np.float32)


def binary_rows(first, content):
    """(id, id, content) as COPY takes it."""
    size = content.shape[1]
    rows = np.zeros(len(content), dtype=[("fields", ">i2"), ("l0", ">i4"), ("photo", ">i8"), ("l1", ">i4"),
                                         ("person", ">i8"), ("l2", ">i4"), ("content", "u1", size)])
    rows["fields"], rows["l0"], rows["l1"], rows["l2"] = 3, 8, 8, size
    rows["photo"] = rows["person"] = np.arange(first + 1, first + 1 + len(content))
    rows["content"] = content
    return rows.tobytes()


def binary_arrays(values):
    """float4[] as COPY takes it."""
    elements = np.zeros((len(values), FEATURE), dtype=[("size", ">i4"), ("value", ">f4")])
    elements["size"], elements["value"] = 4, values
    head = np.frombuffer(np.array([1, 0, 700, FEATURE, 1], ">i4").tobytes(), np.uint8)
    return np.hstack([np.tile(head, (len(values), 1)), elements.view(np.uint8).reshape(len(values), -1)])


def load(servers, number, table, chunks):
    """@return seconds"""
    start = time.perf_counter()
    with subprocess.Popen(["psql", "-X", "-q", "-d", servers.url(number), "-c",
                           f"COPY {table} (photo, person, template) FROM stdin (FORMAT binary)"],
                          stdin=subprocess.PIPE) as client:
        client.stdin.write(b"PGCOPY\n\xff\r\n\0" + bytes(8))
        for chunk in chunks:
            client.stdin.write(chunk)
        client.stdin.write(b"\xff\xff")
        client.stdin.close()
    if client.returncode != 0:
        raise RuntimeError("the templates could not be loaded")
    seconds = time.perf_counter() - start
    servers.psql(f"VACUUM (ANALYZE, FREEZE) {table}", number)
    return seconds


def processor_seconds(servers):
    """Of all processes of the servers that have ended; their sessions do with each measurement."""
    total = 0
    for process in servers.processes.values():
        with open(f"/proc/{process.pid}/stat", encoding="ascii") as file:
            fields = file.read().rpartition(")")[2].split()
        total += int(fields[13]) + int(fields[14])
    return total / TICK


class Measured:
    """Milliseconds of searches, round by round."""

    def __init__(self, run, scale=1):
        self.run, self.scale = run, scale
        self.walls, self.processors = [], []

    def measure(self):
        wall, processor = self.run()
        self.walls.append(wall * self.scale)
        self.processors.append(processor * self.scale)


def sql_search(servers, settings, statement, repeats=5):
    """The second and later ones of a session."""
    def run():
        before = processor_seconds(servers)
        done = subprocess.run(["psql", "-X", "-q", "-d", servers.url(1)], input=settings + statement * 1 + "\\timing on\n" +
                              statement * repeats, capture_output=True, text=True, check=True)
        if done.stderr:
            raise RuntimeError(done.stderr)
        walls = [float(ms) for ms in re.findall(r"^Time: ([0-9.]+) ms", done.stdout, re.MULTILINE)]
        time.sleep(0.2)  # until the server has seen its processes end
        return min(walls), (processor_seconds(servers) - before) * 1000 / (repeats + 1)
    return run


def memory_search(gallery, probe):
    library = ctypes.CDLL(os.environ["VELDAN_LIBRARY"])
    library.zzInitAlgThread.restype = ctypes.c_void_p
    handle = ctypes.c_void_p(library.zzInitAlgThread(b"", ctypes.byref(ctypes.c_int())))
    record = ctypes.create_string_buffer(8192)

    def run():
        walls = []
        before = resource.getrusage(resource.RUSAGE_SELF)
        for _ in range(5):
            start = time.perf_counter()
            library.zzDetectSearchFeatureThread(handle, gallery.ctypes.data_as(ctypes.c_void_p), len(gallery), 0,
                                                probe.ctypes.data_as(ctypes.c_void_p), record)
            walls.append((time.perf_counter() - start) * 1000)
        after = resource.getrusage(resource.RUSAGE_SELF)
        return min(walls), (after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime) * 1000 / 5
    return run


def shards_sql(servers, half):
    """Templates of the first server spread over the two others by hand; galleries have "veldan gallery shard"."""
    for number in (2, 3):
        servers.psql(f"CREATE EXTENSION veldan; CREATE TABLE face (photo bigint, person bigint, template face_template, "
                     f"shard integer NOT NULL DEFAULT {number})", number)
    setup = """CREATE EXTENSION postgres_fdw;
        CREATE TABLE spread (photo bigint, person bigint, template face_template, shard integer) PARTITION BY LIST (shard);
    """
    for number in (2, 3):
        setup += f"""CREATE SERVER shard_{number} FOREIGN DATA WRAPPER postgres_fdw OPTIONS (host '127.0.0.1',
                port '{servers.ports[number]}', dbname 'postgres', extensions 'veldan', async_capable 'true',
                use_remote_estimate 'true');
            CREATE USER MAPPING FOR PUBLIC SERVER shard_{number} OPTIONS (user 'postgres');
            CREATE FOREIGN TABLE spread_{number} PARTITION OF spread FOR VALUES IN ({number}) SERVER shard_{number}
                OPTIONS (table_name 'face');
        """
        load(servers, number, "face", half[number - 2])
    servers.psql(setup)


def measure(options, servers):
    gallery = np.empty((options.rows, SIZE), np.uint8)
    for start, chunk in features(options.rows):
        gallery[start:start + len(chunk)] = templates_of(chunk)
    probe = templates_of((np.random.default_rng(2).standard_normal((1, FEATURE)) * 6).astype(np.float32))
    text = "'\\x" + probe.tobytes().hex() + "'::face_template"

    servers.psql("CREATE EXTENSION veldan; CREATE TABLE face (photo bigint, person bigint, template face_template);"
                 "CREATE TABLE plain (photo bigint, person bigint, template real[])")
    parts = [(start, gallery[start:start + CHUNK]) for start in range(0, options.rows, CHUNK)]
    seconds = load(servers, 1, "face", (binary_rows(start, part) for start, part in parts))
    pages = servers.psql("SELECT pg_table_size('face')")
    say(f"{options.rows} templates loaded by COPY in {seconds:.1f} s, {int(pages) / options.rows:.0f} bytes each on disk")
    few = options.rows // PLAIN_SHARE
    directions = (chunk[:few] / np.linalg.norm(chunk[:few], axis=1, keepdims=True) for _, chunk in features(few))
    load(servers, 1, "plain", (binary_rows(0, binary_arrays(chunk)) for chunk in directions))
    shards_sql(servers, [[binary_rows(start, part[half::2]) for start, part in parts] for half in (0, 1)])

    def workers(count):
        return ("SET jit = off; SET parallel_setup_cost = 0; SET min_parallel_table_scan_size = 0;\n"
                f"SET max_parallel_workers_per_gather = {count};\n")
    nearest = f"SELECT veldan_nearest(person, photo, template, {text}, {MOST}, 0) FROM face;\n"
    ordered = f"SELECT photo, similarity(template, {text}) FROM face ORDER BY template <~> {text} LIMIT {MOST};\n"
    values = probe[0, 8:].copy().view(np.float32)
    array = "'{" + ",".join(str(value) for value in values / np.linalg.norm(values)) + "}'::real[]"
    plain = (f"SELECT photo, (SELECT sum(a * b) FROM unnest(template, {array}) AS u(a, b)) AS dot FROM plain "
             f"ORDER BY dot DESC LIMIT {MOST};\n")
    spread = f"SELECT * FROM veldan_identify({text}, {MOST}, 0, 'spread');\n"
    table = {
        "library in memory, one thread": Measured(memory_search(gallery, probe)),
        "veldan_nearest, no worker": Measured(sql_search(servers, workers(0), nearest)),
        "veldan_nearest, 1 worker": Measured(sql_search(servers, workers(1), nearest)),
        "veldan_nearest, 2 workers": Measured(sql_search(servers, workers(2), nearest)),
        "ORDER BY <~> LIMIT, no worker": Measured(sql_search(servers, workers(0), ordered)),
        "ORDER BY <~> LIMIT, 1 worker": Measured(sql_search(servers, workers(1), ordered)),
        "ORDER BY <~> LIMIT, 2 workers": Measured(sql_search(servers, workers(2), ordered)),
        "two shards, a process each": Measured(sql_search(servers, "", spread)),
        f"real[] in plain SQL, no worker ({few} rows, scaled)":
            Measured(sql_search(servers, workers(0), plain, 1), PLAIN_SHARE),
    }
    for number in range(options.rounds):
        for row in table.values():
            row.measure()
        say(f"round {number + 1} of {options.rounds}, load {os.getloadavg()[0]:.1f} on {os.cpu_count()} processors")
    one = next(iter(table.values()))
    wall, processor = min(one.walls), statistics.median(one.processors)
    say("| search | wall ms | times memory | processor ms | times memory |\n|---|---|---|---|---|")
    for name, row in table.items():
        least, median = min(row.walls), statistics.median(row.processors)
        say(f"| {name} | {least:.0f} | {least / wall:.1f} | {median:.0f} | {median / processor:.1f} |")


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--rows", type=int, default=1000000)
    parser.add_argument("--rounds", type=int, default=5)
    options = parser.parse_args()
    # A table of more than a quarter of shared_buffers is read from the system's cache again with each search.
    settings = {"shared_buffers": f"{max(64, options.rows * 600 * 5 // 2**20)}MB", "max_wal_size": "8GB"}
    with Servers(3, os.environ["VELDAN_EXTENSION"], settings) as servers:
        measure(options, servers)


if __name__ == "__main__":
    main()
