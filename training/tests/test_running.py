"""What a run keeps, goes on from, and begins with."""
import argparse

import pytest
import torch

from veldan_training import embedding, networks, running, weights


def arguments(folder, **others):
    return argparse.Namespace(**{"work": str(folder), "network": "FaceQuality", "fresh": False, "start": None, **others})


def steps(run, network, until):
    """Trains on batches that depend on the step alone."""
    while run.step < until:
        batch = torch.rand(8, 3, 24, 24, generator=torch.Generator().manual_seed(run.step))
        for x, schedule in run.over([batch]):
            schedule.descend(torch.nn.functional.cross_entropy(network(x)[0], torch.arange(8) % 2))


def trained(folder, stops):
    torch.manual_seed(1)
    for stop in stops:
        network = networks.Network("FaceQuality")
        run = running.Run(arguments(folder), network, steps=8, rate=1e-2)
        steps(run, network, stop)
        run.finish()
    return network.state_dict()


def test_an_interrupted_run_ends_as_an_uninterrupted_one(tmp_path):
    whole, parts = trained(tmp_path / "whole", [8]), trained(tmp_path / "parts", [3, 5, 8])
    assert all(torch.equal(whole[k], parts[k]) for k in whole)


def test_a_shorter_schedule_ends_at_its_length(tmp_path):
    trained(tmp_path, [5])
    run = running.Run(arguments(tmp_path), networks.Network("FaceQuality"), steps=4, rate=1e-2)
    assert run.step == 5
    assert list(run.over([torch.rand(8, 3, 24, 24)])) == []


def test_a_wider_network_begins_with_the_narrower_ones_answers(tmp_path, monkeypatch, randomised):
    wide = networks.DEFINITIONS["FaceDetectO"]
    narrow = networks.Definition(48, [(kind, name, out - 16, *rest) if name in ("conv3", "conv4", "fc") else (kind, name, out, *rest)
                                      for kind, name, out, *rest in wide.layers], wide.heads)
    monkeypatch.setitem(networks.DEFINITIONS, "FaceDetectO", narrow)
    before = randomised(networks.Network("FaceDetectO"))
    weights.keep(str(tmp_path), "narrow", before)
    monkeypatch.setitem(networks.DEFINITIONS, "FaceDetectO", wide)
    after = networks.Network("FaceDetectO")
    running.Run(arguments(tmp_path, network="FaceDetectO", start=str(tmp_path / "narrow.checkpoint")), after, steps=1, rate=1e-3)
    x = torch.rand(2, 3, 48, 48)
    with torch.no_grad():
        for a, b in zip(before(x), after.eval()(x)):
            torch.testing.assert_close(a, b, rtol=1e-4, atol=1e-4)


def test_a_wider_branched_recognizer_too(tmp_path, randomised):
    before = randomised(embedding.Network(embedding.bare(((16, 1), (32, 2)), wide=32)))
    weights.keep(str(tmp_path), "narrow", before)
    after = embedding.Network(embedding.bare(((24, 1), (48, 2)), wide=64, stem=24))
    running.Run(arguments(tmp_path, start=str(tmp_path / "narrow.checkpoint")), after, steps=1, rate=1e-3)
    after.eval()
    x = torch.randn(2, 3, embedding.CROP, embedding.CROP)
    with torch.no_grad():
        torch.testing.assert_close(before(x), after(x), rtol=1e-4, atol=1e-4)
    assert embedding.check_export(after, *embedding.export(after)) < 1e-4


def test_a_run_stops_when_its_minutes_are_over(tmp_path):
    run = running.Run(arguments(tmp_path, minutes=1e-9), networks.Network("FaceQuality"), steps=9, rate=1e-2)
    with pytest.raises(SystemExit, match="step 1"):
        steps(run, run.network, 9)
    assert running.Run(arguments(tmp_path), networks.Network("FaceQuality"), steps=9, rate=1e-2).step == 1


def test_kept_weights_are_those_of_the_exported_network(tmp_path, randomised):
    network = randomised(networks.Network("FaceQuality"))
    exact = {k: v.clone() for k, v in network.state_dict().items()}
    weights.keep(str(tmp_path), "FaceQuality", network)
    path = tmp_path / "FaceQuality.checkpoint"
    again = networks.Network("FaceQuality")
    again.load_state_dict(weights.read(path))
    assert networks.export(network) == networks.export(again)
    assert path.stat().st_size < 0.55 * sum(v.numel() * v.element_size() for v in exact.values())
    for k, v in network.state_dict().items():
        torch.testing.assert_close(v, exact[k], rtol=2 ** -11 if v.dim() > 1 else 0, atol=1e-7 if v.dim() > 1 else 0)


@pytest.mark.parametrize("kept", [True, False])
def test_a_run_starts_from_kept_weights_and_from_a_runs_checkpoint(tmp_path, kept, randomised):
    network = randomised(networks.Network("FaceQuality"))
    if kept:
        weights.keep(str(tmp_path), "given", network)
    else:
        run = running.Run(arguments(tmp_path, network="given"), network, steps=1, rate=1e-3)
        run.finish()
    fresh = networks.Network("FaceQuality")
    run = running.Run(arguments(tmp_path, start=str(tmp_path / "given.checkpoint")), fresh, steps=1, rate=1e-3)
    assert run.step == 0
    assert all(torch.equal(v, network.state_dict()[k]) for k, v in fresh.state_dict().items())
