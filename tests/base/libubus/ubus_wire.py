"""Bus messages as bytes: what tests send to the broker and to clients by hand, and how they read the answers."""

import os
import select
import signal
import socket
import struct
import subprocess
import time

HELLO, STATUS, DATA, PING, LOOKUP, INVOKE, ADD_OBJECT, REMOVE_OBJECT, SUBSCRIBE, UNSUBSCRIBE, NOTIFY, MONITOR = range(12)

(A_STATUS, A_OBJPATH, A_OBJID, A_METHOD, A_OBJTYPE, A_SIGNATURE, A_DATA, A_TARGET, A_ACTIVE, A_NO_REPLY,
 A_SUBSCRIBERS, A_USER, A_GROUP) = range(1, 14)

LIMIT = 1 << 20  # bytes of a root, padded
HEADER = 12  # version, type, seq, peer, root header
PATIENCE = 10.0  # seconds that a test waits for something that must come

B_ARRAY, B_TABLE, B_STRING, B_INT64, B_INT32, B_INT16, B_INT8 = 1, 2, 3, 4, 5, 6, 7

# The kernel tells the broker who we are, and it lets root do everything. A user who is not root becomes root in a user
# namespace.
AS_ROOT = [] if os.geteuid() == 0 else ["unshare", "--map-root-user"]


def pad(data):
    return data + bytes(-len(data) % 4)


def attr(number, data):
    return pad(struct.pack(">I", number << 24 | len(data) + 4) + data)


def i32(number, value):
    return attr(number, struct.pack(">I", value & 0xFFFFFFFF))


def text(number, value):
    return attr(number, value.encode() + b"\0")


def field(kind, name, data):
    """A blobmsg field."""
    name = name.encode()
    head = pad(struct.pack(">H", len(name)) + name + b"\0")
    return pad(struct.pack(">I", 0x80000000 | kind << 24 | 4 + len(head) + len(data)) + head + data)


def string(name, value):
    return field(B_STRING, name, value.encode() + b"\0")


def int32(name, value):
    return field(B_INT32, name, struct.pack(">I", value & 0xFFFFFFFF))


def table(name, *fields):
    return field(B_TABLE, name, b"".join(fields))


def message(kind, seq, peer, *attrs, version=0):
    body = b"".join(attrs)
    return struct.pack(">BBHII", version, kind, seq, peer, len(body) + 4) + body


class Message:
    """A received message."""

    def __init__(self, data):
        self.raw = data
        self.version, self.type, self.seq, self.peer, self.root = struct.unpack(">BBHII", data[:HEADER])
        self.attrs = dict(children(data[HEADER:]))

    def number(self, attribute):
        return struct.unpack(">I", self.attrs[attribute])[0]

    @property
    def status(self):
        assert self.type == STATUS, self
        return self.number(A_STATUS)

    def __repr__(self):
        return f"<type {self.type} seq {self.seq} peer {self.peer:#x} {self.attrs}>"


def children(data):
    """(id, payload) of each attribute."""
    at = 0
    while at + 4 <= len(data):
        head = struct.unpack(">I", data[at:at + 4])[0]
        length = head & 0xFFFFFF
        if length < 4:
            return
        yield head >> 24 & 0x7F, data[at + 4:at + length]
        at += length + -length % 4


class Connection:
    """One end of a bus connection."""

    def __init__(self, sock, greeted=True):
        self.sock = sock
        self.sock.settimeout(PATIENCE)
        self.seq = 0
        self.id = None
        if greeted:
            self.hello = self.receive()
            assert self.hello.type == HELLO
            self.id = self.hello.peer

    def send(self, data):
        self.sock.sendall(data)

    def receive_bytes(self, count):
        data = bytearray()
        while len(data) < count:
            part = self.sock.recv(count - len(data))
            if not part:
                raise EOFError("the other end has closed")
            data += part
        return bytes(data)

    def receive(self):
        head = self.receive_bytes(HEADER)
        length = struct.unpack(">I", head[8:])[0] & 0xFFFFFF
        return Message(head + self.receive_bytes(length - 4))

    def expect_close(self):
        try:
            rest = self.sock.recv(1)
        except ConnectionResetError:
            return
        assert rest == b""

    def ask(self, kind, *attrs, peer=0):
        """Sends a request; returns its DATA messages and its STATUS, or None when something else came first."""
        self.seq += 1
        self.send(message(kind, self.seq, peer, *attrs))
        return self.answers(self.seq)

    def answers(self, seq):
        data = []
        while True:
            got = self.receive()
            assert got.seq == seq and got.type in (DATA, STATUS), got
            if got.type == STATUS:
                return data, got.status
            data.append(got)

    def is_served(self):
        """A PING comes back, and nothing was waiting before it."""
        data, status = self.ask(PING)
        assert len(data) == 1 and status == 0
        return True

    def add_object(self, path=None, *methods):
        attrs = [] if path is None else [text(A_OBJPATH, path), attr(A_SIGNATURE, b"".join(table(m) for m in methods))]
        data, status = self.ask(ADD_OBJECT, *attrs)
        assert status == 0
        return data[0].number(A_OBJID)

    def lookup(self, path=None):
        """Paths and ids found, and the status."""
        data, status = self.ask(LOOKUP, *([] if path is None else [text(A_OBJPATH, path)]))
        return {d.attrs[A_OBJPATH][:-1].decode(): d.number(A_OBJID) for d in data}, status

    def listen(self, pattern):
        """Registers a new anonymous object for events; returns its id and the status."""
        own = self.add_object()
        _, status = self.ask(INVOKE, i32(A_OBJID, 1), text(A_METHOD, "register"),
                             attr(A_DATA, int32("object", own) + string("pattern", pattern)), peer=1)
        return own, status

    def send_event(self, name, *fields):
        _, status = self.ask(INVOKE, i32(A_OBJID, 1), text(A_METHOD, "send"),
                             attr(A_DATA, string("id", name) + table("data", *fields)), peer=1)
        return status

    def subscribe(self, own, target):
        return self.ask(SUBSCRIBE, i32(A_OBJID, own), i32(A_TARGET, target))[1]

    def send_some(self, data):
        """Sends what the socket takes without waiting; returns how much that was."""
        sent = 0
        try:
            while sent < len(data):
                sent += self.sock.send(data[sent:])
        except BlockingIOError:
            pass
        return sent

    def is_alive(self):
        """As is_served(), but other messages may come first."""
        self.seq = 65535
        self.send(message(PING, self.seq, 0))
        while True:
            got = self.receive()
            if (got.type, got.seq) == (STATUS, self.seq):
                return True

    def close(self):
        self.sock.close()


def wait_until(condition, what, pause=0.005):
    end = time.monotonic() + PATIENCE
    while not condition():
        assert time.monotonic() < end, f"waited in vain: {what}"
        time.sleep(pause)


class Broker:
    """A broker of our own, on a socket of its own."""

    def __init__(self, program, folder, *options):
        self.path = str(folder / "ubus.sock")
        self.command = [*AS_ROOT, program, "-s", self.path, *options]
        self.process = None
        self.connections = []
        self.start()

    def start(self):
        if os.path.exists(self.path):
            os.unlink(self.path)
        self.process = subprocess.Popen(self.command)
        wait_until(self.is_listening, "the broker listens")

    def is_listening(self):
        assert self.process.poll() is None, "the broker has ended"
        try:
            self.connect().close()
        except (FileNotFoundError, ConnectionRefusedError):
            return False
        return True

    def connect(self):
        sock = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        sock.connect(self.path)
        self.connections.append(sock)
        return Connection(sock)

    def stop(self, how=signal.SIGTERM):
        self.process.send_signal(how)
        return self.process.wait(PATIENCE)

    def done(self):
        """Ends the broker, which must have lived until now and end cleanly (with sanitizers: without a finding)."""
        for sock in self.connections:
            sock.close()
        if self.process.returncode is None:
            assert self.process.poll() is None, f"the broker has ended with {self.process.returncode}"
            assert self.stop() == 0


def readable(sock, seconds=0):
    poller = select.poll()  # select() takes no descriptor above 1023
    poller.register(sock, select.POLLIN)
    return bool(poller.poll(None if seconds is None else 1000 * seconds))


class Peer:
    """A bus program (peer.cpp) that does what it is told."""

    def __init__(self, build_dir, path):
        self.process = subprocess.Popen([build_dir / "tests" / "ubus-peer", path], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, text=True)
        self.lines = []

    def tell(self, command):
        self.process.stdin.write(command + "\n")
        self.process.stdin.flush()

    def read_line(self):
        line = self.process.stdout.readline()
        assert line, "the peer has ended"
        return line.rstrip("\n")

    def result(self):
        """The result of the oldest command that has none yet; what was printed before it goes to self.lines."""
        while True:
            line = self.read_line()
            if line.startswith("= "):
                return int(line[2:])
            self.lines.append(line)

    def do(self, command):
        self.tell(command)
        return self.result()

    def expect(self, line):
        """Waits until the peer prints this."""
        if line in self.lines:
            self.lines.remove(line)
            return
        while (got := self.read_line()) != line:
            assert not got.startswith("= "), f"{got} came instead of {line}"
            self.lines.append(got)

    def done(self):
        self.process.stdin.close()
        assert self.process.wait(PATIENCE) == 0

    def kill(self):
        self.process.kill()
        self.process.wait(PATIENCE)
