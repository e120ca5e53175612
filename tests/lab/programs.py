"""What tests of the lab's programs use to run them."""

import contextlib
import json
import os
import pathlib
import signal
import socket
import subprocess
import sys
import time

import pytest

PATIENCE = 120  # seconds; what a test waits for comes within milliseconds
CONTROLLER_GROUP = 0x8000
# The broker lets only root publish objects; in a user namespace of our own it sees us as root.
AS_ROOT = [] if os.geteuid() == 0 else ["unshare", "--map-root-user"]


def wait(predicate, what):
    """Calls `predicate` until it gives something true, and returns that."""
    end = time.monotonic() + PATIENCE
    while not (value := predicate()):
        assert time.monotonic() < end, f"waited {PATIENCE} s for {what}"
        time.sleep(0.005)
    return value


def connect(path):
    peer = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    peer.connect(str(path))  # with a time limit it would fail at once where the listener's queue is full
    peer.settimeout(PATIENCE)
    return peer


class Program:
    """A program that runs until it is stopped; its output is in files."""

    def __init__(self, argv, folder, *, name=None, **options):
        self.name = name or pathlib.Path(argv[0]).name
        self.out = folder / f"{self.name}.out"
        self.err = folder / f"{self.name}.err"
        with open(self.out, "wb") as out, open(self.err, "wb") as err:
            self.process = subprocess.Popen([str(word) for word in argv], stdout=out, stderr=err, **options)

    def wait_for_socket(self, path):
        """Waits until the kernel lists the program's socket at the path: a connection as a probe would be noticed."""
        accepting = "00010000"

        def listening():
            assert self.process.poll() is None, f"{self.name} ended: {self.err.read_text()}"
            # Num RefCount Protocol Flags Type St Inode Path
            sockets = pathlib.Path(f"/proc/{self.process.pid}/net/unix").read_text(encoding="utf-8").splitlines()
            return any(words[-1] == str(path) and words[3] == accepting for words in map(str.split, sockets[1:]))
        wait(listening, f"{self.name} to listen at {path}")

    def wait_for_end(self):
        """The exit status, once it has ended by itself."""
        return self.process.wait(PATIENCE)

    def stop(self, number=signal.SIGTERM):
        """Stops it; the exit status."""
        if self.process.poll() is None:
            self.process.send_signal(number)
        return self.wait_for_end()

    def lines(self):
        return self.out.read_text(encoding="utf-8").splitlines()


@contextlib.contextmanager
def starter(folder):
    """A function that starts programs with their output in the folder; they are stopped at the end."""
    started = []

    def start_one(argv, **options):
        program = Program(argv, folder, **options)
        started.append(program)
        return program

    yield start_one
    for program in started:
        program.stop()
        assert "Sanitizer" not in program.err.read_text(errors="replace")


# Makes netlink sockets in a network of its own, hands them over and becomes the program.
_IN_OWN_NETWORK = """
import os, socket, sys
bridge = socket.socket(fileno=int(sys.argv[1]))
sockets = [socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, 16) for _ in range(4)]
socket.send_fds(bridge, [b"x"], [one.fileno() for one in sockets])
os.execv(sys.argv[2], sys.argv[2:])
"""


class Listener:
    """A listener to the station-event family, as the daemon is one."""

    def __init__(self, netlink):
        self.socket = netlink
        self.socket.bind((0, CONTROLLER_GROUP))
        self.socket.settimeout(PATIENCE)

    @property
    def port(self):
        return self.socket.getsockname()[0]

    def message(self):
        return self.socket.recv(65536)

    def event(self):
        """The next station event's message; announcements are skipped."""
        while (message := self.message())[4:6] == b"\x10\0":
            pass
        return message

    def record(self):
        """The next station event without its headers."""
        message = self.event()
        assert len(message) == 488
        return message[24:]

    def nothing_waits(self):
        self.socket.settimeout(0)
        try:
            return self.socket.recv(65536) is None
        except BlockingIOError:
            return True
        finally:
            self.socket.settimeout(PATIENCE)


class Apsim:
    """A running driver simulator."""

    def __init__(self, start, build_dir, folder, options):
        self.folder = folder
        self.control = folder / "control.sock"
        self.driver = folder / "was.sock"
        self.leases = folder / "leases"
        ours, theirs = socket.socketpair()
        self.program = start(
            [*(AS_ROOT or ["unshare"]), "--net", sys.executable, "-c", _IN_OWN_NETWORK, theirs.fileno(), build_dir / "bin/apsim",
             "--control", self.control, "--socket", self.driver, "--leases", self.leases, *options],
            pass_fds=[theirs.fileno()], name="apsim")
        theirs.close()
        ours.settimeout(PATIENCE)
        data, self._sockets, _, _ = socket.recv_fds(ours, 1, 4)
        ours.close()
        if not data:
            pytest.skip("no network namespaces here: " + self.program.err.read_text())
        self.program.wait_for_socket(self.control)

    def listener(self):
        """A new listener in the simulator's network; the announcement is its first message."""
        return Listener(socket.socket(fileno=self._sockets.pop()))

    def __call__(self, line):
        """Sends one command; returns the whole answer line."""
        with connect(self.control) as peer:
            peer.sendall((line if isinstance(line, bytes) else line.encode()) + b"\n")
            return peer.makefile("r", encoding="utf-8").readline().rstrip("\n")

    def ok(self, line):
        """The same; returns what follows "ok"."""
        answer = self(line)
        assert answer == "ok" or answer.startswith("ok "), f"{line}: {answer}"
        return answer[3:]

    def list(self):
        return json.loads(self.ok("list"))

    def status(self):
        return json.loads(self.ok("status"))

    def log(self):
        return json.loads(self.ok("log"))

    def close(self):
        for descriptor in self._sockets:
            os.close(descriptor)
