"""Private namespaces (mount, network, process; user as well when not root) with programs running in them.

    with Space(keep=[...], files={...}, environment={...}) as space:
        server = space.start("server", ["server", "-v"])
        print(space.run(["ip", "link"]).stdout)

Nothing survives the space: its first process ends when this process ends, in any way, and with it all other processes, the
mounts and the network. Programs' output goes to anonymous memory of this process, not to files.
"""

import json
import os
import pathlib
import shlex
import signal
import socket
import struct
import subprocess
import threading
import time

_INIT = pathlib.Path(__file__).with_name("init.py")
_PACKET = 1 << 20
_UNSHARE = ["unshare", "--mount", "--net", "--pid", "--fork", "--kill-child"]


class LabError(Exception):
    """Something in the lab is wrong; the text says what."""


class Timeout(LabError):
    """A wait has timed out."""


class Printed:
    """What a program prints: an anonymous file that it writes and this process reads; `fd` is None once it is closed."""

    def __init__(self, name):
        self.fd = os.memfd_create(name, os.MFD_CLOEXEC)
        self._kept = b""

    def bytes(self, start=0):
        if self.fd is None:
            return self._kept[start:]
        data = bytearray()
        while chunk := os.pread(self.fd, 1 << 20, start + len(data)):
            data += chunk
        return bytes(data)

    def text(self):
        return self.bytes().decode("utf-8", "replace")

    def close(self):
        """To be called when nothing writes any more: closes the file; the output can still be read."""
        if self.fd is not None:
            self._kept = self.bytes()
            os.close(self.fd)
            self.fd = None


class Follower:
    """The complete lines that a program prints, each returned once."""

    def __init__(self, printed):
        self._printed = printed
        self._taken = 0  # bytes

    def take(self):
        """The lines that have come since the last call."""
        data = self._printed.bytes(self._taken)
        end = data.rfind(b"\n") + 1
        self._taken += end
        return data[:end].decode("utf-8", "replace").split("\n")[:-1]


class Process:
    """A program that was started in a space. `pid` is its number there; `out` and `err` what it printed so far (one
    and the same unless they were asked for apart)."""

    def __init__(self, space, name, argv, pid, out, err):
        self.space, self.name, self.argv, self.pid = space, name, argv, pid
        self.out, self.err = out, err

    @property
    def status(self):
        """None while it runs; then its exit status, or minus the signal that ended it."""
        return self.space.status_of(self.pid)

    @property
    def running(self):
        return self.status is None

    def text(self):
        return self.out.text()

    def lines(self):
        """The complete lines that it printed so far."""
        return self.follow().take()

    def follow(self):
        """A Follower of its output, from the beginning."""
        return Follower(self.out)

    def signal(self, number):
        self.space.signal(self.pid, number)

    def wait(self, timeout=10):
        """Waits for its end; returns the status."""
        return self.space.wait_end(self.pid, timeout, f"the end of {self.name}")

    def stop(self, timeout=10):
        """Asks it to end (SIGTERM) and waits; returns the status."""
        if self.running:
            self.signal(signal.SIGTERM)
        return self.wait(timeout)

    def kill(self):
        """Ends it at once, as a crash would (SIGKILL)."""
        if self.running:
            self.signal(signal.SIGKILL)
        return self.wait()


class Done:
    """A program that has run: its status and what it printed."""

    def __init__(self, argv, status, stdout, stderr):
        self.argv, self.status, self.stdout, self.stderr = argv, status, stdout, stderr

    def __repr__(self):
        return f"{shlex.join(self.argv)}: status {self.status}, stdout {self.stdout!r}, stderr {self.stderr!r}"


class Space:
    """`keep`: folders that stay visible in their place; `files`: path to text; `environment`: of all programs.
    `user_namespace`: None asks for one only when it is needed."""

    def __init__(self, keep, files, environment, user_namespace=None):
        self.processes = []
        self._changed = threading.Condition()
        self._ended = {}    # pid -> status
        self._answers = {}  # id of a start -> its answer
        self._last_id = 0
        self._gone = False
        self._said = Printed("init")
        self.init_pid = None  # the first process, as this process sees it
        self.environment = environment
        self.has_user_namespace = os.geteuid() != 0 if user_namespace is None else user_namespace
        mine, its = socket.socketpair(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        mine.setsockopt(socket.SOL_SOCKET, socket.SO_PASSCRED, 1)
        self._control = mine
        argv = [*_UNSHARE, *(["--user", "--map-root-user"] if self.has_user_namespace else []),
                "/usr/bin/python3", "-E", "-S", "-s", str(_INIT), str(its.fileno())]
        with its:
            # A session of its own: Ctrl-C at the terminal is for this process alone, which then ends the rest in order.
            self._unshare = subprocess.Popen(argv, stdin=subprocess.DEVNULL, stdout=self._said.fd, stderr=self._said.fd,
                                             pass_fds=[its.fileno()], start_new_session=True)
        self._reader = threading.Thread(target=self._read, name="lab", daemon=True)
        self._reader.start()
        try:
            self._send({"op": "open", "keep": [str(path) for path in keep], "files": files, "environment": environment})
            self._await(lambda: self.init_pid, 20, "the namespaces to open")
        except BaseException:
            self.close()
            raise

    # --- the connection to the first process ---

    def _read(self):
        try:
            while True:
                data, ancillary, _, _ = self._control.recvmsg(_PACKET, socket.CMSG_SPACE(12))
                if not data:
                    break
                self._take(json.loads(data), ancillary)
        except OSError:
            pass
        with self._changed:
            self._gone = True
            self._changed.notify_all()

    def _take(self, message, ancillary):
        with self._changed:
            if message["op"] == "ended":
                self._ended[message["pid"]] = message["status"]
            elif message["op"] == "open":
                # The kernel gives the sender's number in this namespace.
                for level, kind, data in ancillary:
                    if (level, kind) == (socket.SOL_SOCKET, socket.SCM_CREDENTIALS):
                        self.init_pid = struct.unpack("3i", data[:12])[0]
            else:
                self._answers[message["id"]] = message
                self._ended.pop(message.get("pid"), None)  # an earlier process of that number
            self._changed.notify_all()

    def _advice(self):
        """Advice for a machine that refuses namespaces."""
        if "unshare" not in self._said.text():
            return ""
        return ("this user may not make namespaces here: call it as root, or set the sysctl kernel.unprivileged_userns_clone "
                "to 1; a container needs the right to (CAP_SYS_ADMIN)" if self.has_user_namespace else
                "root may not make namespaces here: a container needs the right to (CAP_SYS_ADMIN, or --privileged)")

    def _send(self, message, descriptors=()):
        try:
            socket.send_fds(self._control, [json.dumps(message).encode()], descriptors)
        except OSError as error:
            raise LabError(f"the lab is closed: {error}\n{self._said.text()}") from error

    def _await(self, condition, timeout, what):
        end = time.monotonic() + timeout
        with self._changed:
            while not (value := condition()):
                if self._gone:
                    raise LabError(f"the lab ended while waiting for {what}\n{self._said.text()}{self._advice()}")
                if not self._changed.wait(end - time.monotonic()) and time.monotonic() >= end:
                    raise Timeout(f"waited {timeout:g} s for {what}")
            return value

    def status_of(self, pid):
        return self._ended.get(pid)

    def wait_end(self, pid, timeout, what):
        self._await(lambda: pid in self._ended, timeout, what)
        return self._ended[pid]

    def signal(self, pid, number):
        self._send({"op": "signal", "pid": pid, "signal": int(number)})

    # --- programs ---

    @property
    def open(self):
        """False once it is closed or its first process is gone."""
        return not self._gone

    @property
    def root(self):
        """The space's file system, from outside."""
        return pathlib.Path(f"/proc/{self.init_pid}/root")

    def start(self, name, argv, *, stdin=None, apart=False, environment=None):
        """Starts a program. `stdin`: bytes for its standard input; `apart`: keep standard error apart from output."""
        argv = [str(word) for word in argv]
        out = Printed(name)
        err = Printed(name) if apart else out
        given = os.memfd_create(name, os.MFD_CLOEXEC)
        try:
            if stdin:
                os.write(given, stdin)
                os.lseek(given, 0, os.SEEK_SET)
            with self._changed:  # programs are started from several threads
                self._last_id += 1
                number = self._last_id
            self._send({"op": "start", "id": number, "argv": argv, "environment": environment or {}},
                       [given, out.fd, err.fd])
        finally:
            os.close(given)
        self._await(lambda: number in self._answers, 20, f"{name} to start")
        answer = self._answers.pop(number)
        if answer["op"] == "refused":
            raise LabError(answer["text"])
        process = Process(self, name, argv, answer["pid"], out, err)
        self.processes.append(process)
        return process

    def run(self, argv, *, stdin=None, timeout=20, check=True, environment=None):
        """Runs a program to its end; returns a Done. With `check` a status other than 0 is a LabError."""
        process = self.start(str(argv[0]), argv, stdin=stdin, apart=True, environment=environment)
        self.processes.remove(process)  # not needed once it has ended
        try:
            status = process.wait(timeout)
            done = Done(process.argv, status, process.out.text(), process.err.text())
        finally:
            process.out.close()
            process.err.close()
        if check and status != 0:
            raise LabError(repr(done))
        return done

    # --- the end ---

    def close(self):
        """Ends every program, at once, and waits until the last is gone."""
        try:
            self._control.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass
        try:
            self._unshare.wait(10)
        except subprocess.TimeoutExpired:
            self._unshare.kill()
            self._unshare.wait()
        self._reader.join()
        self._control.close()
        for printed in (self._said, *(file for process in self.processes for file in (process.out, process.err))):
            printed.close()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()
