"""./demo without a terminal, to its end and interrupted. On a terminal: test_view.py."""

import json
import os
import pathlib
import re
import shlex
import signal
import subprocess
import sys
import time

import pytest

from leftovers import processes_below, still_running
from wsmlab import examples

LAB_FOLDER = pathlib.Path(__file__).resolve().parents[2] / "lab"


@pytest.fixture
def demo(build_dir, patience, tmp_path):
    """Starts the demo with these options; the programs are built already. `--exec` of a test sees its demos alone."""
    def start(*options, **popen):
        argv = [sys.executable, "-m", "wsmlab.demo", "--build-dir", str(build_dir), *options]
        environment = {**os.environ, "PYTHONPATH": str(LAB_FOLDER), "TMPDIR": str(tmp_path)}
        return subprocess.Popen(argv, env=environment, text=True, **popen)
    start.limit = 60 * patience
    return start


def lines_until(demo, is_enough, *options):
    """Runs the demo until the lines that it has printed are enough, and interrupts it; returns all its lines."""
    lines = []
    with demo("--seconds", str(demo.limit), *options, stdout=subprocess.PIPE) as process:
        for line in process.stdout:
            lines.append(line.rstrip("\n"))
            if is_enough(lines):
                break
        process.send_signal(signal.SIGINT)
        lines += process.stdout.read().splitlines()
        assert process.wait(timeout=demo.limit) == 0
    return lines


def arrivals_in(lines):
    return [line.split("report")[1] for line in lines if "report  log on" in line]


def test_without_a_terminal_there_is_one_line_per_happening_and_a_summary(demo):
    wanted = [" s  report  log on ", " s  report  log-up ", " s  notify  log on ", " s  event   ip_change mac=", "'Lobby Guest'",
              "'Lobby'"]
    lines = lines_until(demo, lambda lines: all(any(text in line for line in lines) for text in wanted), "--stations", "8")
    assert lines[0].startswith("access point up, firewall ")
    for text in wanted:
        assert any(text in line for line in lines), text
    assert "reports (" in lines[-1] and lines[-1].endswith("the daemon ended cleanly (status 1, as it should)")


def test_the_same_seed_brings_the_same_clients(demo):
    def arrivals(seed):
        lines = lines_until(demo, lambda lines: len(arrivals_in(lines)) == 4, "--stations", "6", "--seed", seed)
        return arrivals_in(lines)[:4]
    first = arrivals("7")
    assert len(first) == 4
    assert arrivals("7") == first != arrivals("8")


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM])
def test_an_interrupted_demo_ends_in_order_and_leaves_nothing(demo, number):
    with demo("--stations", "4", stdout=subprocess.PIPE) as process:
        while "report" not in process.stdout.readline():
            pass
        inside = processes_below(process.pid)
        assert inside
        process.send_signal(number)
        rest = process.communicate(timeout=demo.limit)[0]
    assert process.returncode == 0
    assert rest.splitlines()[-1].endswith("the daemon ended cleanly (status 1, as it should)")
    assert not still_running(inside)


def test_more_stations_than_an_answer_of_the_bus_can_carry_are_counted(demo):
    last = lines_until(demo, lambda lines: len(arrivals_in(lines)) > 850, "--stations", "900")[-1]
    assert int(re.search(r"(\d+) stations at the end", last)[1]) > 700, last


def test_a_scenario_is_told_line_by_line(demo, tmp_path):
    (tmp_path / "short.scn").write_text("# Short\n0s driver assoc mac=02:00:00:00:00:01\n1s -> report log_type=1\n"
                                        "1s -> report log_type=7\n")
    with demo("--scenario", str(tmp_path / "short.scn"), stdout=subprocess.PIPE) as process:
        lines = process.communicate(timeout=demo.limit)[0].splitlines()
    assert process.returncode == 1
    assert lines[0] == "Short"
    assert re.fullmatch(r"  do    0\.\d s     driver assoc mac=02:00:00:00:00:01", lines[1])
    assert any("report  log on   02:00:00:00:00:01" in line for line in lines)
    assert any(re.fullmatch(r"  ok +\d+\.\d s  -> report log_type=1", line) for line in lines)
    assert any(line.startswith("FAILED short.scn:4: ") for line in lines)


@pytest.mark.parametrize("waiting", ["50s nothing", "50s -> report log_type=7"], ids=["passing", "expecting"])
def test_a_scenario_ends_after_the_seconds_given(demo, tmp_path, waiting):
    (tmp_path / "long.scn").write_text(f"# Long\n{waiting}\n")
    with demo("--scenario", str(tmp_path / "long.scn"), "--seconds", "3", stdout=subprocess.PIPE) as process:
        lines = process.communicate(timeout=demo.limit)[0].splitlines()
    assert process.returncode == 0
    assert [lines[0], lines[-1]] == ["Long", "stopped before its end"]


@pytest.mark.parametrize("scenario, complaint", [("/nowhere.scn", "No such file"), ("/dev/null/x", "Not a directory")])
def test_a_scenario_that_cannot_be_read_is_named(demo, scenario, complaint):
    with demo("--scenario", scenario, stderr=subprocess.PIPE) as process:
        error = process.communicate(timeout=demo.limit)[1]
    assert process.returncode == 1
    assert error.startswith("./demo: ") and complaint in error and scenario in error


def test_wrong_options_are_refused_with_the_usage(demo):
    with demo("--stations", "many", stderr=subprocess.PIPE) as process:
        assert "usage: ./demo" in process.communicate(timeout=demo.limit)[1]
    assert process.returncode == 2


@pytest.mark.parametrize("options", [["--seconds", "-1"], ["--seconds", "nan"], ["--seconds", "inf"], ["--seconds", "0"],
                                     ["--stations", "-1"], ["--stations", "5000"], ["--exec"],
                                     ["--scenario", "a.scn", "--replay", "b.rec"]], ids=" ".join)
def test_options_that_make_no_sense_are_refused_with_the_usage(demo, options):
    with demo(*options, stderr=subprocess.PIPE) as process:
        assert "usage: ./demo" in process.communicate(timeout=demo.limit)[1]
    assert process.returncode == 2


def test_a_reader_who_has_seen_enough_ends_the_demo_silently(demo):
    with demo("--stations", "4", stdout=subprocess.PIPE, stderr=subprocess.PIPE) as process:
        process.stdout.readline()
        process.stdout.close()
        assert process.stderr.read() == ""
        assert process.wait(demo.limit) == 128 + signal.SIGPIPE


def test_what_is_no_recording_is_refused_with_the_file_s_name(demo, tmp_path):
    (tmp_path / "letter.rec").write_text("Dear daemon")
    with demo("--replay", str(tmp_path / "letter.rec"), stdout=subprocess.PIPE, stderr=subprocess.PIPE) as process:
        out, error = process.communicate(timeout=demo.limit)
    assert (process.returncode, out) == (1, "")
    assert error == f"./demo: {tmp_path / 'letter.rec'}: this is no recording\n"


def test_a_command_can_be_run_in_a_running_demo(demo):
    with demo("--stations", "2", stdout=subprocess.PIPE) as process:
        while "report" not in process.stdout.readline():
            pass
        with demo("--exec", "ubus", "-S", "list", stdout=subprocess.PIPE) as visitor:
            listed = visitor.communicate(timeout=demo.limit)[0].split()
        # As docs/bus-api.md has it.
        with demo("--exec", "ubus", "call", "sta", "get", '{"get_all_sta_status":"online"}', stdout=subprocess.PIPE) as visitor:
            answer = json.loads(visitor.communicate(timeout=demo.limit)[0])
        with demo("--exec", "sh", "-c", "exit 7") as visitor:
            status = visitor.wait(demo.limit)
        process.terminate()
        process.communicate(timeout=demo.limit)
    assert "sta" in listed
    assert "count" in answer
    assert status == 7


def paths(value, at=""):
    """The members of a JSON value at any depth, those of all entries of a list together."""
    if isinstance(value, dict):
        return {f"{at}/{name}" for name in value}.union(*(paths(member, f"{at}/{name}") for name, member in value.items()))
    return set().union(*(paths(one, at) for one in value)) if isinstance(value, list) else set()


def documented_calls():
    """The calls of the bus in the documents' examples, each with what it printed."""
    for _, command, text in examples.in_documents():
        for call, printed in examples.turns(text) if command == "conversation" else [(command, text)]:
            if call.startswith("ubus call ") and " | " not in call:
                yield shlex.split(call.removesuffix(" 2>/dev/null || true")), json.loads(printed or "{}")


def test_every_documented_call_is_answered_in_a_running_demo(demo, patience):
    def execute(words):
        with demo("--exec", *words, stdout=subprocess.PIPE, stderr=subprocess.PIPE) as visitor:
            out, _ = visitor.communicate(timeout=demo.limit)
        return visitor.returncode, json.loads(out or "{}")

    def send_away():
        _, station = execute(["ubus", "call", "wsmd", "station", '{"mac":"02:60:00:00:00:01"}'])
        if station.get("state") == "online":
            execute(["ubus", "call", "sta", "delete", json.dumps({"mac": station["mac"], "radio": station["radio"]})])

    def answered(words):
        if words[2:4] == ["wsmd", "departed"]:  # of somebody of whom all is known
            send_away()
        status, answer = execute(words)
        return status, paths(answer)
    calls = list(documented_calls())
    assert len(calls) >= 15
    with demo("--stations", "4", "--seconds", str(2 * demo.limit), stdout=subprocess.DEVNULL) as process:
        for words, documented in calls:
            expected = (256 - 2 if "error" in documented else 0, paths(documented))  # `ubus` ends with minus the status
            end = time.monotonic() + 15 * patience
            while (got := answered(words)) != expected:  # the client may be between two visits
                assert time.monotonic() < end, (words, got[0], got[1] ^ expected[1])
        process.send_signal(signal.SIGINT)
        assert process.wait(timeout=demo.limit) == 0


def test_paths_are_relative_to_the_callers_folder(demo, tmp_path):
    (tmp_path / "short.scn").write_text("# Short\n0s nothing\n")
    script = pathlib.Path(__file__).resolve().parents[2] / "demo"
    done = subprocess.run([script, "--check", "--scenario", "short.scn"], cwd=tmp_path, capture_output=True, text=True,
                          timeout=demo.limit, check=False)
    assert (done.returncode, done.stderr) == (0, "")
