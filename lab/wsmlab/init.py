"""The first process of a lab: sets its file system up, then starts, signals and reaps programs on request.

Requests come over a socket (one JSON object per packet; a "start" also has descriptors for standard input, output and
error). When the other end of the socket is closed, for any reason, this process ends, and since it is the first process of
a process namespace, all others of the lab end with it.
"""

import json
import os
import selectors
import signal
import socket
import sys

import layout

TICK_S = 1.0
PACKET = 1 << 20


class Init:
    def __init__(self, control):
        self.control = control
        self.links = layout.ProcessLinks()
        self.environment = {}

    def say(self, **message):
        self.control.sendall(json.dumps(message).encode())

    def open(self, message):
        layout.lay_out(message["keep"], message["files"])
        os.chdir("/")
        self.links.extend()
        self.environment = message["environment"]
        os.environ["PATH"] = self.environment["PATH"]  # where posix_spawnp looks
        self.say(op="open")

    def start(self, message, descriptors):
        try:
            pid = os.posix_spawnp(
                message["argv"][0], message["argv"], {**self.environment, **message["environment"]},
                file_actions=[(os.POSIX_SPAWN_DUP2, fd, number) for number, fd in enumerate(descriptors)],
                setsid=True, setsigmask=[], setsigdef=signal.valid_signals())
        except OSError as error:
            self.say(op="refused", id=message["id"], text=f"{message['argv'][0]}: {error.strerror}")
        else:
            self.say(op="started", id=message["id"], pid=pid)
        finally:
            for fd in descriptors:
                os.close(fd)

    def obey(self):
        data, descriptors, _, _ = socket.recv_fds(self.control, PACKET, 3, socket.MSG_CMSG_CLOEXEC)
        if not data:
            os._exit(0)
        message = json.loads(data)
        if message["op"] == "open":
            self.open(message)
        elif message["op"] == "start":
            self.start(message, descriptors)
        elif message["op"] == "signal":
            try:
                os.kill(message["pid"], message["signal"])
            except ProcessLookupError:
                pass  # its end is on the way to the other side

    def reap(self):
        while True:
            try:
                pid, status = os.waitpid(-1, os.WNOHANG)
            except ChildProcessError:
                return
            if pid == 0:
                return
            self.say(op="ended", pid=pid, status=os.waitstatus_to_exitcode(status))

    def run(self):
        woken, wake = os.pipe()
        os.set_blocking(woken, False)
        os.set_blocking(wake, False)
        signal.set_wakeup_fd(wake)
        signal.signal(signal.SIGCHLD, lambda *_: None)
        with selectors.DefaultSelector() as selector:
            selector.register(self.control, selectors.EVENT_READ, self.obey)
            selector.register(woken, selectors.EVENT_READ, lambda: os.read(woken, 512))
            while True:
                for key, _ in selector.select(TICK_S):
                    key.data()
                self.reap()
                if self.environment:
                    self.links.extend()


if __name__ == "__main__":
    channel = socket.socket(fileno=int(sys.argv[1]))
    channel.set_inheritable(False)
    try:
        Init(channel).run()
    except (BrokenPipeError, ConnectionResetError):
        os._exit(0)  # the other end is gone
