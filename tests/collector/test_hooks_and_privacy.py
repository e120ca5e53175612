"""A program of the user's for what stations do, and MACs that are hidden."""

import hashlib
import hmac
import json
import subprocess
import time

import pytest

from images import image, mac, told
from programs import connect, wait

NOON = int(time.time()) - 1000


@pytest.fixture
def collect(start, build_dir, tmp_path):
    """Starts collectors; returns the program and a function that sends."""
    def collect_one(*options):
        path = tmp_path / "socket"
        program = start([build_dir / "bin/wsm-collector", "--socket", path, *options])
        program.wait_for_socket(path)

        def send(*messages):
            for message in messages:
                with connect(path) as peer:
                    peer.sendall(message)
        return program, send
    return collect_one


def script(path, text):
    path.write_text("#!/bin/sh\n" + text)
    path.chmod(0o755)
    return path


def test_the_program_gets_the_values_in_its_environment_as_they_are(collect, tmp_path):
    hook = script(tmp_path / "hook", f'env | grep ^WSM_ | sort > {tmp_path}/$$.new; mv {tmp_path}/$$.new {tmp_path}/"$1".values\n')
    program, send = collect("--quiet", "--grace", "0", "--exec", hook)
    send(told(1, 1, NOON, ssid="$(touch /tmp/owned); `id`\n"))
    values = wait(lambda: (tmp_path / "joined.values").exists() and (tmp_path / "joined.values").read_text(), "the hook")
    assert f"WSM_MAC={mac(1)}\n" in values and "WSM_KIND=joined\n" in values
    assert "WSM_SSID=$(touch /tmp/owned); `id`\\n\n" in values
    send(told(1, 1, NOON + 10, radio_id=1))
    send(told(1, 2, NOON + 10, 50, reason="OW_STA_TIMEOUT", reason_code=300, radio_id=1))
    left = wait(lambda: (tmp_path / "left.values").exists() and (tmp_path / "left.values").read_text(), "the departure")
    assert "WSM_REASON=OW_STA_TIMEOUT\n" in left and "WSM_ENDED_BY=silence\n" in left and "WSM_SECONDS=" in left
    assert program.stop() == 0
    assert program.err.read_text() == ""


def test_no_more_programs_than_four_run_at_once_and_reading_goes_on(collect, tmp_path):
    hook = script(tmp_path / "hook", f'echo > {tmp_path}/$$.running; while [ ! -e {tmp_path}/go ]; do sleep 0.05; done\n'
                                     f'rm {tmp_path}/$$.running; echo >> {tmp_path}/done\n')
    program, send = collect("--json", "--exec", hook)
    send(*(told(number, 1, NOON) for number in range(20)))
    wait(lambda: len(program.lines()) == 20, "the reports")
    wait(lambda: len(list(tmp_path.glob("*.running"))) == 4, "four programs")
    (tmp_path / "go").touch()
    assert program.stop() == 0
    assert len((tmp_path / "done").read_text().splitlines()) == 20


def test_a_program_that_is_not_there_is_told_of_once(collect, tmp_path):
    program, send = collect("--quiet", "--exec", tmp_path / "none")
    send(told(1, 1, NOON), told(2, 1, NOON))
    assert program.stop() == 0
    assert program.err.read_text().count("No such file") == 1


def test_hidden_macs_are_the_same_everywhere_and_stable(build_dir, tmp_path):
    (tmp_path / "key").write_bytes(b"0123456789abcdef")

    def printed(*options):
        done = subprocess.run([build_dir / "bin/wsm-collector", "--hash-mac", tmp_path / "key", *options, "-"],
                              input=told(1, 1, NOON) * 2 + told(2, 1, NOON) + image(mac="none"), capture_output=True, timeout=30,
                              check=False)
        if b"built without" in done.stderr:
            pytest.skip("built without libcrypto")
        assert done.returncode == 0, done.stderr
        return done.stdout

    def expected(number):
        digest = hmac.new(b"0123456789abcdef", mac(number).encode(), hashlib.sha256).digest()
        return ":".join(f"{byte:02x}" for byte in [digest[0] & 0xfc | 2, *digest[1:6]])

    shown = [json.loads(line)["mac"] for line in printed("--json").splitlines()]
    assert shown == [expected(1), expected(1), expected(2), "none"]
    raw = printed("--raw")
    assert len(raw) == 4 * 696 and mac(1).encode() not in raw and raw.count(expected(1).encode()) == 2


def test_a_key_that_is_too_short_is_refused(build_dir, tmp_path):
    (tmp_path / "key").write_bytes(b"short")
    done = subprocess.run([build_dir / "bin/wsm-collector", "--hash-mac", tmp_path / "key", "-"], input=b"", capture_output=True,
                          timeout=30, check=False)
    assert done.returncode == 1 and b"a key of 16" in done.stderr or b"built without" in done.stderr
