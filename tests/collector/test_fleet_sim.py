"""The simulator of a fleet as a program: what it is told, what it refuses, and that it publishes what its ledger says."""

import re
import subprocess

import pytest

from brokers import needs_mosquitto, reports
from programs import wait


@pytest.fixture
def simulator(build_dir):
    if not (build_dir / "bin/wsm-fleet-sim").exists():
        pytest.skip("built without wsm-fleet-sim")
    return build_dir / "bin/wsm-fleet-sim"


@pytest.fixture
def fleet(simulator, broker, tmp_path):
    """Runs one to its end; what it printed, and the lines of its ledger."""
    def run(*options):
        done = subprocess.run([simulator, "--to", f"mqtt://127.0.0.1:{broker.port}/home", "--speed", "0", "--ledger", tmp_path / "ledger",
                               *options], capture_output=True, text=True, timeout=120, check=False)
        assert (done.returncode, done.stderr) == (0, "")
        return done.stdout, (tmp_path / "ledger").read_text().splitlines()
    return run


@pytest.mark.parametrize("words, why", [
    ([], "--to is a must, and there are only options"),
    (["--to", "mqtt://x", "more"], "--to is a must, and there are only options"),
    (["--to", "amqp://x"], "mqtt"),
    (["--to", "mqtt://"], "mqtt"),
    (["--to", "mqtt://x", "--access-points", "0"], "--access-points: a number from 1 to 60000"),
    (["--to", "mqtt://x", "--access-points", "60001"], "--access-points: a number from 1 to 60000"),
    (["--to", "mqtt://x", "--first", "59999", "--access-points", "2"], "too many access points"),
    (["--to", "mqtt://x", "--stations", "1001"], "--stations: a number from 1 to 1000"),
    (["--to", "mqtt://x", "--stations", "ten"], "--stations: a number from 1 to 1000"),
    (["--to", "mqtt://x", "--seconds", "1x"], "--seconds: a number from 1 to 1048576"),
    (["--to", "mqtt://x", "--speed", "-1"], "--speed: a number from 0 to 1000"),
    (["--to", "mqtt://x", "--period", "3601"], "--period: a number from 1 to 3600"),
    (["--to", "mqtt://x", "--connections", "65"], "--connections: a number from 1 to 64"),
    (["--to", "mqtt://x", "--seed", "-1"], "--seed: a number from 0 to 1073741824"),
    (["--to"], "unknown option"),
    (["--colour", "red"], "unknown option")])
def test_wrong_usage_is_said(simulator, words, why):
    done = subprocess.run([simulator, *words], capture_output=True, text=True, timeout=30, check=False)
    assert (done.returncode, done.stdout) == (2, "")
    assert any(line.startswith(f"wsm-fleet-sim: {why}") for line in done.stderr.splitlines())
    assert "usage: wsm-fleet-sim --to URL" in done.stderr


def test_a_ledger_that_cannot_be_written_is_an_error(simulator, tmp_path):
    done = subprocess.run([simulator, "--to", "mqtt://127.0.0.1:1", "--ledger", tmp_path], capture_output=True, text=True, timeout=30, check=False)
    assert (done.returncode, done.stderr) == (1, f"wsm-fleet-sim: {tmp_path}: Is a directory\n")


@needs_mosquitto
def test_what_it_publishes_is_what_its_ledger_says(fleet, broker):
    subscriber = broker.subscribe()
    said, ledger = fleet("--access-points", "3", "--first", "7", "--stations", "5", "--seconds", "300", "--connections", "2")
    meant = sorted(tuple(line.split(" ")[1:]) for line in ledger if line.startswith("report "))
    wait(lambda: len(reports(subscriber)) >= len(meant), "all reports")
    assert sorted((one["ap_mac"].removesuffix("\\n"), one["boot"], str(one["seq"])) for one in reports(subscriber)) == meant
    assert {ap for ap, _, _ in meant} == {f"06:a0:00:00:00:0{number}" for number in (7, 8, 9)}
    assert re.fullmatch(rf"{len(meant)} reports in [\d.]+ s: \d+ per second\n", said)
    stays = [line.split(" ") for line in ledger if line.startswith("stay ")]
    assert sum(int(stay[5]) for stay in stays) == len(meant)
    assert len({stay[1] for stay in stays}) == len(stays) > 15, "each stay has a MAC of its own"


@needs_mosquitto
def test_the_same_seed_is_the_same_fleet(fleet):
    def happened(*seed):
        _, ledger = fleet("--access-points", "2", "--stations", "5", "--seconds", "600", *seed)
        stays = [line.split(" ") for line in ledger if line.startswith("stay ")]
        first = min(int(stay[3]) for stay in stays)
        return [(mac, ap, int(began) - first, reports_) for _, mac, ap, began, _, reports_ in stays]
    once = happened("--seed", "5")
    assert happened("--seed", "5") == once
    assert happened("--seed", "6") != once
