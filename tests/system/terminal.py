"""A terminal in memory, with a program on it: what it shows, cell by cell, and keys for it."""

import codecs
import fcntl
import os
import pty
import select
import struct
import subprocess
import termios
import time

import pyte

QUIET_S = 0.05  # after this time without a byte the page is complete


class Terminal:
    """Started with `argv` on it; `limit`: seconds that anything may take. `raw` is all that the program wrote."""

    def __init__(self, argv, environment, width=80, height=24, limit=60):
        self.limit, self.raw = limit, bytearray()
        self.screen = pyte.Screen(width, height)
        self._stream = pyte.Stream(self.screen)
        self._decoder = codecs.getincrementaldecoder("utf-8")("replace")
        self._master, self._terminal = pty.openpty()
        self._set_size()
        self.modes_before = termios.tcgetattr(self._terminal)
        self.process = subprocess.Popen(
            argv, env=environment, stdin=self._terminal, stdout=self._terminal, stderr=self._terminal,
            start_new_session=True, preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0))

    def _set_size(self):
        size = struct.pack("4H", self.screen.lines, self.screen.columns, 0, 0)
        fcntl.ioctl(self._terminal, termios.TIOCSWINSZ, size)

    def resize(self, width, height):
        """Resizes the window; the program gets its signal from the kernel."""
        self.screen.resize(height, width)
        self._set_size()

    @property
    def modes(self):
        return termios.tcgetattr(self._terminal)

    @property
    def lines(self):
        return self.screen.display

    def lines_with(self, text):
        return [line for line in self.lines if text in line]

    def style_of(self, text):
        """The first cell of this text: pyte's data, with fg, bg, bold, reverse."""
        row = next(number for number, line in enumerate(self.lines) if text in line)
        return self.screen.buffer[row][self.lines[row].index(text)]

    def press(self, *keys):
        os.write(self._master, "".join(keys).encode())

    def _read(self):
        poller = select.poll()  # select() takes no descriptor above 1023, and a long run of tests gets there
        poller.register(self._master, select.POLLIN)
        if poller.poll(1000 * QUIET_S):
            data = os.read(self._master, 1 << 16)
            self.raw += data
            self._stream.feed(self._decoder.decode(data))
            return True
        return False

    def wait(self, shown, what):
        """Waits until `shown` gives something true for a complete page, and returns that."""
        end = time.monotonic() + self.limit
        while True:
            if not self._read():
                if value := shown():
                    return value
                assert self.process.poll() is None, f"it ended, waiting for {what}:\n" + "\n".join(self.lines)
            assert time.monotonic() < end, f"waited for {what}; the screen:\n" + "\n".join(self.lines)

    def wait_for(self, text):
        """Waits until a line holds the text; returns the line."""
        return self.wait(lambda: next(iter(self.lines_with(text)), None), repr(text))

    def wait_gone(self, text):
        self.wait(lambda: not self.lines_with(text), f"{text!r} to go")

    def wait_for_end(self):
        """The exit status. Output is read all the time, since otherwise the program would block on writing it."""
        end = time.monotonic() + self.limit
        while self._read() or self.process.poll() is None:
            assert time.monotonic() < end, "it does not end; the screen:\n" + "\n".join(self.lines)
        return self.process.returncode

    def close(self):
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait()
        os.close(self._master)
        os.close(self._terminal)
