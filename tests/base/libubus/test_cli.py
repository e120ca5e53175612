"""The command line: output, error texts and exit statuses as recorded, and cases that the recordings leave out."""

import os
import pty
import re
import shlex
import signal
import subprocess

import pytest
import ubus_golden
from ubus_wire import (A_DATA, A_METHOD, A_OBJID, A_OBJPATH, A_SIGNATURE, ADD_OBJECT, INVOKE, LOOKUP, MONITOR, PATIENCE,
                       SUBSCRIBE, Peer, attr, i32, int32, message, string, table, text)


class Case:
    """One invocation of the recording."""

    def __init__(self, block):
        lines = block.splitlines(keepends=True)
        self.title = lines[0].split(" ", 1)[1].strip()
        self.number = lines[0].split()[0]
        self.command = shlex.split(next(line for line in lines if line.startswith("$ ubus"))[len("$ ubus"):])
        self.terminal = "stderr-is: tty\n" in lines
        self.exit = int(next(line for line in lines if line.startswith("exit:")).split()[1])
        rest = block[block.index("--- stdout"):]
        out, err = rest.split("--- stderr", 1)
        self.out = self.body(out)
        self.err = self.body(err)

    @staticmethod
    def body(part):
        head, _, text = part.partition("\n")
        return "" if "(empty)" in head else text

    def __repr__(self):
        return f"{self.number}-{self.title.replace(' ', '-')}"


def read_cases():
    text = (ubus_golden.FOLDER / "cli.txt").read_text(encoding="utf-8")
    blocks = re.split(r"^=== ", text, flags=re.M)[1:]
    usage = blocks[0].split("\n", 1)[1]  # its empty last line is the one that ends the block
    return usage, [Case(re.sub(r"\n\n\Z", "\n", block)) for block in blocks[1:]]


USAGE, CASES = read_cases()


def test_all_recorded_invocations_are_read():
    assert len(CASES) == 44
    assert USAGE.startswith("Usage: ubus [<options>]") and USAGE.endswith("Monitor ubus traffic\n\n")


def matches(expected, text):
    """The recorded text; its placeholders stand for what differs from run to run."""
    pattern = re.escape(expected.replace("{{USAGE}}\n", USAGE))
    pattern = pattern.replace(re.escape("{{ID8}}"), "[0-9a-f]{8}").replace(re.escape("{{INT}}"), "(-?[0-9]+)")
    return re.fullmatch(pattern, text)


class Command:
    """The program, running."""

    def __init__(self, program, *args, terminal=False):
        err = subprocess.PIPE
        self.terminal = None
        if terminal:
            self.terminal, err = pty.openpty()
        self.process = subprocess.Popen(["ubus", *args], executable=program, stdout=subprocess.PIPE, stderr=err)
        if terminal:
            os.close(err)

    def finish(self):
        """Exit status, standard output and standard error."""
        out, err = self.process.communicate(timeout=PATIENCE)
        if self.terminal is not None:
            err = self.read_terminal()
            os.close(self.terminal)
        return self.process.returncode, out.decode(), err.decode().replace("\r\n", "\n")

    def read_terminal(self):
        text = b""
        try:
            while part := os.read(self.terminal, 65536):
                text += part
        except OSError:  # the other side of a terminal is closed
            pass
        return text


@pytest.fixture
def ubus(build_dir, broker):
    """Starts the command line on the test's broker."""
    return lambda *args, **options: Command(build_dir / "bin" / "ubus", "-s", broker.path, *args, **options)


@pytest.fixture
def sta(build_dir, broker):
    """A program that has registered `sta`."""
    peer = Peer(build_dir, broker.path)
    assert peer.do("add sta sta") == 0
    yield peer
    peer.done()


def run(case, build_dir, broker, tmp_path):
    places = {"SOCK": broker.path, "NOSOCK": str(tmp_path / "nobody")}
    return Command(build_dir / "bin" / "ubus", *[places.get(arg, arg) for arg in case.command], terminal=case.terminal)


def check(case, result):
    status, out, err = result
    assert matches(case.err, err), err
    assert matches(case.out, out), out
    assert status == case.exit


ALONE = [case for case in CASES if case.number not in ("27", "33", "37", "40")]


@pytest.mark.parametrize("case", ALONE, ids=repr)
def test_command_prints_as_recorded(build_dir, broker, sta, tmp_path, case):
    check(case, run(case, build_dir, broker, tmp_path).finish())


def by_number(number):
    return next(case for case in CASES if case.number == number)


def test_call_of_a_stopped_program_times_out_as_recorded(build_dir, broker, sta, tmp_path):
    sta.process.send_signal(signal.SIGSTOP)
    check(by_number("27"), run(by_number("27"), build_dir, broker, tmp_path).finish())
    sta.process.send_signal(signal.SIGCONT)


class Watcher:
    """Sees all traffic, and so knows what the command has done so far."""

    def __init__(self, broker):
        self.connection = broker.connect()
        self.connection.send(message(INVOKE, 1, 3, i32(A_OBJID, 3), text(A_METHOD, "add"), attr(A_DATA, b"")))

    def wait_for(self, kind, content=b""):
        """Waits until the broker has received a message of this type with these bytes in it."""
        while True:
            seen = self.connection.receive()
            if seen.type == MONITOR and seen.number(4) == kind and seen.attrs[2] == b"\0" and content in seen.raw:
                return


@pytest.fixture
def watcher(broker):
    return Watcher(broker)


def read_lines(command, count):
    return "".join(command.process.stdout.readline().decode() for _ in range(count))


def terminate(command, out):
    """The result of a command that SIGTERM ends, with what it has printed before."""
    command.process.send_signal(signal.SIGTERM)
    status, rest, err = command.finish()
    return status, out + rest, err


def test_listen_prints_events_as_recorded(build_dir, broker, sta, watcher, tmp_path):
    case = by_number("33")
    command = run(case, build_dir, broker, tmp_path)
    watcher.wait_for(INVOKE, b"register")
    sender = broker.connect()
    assert sender.send_event("ip_change", string("mac", "02:00:00:00:00:01"), int32("n", 1)) == 0
    assert sender.send_event("dev_mode") == 0
    assert sta.do("add tmp ping") == 0
    assert sta.do("remove tmp") == 0
    result = terminate(command, read_lines(command, 4))
    check(case, result)
    added, removed = matches(case.out, result[1]).groups()
    assert added == removed


def test_subscribe_prints_and_answers_notifications_as_recorded(build_dir, broker, sta, watcher, tmp_path):
    case = by_number("37")
    command = run(case, build_dir, broker, tmp_path)
    watcher.wait_for(SUBSCRIBE)
    assert sta.do('notify sta notify -1 {"notify_sta_status":"1","stas":[{"mac":"02:00:00:00:00:01","on":true}]}') == 0
    assert sta.do("notify sta sync 10000") == 0
    check(case, terminate(command, read_lines(command, 2)))


def test_monitor_prints_traffic_as_recorded(build_dir, broker, sta, watcher, ubus, tmp_path):
    case = by_number("40")
    # The recorded client sent its own attributes as arguments when it ended. Ours sends none.
    assert case.out.endswith('"data":{,}}\n')
    case.out = case.out.replace('"data":{,}}\n', '"data":{}}\n')
    command = run(case, build_dir, broker, tmp_path)
    watcher.wait_for(INVOKE, b"add\0")
    asking = ubus("call", "sta", "get", '{"get_all_sta_status":"1","get_sta_count":"1"}')
    assert asking.finish()[0] == 0
    check(case, terminate(command, read_lines(command, case.out.count("\n") - 1)))


def test_listen_ends_with_its_timeout(ubus):
    assert ubus("-t", "1", "listen", "nothing").finish() == (0, "", "")


def test_wait_for_ends_as_soon_as_all_objects_are_there(ubus, sta, watcher):
    command = ubus("-t", "60", "wait_for", "sta", "late")
    watcher.wait_for(LOOKUP, b"late")
    assert sta.do("add late ping") == 0
    assert command.finish() == (0, "", "")


def test_wait_for_finds_what_shows_nothing(ubus, broker):
    other = broker.connect()
    assert other.ask(ADD_OBJECT, text(A_OBJPATH, "hidden"))[1] == 0
    assert ubus("-t", "999999999", "wait_for", "hidden").finish() == (0, "", "")


def test_wait_for_needs_an_object(ubus):
    assert ubus("wait_for").finish() == (254, "", USAGE)


def test_call_without_timeout_option_is_bounded_and_with_zero_is_not(ubus, build_dir, broker):
    peer = Peer(build_dir, broker.path)
    assert peer.do("add srv toolbox") == 0
    assert ubus("-t", "1", "call", "srv", "slow", '{"n":1500}').finish()[0] == 249
    assert ubus("-t", "0", "-S", "call", "srv", "slow", '{"n":1500}').finish() == (0, '{"slow":1500}\n', "")
    peer.done()


def test_each_reply_of_a_call_is_printed(ubus, build_dir, broker):
    peer = Peer(build_dir, broker.path)
    assert peer.do("add srv toolbox") == 0
    assert ubus("-S", "call", "srv", "multi", '{"n":3}').finish() == (0, '{"i":0}\n{"i":1}\n{"i":2}\n', "")
    assert ubus("call", "srv", "echo").finish() == (0, "{\n\t\n}\n", "")
    assert ubus("-S", "call", "srv", "datafail", '{"n":6}').finish() == (6, '{"n":6}\n', "")
    peer.done()


def test_handler_that_returns_minus_two_prints_the_usage(ubus, build_dir, broker):
    peer = Peer(build_dir, broker.path)
    assert peer.do("add srv toolbox") == 0
    status, out, err = ubus("call", "srv", "fail", '{"n":-2}').finish()
    assert (status, out) == (2, "")
    assert err == 'Command failed: ubus call srv fail {"n":-2} (Unknown error: -2)\nCommand failed: Invalid argument\n'
    assert ubus("call", "srv", "fail", '{"n":-2}', terminal=True).finish() == (254, "", USAGE)
    peer.done()


def test_monitor_takes_no_arguments(ubus):
    assert ubus("monitor", "x").finish() == (254, "", USAGE)


def test_a_call_looks_for_the_object_before_it_reads_the_message(ubus, sta):
    assert ubus("call", "nope", "get", "{bad").finish() == (4, "", "Command failed: Not found\n")


@pytest.mark.parametrize("args", [["-m", "nonsense", "monitor"], ["-M", "x", "monitor"]])
def test_unknown_monitor_filter_prints_the_usage(ubus, args):
    assert ubus(*args).finish() == (1, "", USAGE)


def test_monitor_shows_only_the_chosen_types_and_direction(ubus, sta, watcher, broker):
    command = ubus("-m", "notify", "-m", "ping", "-M", "r", "monitor")
    watcher.wait_for(INVOKE, b"add\0")
    other = broker.connect()
    assert other.is_served()
    assert sta.do("notify sta seen -1") == 0
    out = read_lines(command, 2)
    status, out, _ = terminate(command, out)
    assert status == 0
    assert re.fullmatch(rf"<- {other.id:08x} #00000000 {{11}}ping: {{}}\n"
                        r'<- [0-9a-f]{8} #[0-9a-f]{8} {9}notify: {"objid":-?[0-9]+,"method":"seen","data":{},'
                        r'"no_reply":true}\n', out), out


def test_list_shows_unknown_argument_types_as_such(ubus, broker):
    kinds = {"a": 1, "t": 2, "s": 3, "l": 4, "i": 5, "w": 6, "b": 7, "d": 8, "u": 0}
    other = broker.connect()
    signature = table("m", *[int32(name, kind) for name, kind in kinds.items()])
    data, status = other.ask(ADD_OBJECT, text(A_OBJPATH, "o"), attr(A_SIGNATURE, signature))
    assert status == 0
    assert ubus("list", "-v").finish() == (
        0, f"'o' @{data[0].number(A_OBJID):08x}\n"
        '\t"m":{"a":"Array","t":"Table","s":"String","l":"(unknown)","i":"Integer","w":"(unknown)","b":"Boolean",'
        '"d":"(unknown)","u":"(unknown)"}\n', "")


def test_subscribe_reports_the_first_path_whichever_failed(ubus, sta):
    status, out, err = ubus("subscribe", "sta", "nope").finish()
    assert (status, out, err) == (255, "", "Error while registering for event 'sta': Not found\n")
    assert ubus("-S", "subscribe", "nope").finish() == (255, "", "")


def test_listen_outlives_its_broker(ubus, broker, watcher):
    command = ubus("-t", "2", "listen")
    watcher.wait_for(INVOKE, b"register")
    assert broker.stop() == 0
    assert command.finish() == (0, "", "")
