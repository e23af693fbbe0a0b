"""Life of engines, faces and templates: threads, processes, closing."""

import concurrent.futures
import gc
import multiprocessing
import pickle
import threading
import weakref

import numpy as np
import pytest
from conftest import pixels

import veldan


def test_a_closed_engine_refuses_everything(rows):
    with veldan.Engine() as engine:
        face = engine.detect(rows)[0]
        tracker = veldan.Tracker(engine)
        tracker.next(rows)
    calls = [lambda: engine.detect(rows), lambda: face.quality, lambda: face.live, lambda: engine.template(face),
             lambda: engine.judge([face]), lambda: tracker.next(rows), lambda: veldan.Tracker(engine),
             lambda: engine.enrolment_quality(face), lambda: engine.face_at(rows, face.box)]
    for call in calls:
        with pytest.raises(veldan.ClosedError) as failure:
            call()
        assert failure.value.code == 12
    assert engine.closed and "closed" in repr(engine)
    engine.close()
    assert face.box.width > 0 and face.frontal in (True, False)


def test_faces_keep_their_engine_alive(rows):
    engine = veldan.Engine()
    gone = weakref.ref(engine)
    faces = engine.detect(rows)
    del engine
    gc.collect()
    assert gone() is None
    assert faces[0].quality > 0


def test_another_engine_may_judge_what_a_closed_one_found(engine, rows):
    with veldan.Engine() as other:
        faces = other.detect(rows)
    expected = [face.record.tolist() for face in engine.judge(engine.detect(rows))]
    assert [face.record.tolist() for face in engine.judge(faces)] == expected


def test_judgements_do_not_depend_on_when_they_are_asked_for(engine, rows):
    judged = engine.judge(engine.detect(rows))[0]
    face = engine.detect(rows)[0]
    assert (face.live, face.quality, face.liveness, face.masked) == (judged.live, judged.quality, judged.liveness, judged.masked)


def test_threads_with_an_engine_each_give_what_one_gives(engine):
    photos = [pixels(name) for name in ("rows.webp", "street.webp", "queue.webp")]

    def work(own):
        return [[face.record.tolist() for face in own.judge(own.detect(photo))] for photo in photos * 2]

    expected = work(engine)
    with concurrent.futures.ThreadPoolExecutor(3) as pool:
        for result in pool.map(lambda _: work(veldan.Engine()), range(3)):
            assert result == expected
        # One engine for all is allowed: its calls follow each other.
        for result in pool.map(lambda _: work(engine), range(3)):
            assert result == expected


def test_python_goes_on_while_the_library_computes(engine):
    image = np.random.default_rng(2).integers(0, 256, (2000, 3000, 3), np.uint8)
    counted, done = 0, threading.Event()
    worker = threading.Thread(target=lambda: (engine.detect(image), done.set()))
    worker.start()
    while not done.is_set():
        counted += 1
        done.wait(0.0005)
    worker.join()
    assert counted > 5


def test_closing_waits_for_a_call_in_another_thread(rows):
    for _ in range(3):
        engine = veldan.Engine()
        outcome = []

        def work():
            try:
                while True:
                    outcome.append(len(engine.detect(rows)))
            except veldan.ClosedError:
                pass

        worker = threading.Thread(target=work)
        worker.start()
        while not outcome:
            pass
        engine.close()
        worker.join(30)
        assert not worker.is_alive() and len(set(outcome)) == 1


def judged_elsewhere(engine, image, face):
    known = [face.box, face.quality, face.points.tolist()]
    try:
        return known, engine.template(face), None
    except veldan.NotJudgedError as error:
        return known, engine.template(engine.detect(image)[0]), error


def test_engines_faces_and_templates_travel_to_other_processes(engine, rows):
    face = engine.detect(rows)[0]
    expected = [face.box, face.quality, face.points.tolist()]
    with concurrent.futures.ProcessPoolExecutor(1, multiprocessing.get_context("spawn")) as pool:
        known, template, error = pool.submit(judged_elsewhere, engine, rows, face).result(60)
    assert known == expected
    assert template == engine.template(face)
    assert isinstance(error, veldan.NotJudgedError) and error.code == 13 and "frame" in str(error)


def test_templates_compare_and_refuse(engine, rows):
    bare, other = (engine.template(face) for face in engine.detect(rows)[:2])
    masked = engine.template(engine.detect(rows)[0], "masked")
    assert bare == veldan.Template(bytes(bare)) == veldan.Template(bytearray(bytes(bare))) and bare != other
    assert len({bare, veldan.Template(bytes(bare)), other}) == 2 and bare != bytes(bare)
    assert bare.feature.shape == (128,) and bare.feature.dtype == np.float32
    assert bare.feature.tobytes() == bytes(bare)[8:]
    assert pickle.loads(pickle.dumps(masked)) == masked and masked.network != bare.network
    assert veldan.Template(bytes(bare), bare.network) == bare
    damaged = bytearray(bytes(bare))
    damaged[100] ^= 1
    checksum_holds = bytearray(bytes(bare))
    checksum_holds[8:] = bytes(512)
    checksum_holds[7] = int(np.bitwise_xor.reduce(np.frombuffer(bytes(bare)[:7], np.uint8)))
    cases = [lambda: veldan.similarity(bare, masked), lambda: veldan.similarity(bare, bytes(bare)),
             lambda: veldan.Template(bytes(damaged)), lambda: veldan.Template(b""), lambda: veldan.Template(bytes(520)),
             lambda: veldan.Template(bytes(bare) + b"."), lambda: veldan.Template("text"),
             lambda: veldan.Template(bytes(checksum_holds)), lambda: veldan.Template(bytes(bare), masked.network),
             lambda: veldan.Template(bytes(bare), "0" * 64)]
    for case in cases:
        with pytest.raises(veldan.TemplateError) as failure:
            case()
        assert failure.value.code == 17


def test_errors_travel_with_their_code(engine):
    with pytest.raises(veldan.ImageError) as failure:
        engine.detect(None)
    again = pickle.loads(pickle.dumps(failure.value))
    assert (type(again), again.code, str(again)) == (veldan.ImageError, 13, str(failure.value))


def test_nothing_is_printed(engine, rows, capfd):
    engine.judge(engine.detect(rows))
    engine.detect(np.zeros((100, 100, 3), np.uint8))
    assert capfd.readouterr() == ("", "")
