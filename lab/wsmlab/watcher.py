"""Asks the daemon and carries out the user's commands, on its own thread, so that the screen never waits."""

import json
import queue
import re
import threading
import time

from .board import Answer, Said
from .happenings import Happenings
from .lab import BusError
from .space import LabError

ASK_S = 1.0
LOOK_S = 0.05  # interval of looking for happenings and wishes
ANSWER_S = 5   # limit of a call
_TOO_LONG = 11  # the bus's "Out of memory": more stations than an answer can carry
# The daemon logs its period each time it has passed, and when it is set.
_PERIOD = re.compile(r"(?:update period:|update_time = )(-?\d+)")


_EACH = r"""for mac do ubus -S call sta get "{\"get_all_sta_status\":\"online\",\"get_sta_mac\":\"$mac\"}"; done"""


class Watcher:
    """`follow`: whether to take happenings as well, which only one may do. Results come from `found.get_nowait()`:
    Happening, Answer and Said as for Board.take(), or an exception that ended the thread."""

    def __init__(self, lab, follow=True):
        self._lab = lab
        self._start = time.monotonic()
        self._happenings = Happenings(lab) if follow else None
        self.found = queue.SimpleQueue()
        self.visible = []  # MACs: the stations to ask for when there are too many for one answer
        self._wishes = queue.SimpleQueue()
        self._stopping = threading.Event()
        self._thread = threading.Thread(target=self._run, name="watcher", daemon=True)

    def __enter__(self):
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._stopping.set()
        self._thread.join()

    @property
    def now(self):
        return time.monotonic() - self._start

    def wish(self, wish):
        """Queues a wish of Board.key()."""
        self._wishes.put(wish)

    def say(self, text, style="said"):
        self.found.put(Said(self.now, text, style))

    def _run(self):
        try:
            due = 0
            while not self._stopping.is_set():
                if self._happenings:
                    for happening in self._happenings.take():
                        self.found.put(happening)
                if time.monotonic() >= due:
                    self.found.put(self._ask())
                    due = time.monotonic() + ASK_S
                try:
                    self._do(*self._wishes.get(timeout=LOOK_S))
                    due = 0
                except queue.Empty:
                    pass
        except Exception as error:  # the screen's thread raises it again
            self.found.put(error)

    def _ask(self):
        try:
            reply = self._lab.bus("call", "sta", "get", {"get_all_sta_status": "online"}, timeout=ANSWER_S)
        except BusError as error:
            if error.status == _TOO_LONG:
                return Answer(self._ask_singly(self.visible), "list too long, asked singly", self._period())
            return Answer([], f"no answer ({error.status})", self._period())
        except LabError:
            return Answer([], "silent", self._period())
        return Answer(reply["online_list"], "ok", self._period())

    def _ask_singly(self, macs):
        """All in one shell: starting a process for each would take longer than one refresh of the screen."""
        done = self._lab.run(["sh", "-c", _EACH, "sh", *macs], check=False)
        return [record for line in done.stdout.splitlines() for record in json.loads(line)["online_list"]]

    def _period(self):
        for line in reversed(self._lab.log_lines()):
            if found := _PERIOD.search(line):
                return int(found[1])
        return None

    def _do(self, what, *arguments):
        method, members = {"kick": lambda mac, radio: ("delete", {"mac": mac, "radio": radio}),
                           "period": lambda seconds: ("set", {"set_update_log_period": seconds})}[what](*arguments)
        words = " ".join(f"{name}={value}" for name, value in members.items())
        try:
            self._lab.bus("call", "sta", method, members, timeout=ANSWER_S)
        except LabError as error:
            self.say(f"you    {method} {words}: {error}", "poor")
        else:
            self.say(f"you    {method} {words}")
