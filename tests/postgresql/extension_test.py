"""The extension on servers of its own: one, and a gallery whose templates lie on two others.

Answers are those of the library in memory, zzMatchFeatureThread() for every template, to the last bit. The environment
names the library, the command and the folder of the extension's build.
"""

import ctypes
import os
import re
import signal
import subprocess
import threading

import numpy as np
import pytest
from servers import Servers

FEATURE = 128
SIZE = 520
PERSONS = 1200
PHOTOS = 3  # of each person
TAGS = {"bare": b"VD_V5.0", "masked": b"VD_V5.4"}


def templates_of(features, kind="bare"):
    features = np.ascontiguousarray(features, np.float32)
    made = np.zeros((len(features), SIZE), np.uint8)
    made[:, :7] = np.frombuffer(TAGS[kind], np.uint8)
    made[:, 8:] = features.view(np.uint8).reshape(len(features), -1)
    made[:, 7] = np.bitwise_xor.reduce(made, axis=1)
    return made


def gallery_features():
    """Random ones, and such as sums in vectors and orders of equals stumble over."""
    random = np.random.default_rng(4)
    features = random.standard_normal((PERSONS * PHOTOS, FEATURE)) * 6
    features[100:400] = features[0] * np.exp2(random.integers(-3, 4, (300, 1)))  # equals, of other lengths
    features[400:700] = features[1] + random.standard_normal((300, FEATURE)) * 1e-6  # nearly equals
    features[700:900] *= np.exp2(random.integers(-25, 3, (200, FEATURE)))  # of very different sizes
    features[900:1000, ::3] = 0
    features[1000:1100] = -features[0]
    return features.astype(np.float32)


class Memory:
    def __init__(self):
        self.library = ctypes.CDLL(os.environ["VELDAN_LIBRARY"])
        self.library.zzInitAlgThread.restype = ctypes.c_void_p
        self.handle = ctypes.c_void_p(self.library.zzInitAlgThread(b"", ctypes.byref(ctypes.c_int())))
        self.templates = templates_of(gallery_features())

    def similarity(self, enrolled, probe):
        score = ctypes.c_float()
        code = self.library.zzMatchFeatureThread(self.handle, enrolled.ctypes.data_as(ctypes.c_void_p),
                                                 probe.ctypes.data_as(ctypes.c_void_p), ctypes.byref(score))
        return None if code else np.float32(score.value)

    def nearest(self, probe, most, threshold=0.0):
        """(person, photo, similarity), numbered from 1; in the order that searches promise."""
        found = {}
        for photo, template in enumerate(self.templates, start=1):
            similarity = self.similarity(template, probe)
            person = (photo - 1) // PHOTOS + 1
            if similarity is not None and similarity >= np.float32(threshold) and \
                    (person not in found or similarity > found[person][2]):
                found[person] = (person, photo, similarity)
        return sorted(found.values(), key=lambda match: (-match[2], match[0]))[:most]


def hexadecimal(template):
    return "\\x" + bytes(template).hex()


def matches(text):
    return [(int(person), int(photo), np.float32(similarity))
            for person, photo, similarity in (line.split("|") for line in text.splitlines())]


def insert(servers, url_number, database, templates):
    """Persons and photos from 1; the same templates for masked faces, tagged so."""
    count = len(templates)
    servers.psql(f"""
        INSERT INTO veldan_gallery.person (id, name) OVERRIDING SYSTEM VALUE
            SELECT i, 'person ' || i FROM generate_series(1, {count // PHOTOS}) i;
        INSERT INTO veldan_gallery.photo (id, person, source, digest, date, quality) OVERRIDING SYSTEM VALUE
            SELECT i, (i - 1) / {PHOTOS} + 1, ''::bytea, i::text, '2026-01-01T00:00:00Z', 90
            FROM generate_series(1, {count}) i;""", url_number, database)
    features = templates[:, 8:].copy().view(np.float32)
    for kind in TAGS:
        lines = [f"{photo}\t{(photo - 1) // PHOTOS + 1}\t\\\\x{bytes(template).hex()}"
                 for photo, template in enumerate(templates_of(features, kind), start=1)]
        servers.psql(f"COPY veldan_gallery.{kind} (photo, person, template) FROM stdin;\n" +
                     "\n".join(lines) + "\n\\.\n", url_number, database)


@pytest.fixture(scope="module")
def memory():
    return Memory()


@pytest.fixture(scope="module")
def servers(memory, tmp_path_factory):
    with Servers(3, os.environ["VELDAN_EXTENSION"]) as started:
        for number, names in ((1, ("one", "spread")), (2, ("part",)), (3, ("part", "more"))):
            for name in names:
                started.psql(f"CREATE DATABASE {name}", number)
        for name in ("one", "spread"):
            veldan("gallery", "init", started.url(1, name))
        insert(started, 1, "one", memory.templates)
        folder = tmp_path_factory.mktemp("sql")
        veldan("gallery", "shard", "-o", folder, started.url(2, "part"), started.url(3, "part"))
        run_file(started, folder / "shard-1.sql", 2, "part")
        run_file(started, folder / "shard-2.sql", 3, "part")
        run_file(started, folder / "gallery.sql", 1, "spread")
        insert(started, 1, "spread", memory.templates)
        yield started


def veldan(*arguments):
    subprocess.run([os.environ["VELDAN_COMMAND"], *map(str, arguments)], check=True, capture_output=True)


def run_file(servers, path, number, database):
    servers.psql(path.read_text(), number, database)


def identify(servers, probe, most, threshold=0, database="one", gallery="veldan_gallery.bare", settings=""):
    return matches(servers.psql(f"{settings} SELECT * FROM veldan_identify('{hexadecimal(probe)}', {most}, {threshold}, "
                                f"'{gallery}')", 1, database))


PARALLEL = "SET parallel_setup_cost = 0; SET parallel_tuple_cost = 0; SET min_parallel_table_scan_size = 0;"
ALONE = "SET max_parallel_workers_per_gather = 0;"


def probes():
    features = gallery_features()
    random = np.random.default_rng(5).standard_normal((1, FEATURE)) * 6
    return {"random": random[0], "tied": features[0], "nearly tied": features[1], "sizes": features[800],
            "zeros": features[950], "opposite": -features[0]}


@pytest.mark.parametrize("name", list(probes()))
@pytest.mark.parametrize("most, threshold", [(1, 0), (7, 0), (400, 0.5), (2000, 0.6)])
def test_answers_are_those_of_memory(servers, memory, name, most, threshold):
    probe = templates_of([probes()[name]])[0]
    expected = memory.nearest(probe, most, threshold)
    assert identify(servers, probe, most, threshold, settings=ALONE) == expected
    assert identify(servers, probe, most, threshold, settings=PARALLEL) == expected
    assert identify(servers, probe, most, threshold, "spread") == expected
    in_order = servers.psql(f"""SELECT * FROM (SELECT DISTINCT ON (person) person, photo, similarity(template, t) AS s
        FROM veldan_gallery.bare, (SELECT '{hexadecimal(probe)}'::face_template t) given
        ORDER BY person, template <~> t, photo) best WHERE s >= {threshold}::real ORDER BY s DESC, person LIMIT {most}""",
                            1, "one")
    assert matches(in_order) == expected


def test_another_kind_is_passed_over(servers, memory):
    masked = templates_of([gallery_features()[0]], "masked")[0]
    assert memory.nearest(masked, 3) == []
    for database in ("one", "spread"):
        assert identify(servers, masked, 3, database=database) == []
        # The gallery's own choice of a table is by the kind of the probe.
        own = servers.psql(f"SELECT person, similarity FROM veldan_identify('{hexadecimal(masked)}', 1, 0)", 1, database)
        assert own == "1|1"
    mixed = f"'{hexadecimal(masked)}'::face_template"
    assert servers.psql(f"SELECT max(similarity(template, {mixed})), min(template <~> {mixed}) "
                        "FROM veldan_gallery.bare", 1, "one") == "0|1"


def test_several_processes_scan_and_shards_search(servers, memory):
    probe = hexadecimal(memory.templates[0])
    search = "EXPLAIN (VERBOSE, COSTS OFF) SELECT {}veldan_nearest(person, photo, template, '{}', 3, 0) FROM veldan_gallery.bare{}"
    plan = servers.psql(PARALLEL + search.format("", probe, ""), 1, "one")
    assert "Partial Aggregate" in plan and "Parallel Seq Scan" in plan
    parts = " UNION ALL ".join(search[len("EXPLAIN (VERBOSE, COSTS OFF) "):].format("", probe, f"_{number}")
                               for number in (1, 2))
    plan = servers.psql("EXPLAIN (VERBOSE, COSTS OFF) " + parts, 1, "spread")
    assert plan.count("Async Foreign Scan") == 2
    assert len(re.findall(r"Remote SQL: SELECT \S*veldan_nearest\(.* FROM veldan_gallery.bare$", plan, re.MULTILINE)) == 2


def test_readers_search_all_servers(servers, memory):
    servers.psql("CREATE ROLE guard LOGIN IN ROLE veldan_reader", 1, "spread")
    probe = hexadecimal(memory.templates[0])
    found = servers.psql(f"SELECT person FROM veldan_gallery.nearest_bare('{probe}', 1)", 1, "spread", "guard")
    assert found == "1"


def test_text_and_binary_forms_give_the_bytes_back(servers, memory, tmp_path):
    text = hexadecimal(memory.templates[5])
    assert servers.psql(f"""SELECT t::text = '{text}', veldan_base64(t)::face_template = t, t::bytea::face_template = t,
        veldan_base64(t) = translate(encode(t::bytea, 'base64'), E'\\n', ''), upper(substr(t::text, 3)) <> '',
        ('\\x' || upper(substr(t::text, 3)))::face_template = t, veldan_kind(t), t <> t, count(*) OVER ()
        FROM (SELECT '{text}'::face_template t) given""", 1, "one") == "t|t|t|t|t|t|bare|f|1"
    binary = tmp_path / "rows"
    servers.psql(f"""\\copy (SELECT photo, template FROM veldan_gallery.bare) TO '{binary}' (FORMAT binary)
        CREATE TEMP TABLE back (photo bigint, template face_template);
        \\copy back FROM '{binary}' (FORMAT binary)
        SELECT 1 / (count(*) = {len(memory.templates)})::int FROM back JOIN veldan_gallery.bare USING (photo, template)""",
                 1, "one")


def damaged_texts():
    whole = templates_of([gallery_features()[0]])[0]
    flipped = whole.copy()
    flipped[300] ^= 4
    other = whole.copy()
    other[:7] = np.frombuffer(b"VD_V9.9", np.uint8)
    other[7] ^= np.bitwise_xor.reduce(other)
    huge = gallery_features()[0] * np.float32(1e30)
    nan = gallery_features()[0].copy()
    nan[9] = np.nan
    return {
        "": "neither", "\\x": "1040", hexadecimal(whole)[:-2]: "1040", hexadecimal(whole) + "00": "1040",
        hexadecimal(whole)[:-1] + "g": "hexadecimal", "A" * 695: "neither", "A" * 696: "base64 of 520", "A" * 694 + "==": "begins as no template",
        "=" * 696: "base64", "'; DROP TABLE person; --".replace("'", "''"): "neither", hexadecimal(flipped): "checksum",
        hexadecimal(other): "another network", hexadecimal(templates_of([nan])[0]): "not numbers",
        hexadecimal(templates_of([huge])[0]): "length that no face has",
        hexadecimal(templates_of([gallery_features()[0] * np.float32(1e-6)])[0]): "length that no face has",
        hexadecimal(templates_of([np.zeros(FEATURE)])[0]): "length that no face has",
    }


def test_damaged_templates_are_refused_in_every_form(servers):
    for text, reason in damaged_texts().items():
        with pytest.raises(RuntimeError, match=reason):
            servers.psql(f"SELECT '{text}'::face_template", 1, "one")
        if re.fullmatch(r"\\x([0-9a-f]{2})*", text):
            with pytest.raises(RuntimeError, match="the template"):
                servers.psql(f"SELECT '{text}'::bytea::face_template", 1, "one")
            # As a client hands it in, without text.
            content = bytes.fromhex(text[2:])
            row = (b"PGCOPY\n\xff\r\n\0" + bytes(8) + b"\0\1" + len(content).to_bytes(4, "big") + content + b"\xff\xff")
            path = os.path.join(servers.folder, "row")
            with open(path, "wb") as file:
                file.write(row)
            with pytest.raises(RuntimeError, match="the template"):
                servers.psql(f"CREATE TEMP TABLE t (t face_template);\n\\copy t FROM '{path}' (FORMAT binary)", 1, "one")


def test_hostile_calls_are_errors_and_no_crash(servers, memory):
    started = servers.psql("SELECT pg_postmaster_start_time()")
    probe = f"'{hexadecimal(memory.templates[0])}'"
    nearest = f"SELECT veldan_nearest(person, photo, template, {probe}, %s, %s) FROM veldan_gallery.bare"
    refused = [
        nearest % (0, 0), nearest % (-1, 0), nearest % (10001, 0), nearest % (2147483647, 0), nearest % (5, "'nan'"),
        nearest % ("photo::int", 0), "SELECT veldan_nearest(1, 1, template, template, 3, 0) FROM veldan_gallery.bare",
        "SELECT veldan_nearest_final(NULL)", "SELECT veldan_nearest_serial(NULL)",
        f"SELECT * FROM veldan_identify({probe}, 2147483647, 0)", f"SELECT * FROM veldan_identify({probe}, 0, 0)",
        f"SELECT * FROM veldan_identify({probe}, 1, 0, 'no_table')", f"SELECT * FROM veldan_identify({probe}, 1, 0, 'pg_class')",
        f"SELECT veldan_nearest(person, photo, template, {probe}, 3, 0) OVER (ORDER BY photo) FROM veldan_gallery.bare",
    ]
    for database in ("one", "spread"):
        for statement in refused:
            with pytest.raises(RuntimeError, match="ERROR"):
                servers.psql(statement, 1, database)
    nothing = ["similarity(NULL, t)", "similarity(t, NULL)", "NULL <~> t", "veldan_kind(NULL)", "veldan_base64(NULL)"]
    for call in nothing:
        assert servers.psql(f"SELECT {call} IS NULL FROM (SELECT {probe}::face_template t) given", 1, "one") == "t"
    assert servers.psql(f"SELECT veldan_nearest(NULL, 1, {probe}, {probe}, 1, 0)", 1, "one") == '({},{},{})'
    assert servers.psql("SELECT * FROM veldan_identify(NULL, 1, 0)", 1, "one") == ""
    assert servers.psql(nearest % (3, "'infinity'"), 1, "one") == '({},{},{})'
    assert servers.psql("SELECT pg_postmaster_start_time()") == started
    with open(servers.data(1) + ".log", encoding="utf-8") as log:
        assert "terminated by signal" not in log.read()


class Searches:
    """Searches over and over, beside what the test does."""

    def __init__(self, servers, probe):
        self.answers = []
        self.errors = []
        self.servers, self.probe = servers, probe
        self.ended = threading.Event()
        self.thread = threading.Thread(target=self._run)

    def __enter__(self):
        self.thread.start()
        return self

    def __exit__(self, *_):
        self.ended.set()
        self.thread.join()

    def _run(self):
        while not self.ended.is_set():
            try:
                self.answers.append(identify(self.servers, self.probe, 5, database="spread"))
            except RuntimeError as error:
                self.errors.append(str(error))

    def wait_for(self, more):
        aim = len(self.answers) + len(self.errors) + more
        while len(self.answers) + len(self.errors) < aim:
            self.ended.wait(0.01)


def test_a_killed_shard_gives_errors_and_no_wrong_answer(servers, memory):
    probe = templates_of([probes()["random"]])[0]
    expected = memory.nearest(probe, 5)
    with Searches(servers, probe) as searches:
        searches.wait_for(5)
        servers.stop(3, signal.SIGKILL)
        searches.wait_for(10)
        assert len(searches.errors) >= 8
        servers.start(3)
        searches.wait_for(5)
        assert searches.answers and all(answer == expected for answer in searches.answers)
        assert all("could not connect to server \"veldan_shard_2\"" in error or "server closed the connection" in error or
                   "shutting down" in error or "starting up" in error for error in searches.errors), searches.errors
    assert identify(servers, probe, 5, database="spread") == expected


def test_a_shard_is_added_while_searches_run(servers, memory, tmp_path):
    probe = templates_of([probes()["random"]])[0]
    expected = memory.nearest(probe, 5)
    with Searches(servers, probe) as searches:
        veldan("gallery", "shard", "-o", tmp_path, "--first", 3, servers.url(3, "more"))
        run_file(servers, tmp_path / "shard-3.sql", 3, "more")
        searches.wait_for(3)
        run_file(servers, tmp_path / "gallery-add-3.sql", 1, "spread")
        searches.wait_for(3)
    assert searches.errors == [] and all(answer == expected for answer in searches.answers)
    servers.psql(f"""UPDATE veldan_gallery.shard SET takes_new = number = 3;
        INSERT INTO veldan_gallery.bare (photo, person, template) VALUES (100000, 100000, '{hexadecimal(probe)}')""",
                 1, "spread")
    assert servers.psql("SELECT count(*) FROM veldan_gallery.bare", 3, "more") == "1"
    assert identify(servers, probe, 5, database="spread") == [(100000, 100000, 1)] + expected[:4]
    with pytest.raises(RuntimeError, match="exists already"):
        raise RuntimeError(subprocess.run([os.environ["VELDAN_COMMAND"], "gallery", "shard", "-o", tmp_path, "--first", "3",
                                           "host=x"], capture_output=True, text=True, check=False).stderr)
