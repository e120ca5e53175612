"""What a service manager does with the collector: it hands over the socket, and asks for new settings."""

import json
import os
import signal
import socket
import time

import pytest

from images import mac, told
from programs import connect, wait

NOON = int(time.time()) - 1000


def test_a_socket_that_is_handed_over_keeps_what_comes_during_a_restart(start, build_dir, tmp_path):
    path = tmp_path / "socket"
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as listener:
        listener.bind(str(path))
        listener.listen(100)

        def run(name):
            return start(["sh", "-c", 'export LISTEN_PID=$$ LISTEN_FDS=1; exec "$@" 3<&0', "sh", build_dir / "bin/wsm-collector",
                          "--json", "--socket", tmp_path / "none"], name=name, stdin=listener.fileno())

        def send(number):
            with connect(path) as peer:
                peer.sendall(told(number, 1, NOON))

        send(1)
        first = run("first")
        wait(lambda: len(first.lines()) == 1, "the report that waited")
        assert first.stop() == 0
        assert path.exists() and not (tmp_path / "none").exists()
        send(2)
        second = run("second")
        send(3)
        wait(lambda: second.out.read_text().count("\n") == 2, "what came in between, and afterwards")
        assert [json.loads(line)["mac"] for line in second.lines()] == [mac(2), mac(3)]


def test_on_sighup_names_and_rules_are_read_again(start, build_dir, tmp_path):
    path, names, settings, seen = (tmp_path / name for name in ("socket", "names", "settings", "seen"))
    hook = tmp_path / "hook"
    hook.write_text(f'#!/bin/sh\necho "$1 $WSM_MAC $WSM_NAME" >> {seen}\n')
    hook.chmod(0o755)
    names.write_text(f"{mac(1)} Anna\n")
    settings.write_text(f"quiet\ngrace = 3600\nnames = {names}\nexec = {hook}\nsocket = {path}\n")
    program = start([build_dir / "bin/wsm-collector", "--config", settings])
    program.wait_for_socket(path)

    def send(*messages):
        for message in messages:
            with connect(path) as peer:
                peer.sendall(message)

    def reload(answer):
        before = program.err.read_text().count(answer)
        program.process.send_signal(signal.SIGHUP)
        wait(lambda: program.err.read_text().count(answer) > before, answer)

    def told_of(*lines):
        wait(lambda: seen.exists() and set(seen.read_text().splitlines()) >= set(lines), lines)

    send(told(1, 1, NOON), told(1, 2, NOON, 60))
    told_of(f"joined {mac(1)} Anna")
    names.write_text(f"{mac(1)} Berta\n{mac(2)} Carl\n")
    settings.write_text(settings.read_text().replace("3600", "0"))
    reload("wsm-collector: reloaded\n")
    told_of(f"left {mac(1)} Berta")  # the new grace time also holds for stations that are leaving
    send(told(2, 1, NOON))
    told_of(f"joined {mac(2)} Carl")

    settings.write_text("graze = 5\n")
    reload(f"wsm-collector: not reloaded: {settings}, line 1: graze: unknown setting\n")
    send(told(2, 2, NOON, 60))
    told_of(f"left {mac(2)} Carl")
    assert program.stop() == 0


@pytest.mark.parametrize("number, answer", [(signal.SIGHUP, "wsm-collector: reloaded\n"), (signal.SIGTERM, "")])
def test_a_signal_that_comes_during_the_start_is_obeyed_after_it(start, build_dir, tmp_path, number, answer):
    settings, path = tmp_path / "settings", tmp_path / "socket"
    os.mkfifo(settings)
    program = start([build_dir / "bin/wsm-collector", "--config", settings])
    with open(settings, "w", encoding="utf-8") as writer:  # it has opened the other end, and waits for what we write
        settings.unlink()
        settings.write_text(f"quiet\nsocket = {path}\n")  # for the next time
        program.process.send_signal(number)
        writer.write(settings.read_text())
    wait(lambda: answer in program.err.read_text(), "the answer")
    assert (program.wait_for_end() if number == signal.SIGTERM else program.stop()) == 0
    assert not path.exists()


def test_without_a_file_to_read_again_sighup_ends_it(start, build_dir, tmp_path):
    program = start([build_dir / "bin/wsm-collector", "--socket", tmp_path / "socket"])
    program.wait_for_socket(tmp_path / "socket")
    assert program.stop(signal.SIGHUP) == 0
    assert not os.path.exists(tmp_path / "socket")
