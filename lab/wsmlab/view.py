"""The live view of ./demo on a terminal: a Board on the screen, its keys, and a Watcher behind it."""

import codecs
import curses
import os
import queue
import signal
import sys

import urwid

from .board import Board
from .cells import ascii_only

TICK_S = 0.1
# Style: foreground and background, and the attribute used without colours.
PALETTE = [
    ("title", "white,bold", "", "bold"),
    ("heading", "light blue", "", "underline"),
    ("sorted", "light blue,bold", "", "bold,underline"),
    ("selected", "black", "light gray", "standout"),
    ("waiting", "yellow", "", ""),
    ("left", "dark gray", "", ""),
    ("good", "light green", "", ""),
    ("fair", "yellow", "", ""),
    ("poor", "light red", "", "bold"),
    ("report", "dark green", "", ""),
    ("notify", "dark cyan", "", ""),
    ("event", "light magenta", "", ""),
    ("said", "white,bold", "", "bold"),
    ("rule", "dark gray", "", ""),
    ("alert", "black", "yellow", "standout"),
    ("footer", "light blue", "", ""),
]


def colourful():
    """Whether the terminal has colours, and its owner wants them (no-color.org)."""
    if os.environ.get("NO_COLOR"):
        return False
    try:
        curses.setupterm(os.environ["TERM"])
        return curses.tigetnum("colors") >= 8
    except curses.error:
        return False


class Page(urwid.Widget):
    """The whole screen. It measures text itself: the library's table of widths is of an older Unicode version."""

    _sizing = frozenset([urwid.BOX])
    _selectable = True
    ignore_focus = True

    def __init__(self, board):
        super().__init__()
        self._board = board
        # The library knows "ascii" by this name alone; Python has others for it.
        unicode = codecs.lookup(sys.stdout.encoding).name == "utf-8"
        urwid.set_encoding("utf-8" if unicode else "ascii")
        self._encode = str.encode if unicode else lambda text: ascii_only(text).encode("ascii")

    def render(self, size, focus=False):
        width, height = size
        texts, styles = [], []
        for line in self._board.page(width, height):
            encoded = [(style, self._encode(text)) for style, text in line]
            texts.append(b"".join(text for _, text in encoded))
            styles.append([(style, len(text)) for style, text in encoded if text])
        return urwid.TextCanvas(texts, styles, maxcol=width, check_width=False)

    def keypress(self, size, key):
        return key

    def refresh(self):
        self._invalidate()


class View:
    """`watcher`: entered by the caller. `until`: monotonic seconds at which it ends by itself, or None. `tell` is called
    with each item that the watcher found."""

    def __init__(self, watcher, until=None, tell=lambda item: None):
        self.board = Board(until)
        self._watcher, self._until, self._tell = watcher, until, tell
        self._page = Page(self.board)
        screen = urwid.raw_display.Screen()
        screen.set_terminal_properties(colors=16 if colourful() else 1)
        self._loop = urwid.MainLoop(self._page, PALETTE, screen, handle_mouse=False, unhandled_input=self._key)

    def run(self):
        """Until q is pressed or the time is over; KeyboardInterrupt on Ctrl-C. The terminal is then restored."""
        suspend = signal.signal(signal.SIGTSTP, self._suspend)
        try:
            self._loop.set_alarm_in(0, self._tick)
            self._loop.run()
        finally:
            signal.signal(signal.SIGTSTP, suspend)

    def _tick(self, loop, _):
        try:
            while True:
                item = self._watcher.found.get_nowait()
                if isinstance(item, Exception):
                    raise item
                self._tell(item)
                self.board.take(item)
        except queue.Empty:
            pass
        if self._until is not None and self.board.now >= self._until:
            raise urwid.ExitMainLoop
        self._watcher.visible = self.board.visible
        self._page.refresh()
        loop.set_alarm_in(TICK_S, self._tick)

    def _key(self, key):
        if not isinstance(key, str):
            return
        wish = self.board.key(key)
        if wish == ("quit",):
            raise urwid.ExitMainLoop
        if wish:
            self._watcher.wish(wish)
        self._page.refresh()

    def _suspend(self, *_):
        """Ctrl-Z: restores the terminal for the shell, and takes it again afterwards."""
        self._loop.screen.stop()
        os.kill(os.getpid(), signal.SIGSTOP)
        self._loop.screen.start()
        self._loop.screen.clear()
