"""The live view without a terminal: stations, stream and prompts, the effect of each key, and the lines of a page of any
size.

A line is a list of (style, text) pairs. Foreign text passes through clean() before it is in a line.
"""

import collections
import time

from .cells import cells, clean, clip, duration, fit, fit_line, sparkline
from .columns import COLUMNS, TREND, columns_for, heading_line, station_line
from .happenings import KINDS, Happening

DEFAULT_PERIOD_S = 60  # the daemon's, until somebody sets another
PERIODS_S = (1, 2, 5, 10, 20, 30, 60, 120, 300, 600, 1800, 3600)
LONGEST_PERIOD_S = 86400
LINGER_S = 5           # time that a departed station stays in the table
STREAM = 500           # happenings that are kept
RATE_S = 10            # time over which reports per second are counted
KEYS = "s/S sort  / filter  p pause  d kick  l period  Enter details  ? help  q quit"
HELP = (
    ("arrows  j k", "choose a station; PgUp PgDn Home End go farther"),
    ("s  S", "sort by the next column; the other way round"),
    ("/", "only stations with the text in MAC, name, IP or SSID; Esc: all"),
    ("space  p", "stop the view, and go on; the access point does not stop"),
    ("d", "kick the station: call delete on the bus"),
    ("+  -", "longer, shorter log period: call set on the bus"),
    ("l", "type the log period in seconds"),
    ("Enter", "all that the daemon says about the station; Enter or Esc goes back"),
    ("q", "quit, as Ctrl-C does"),
    ("", ""),
    ("signal", "five steps from -90 to -50 dBm; trend: the last ones, one a second"),
    ("Mb/s", "rate of the link to the station; up: from it"),
    ("state", "waiting: for the daemon's next five-second pass; left: a moment ago"),
)


class Answer:
    """The daemon's answer. `records`: its stations, each with the members that `get` gives; `bus`: "ok" if
    these are all, or why not; `period`: the log-up period in seconds, None if it is not known."""

    def __init__(self, records, bus="ok", period=None):
        self.records, self.bus, self.period = records, bus, period


class Said:
    """A line of the view itself for the stream."""

    def __init__(self, at, text, style="said"):
        self.at, self.text, self.style = at, text, style


class Notice:
    """The text between table and stream from now on."""

    def __init__(self, text):
        self.text = text


class Station:
    def __init__(self, record):
        self.record = record
        self.signals = collections.deque(maxlen=TREND)  # dBm
        self.left = None  # time of the departure

    def comes(self):
        """It is there. One that had left starts again."""
        if self.left is not None:
            self.left = None
            self.signals.clear()

    @property
    def mac(self):
        return self.record["mac"]

    def number(self, name):
        value = self.record.get(name, 0)
        return value if isinstance(value, int) else 0

    def text(self, name):
        return clean(str(self.record.get(name, "")))

    @property
    def dbm(self):
        """None while the daemon has no signal of the station."""
        try:
            return int(self.record["power"]) - 95
        except (KeyError, ValueError):
            return None

    def has(self, wanted):
        return any(wanted in str(self.record.get(name, "")).casefold() for name in ("mac", "name", "ip", "ssid"))


class Board:
    """`clock`: seconds; `until`: the clock's time at which everything ends, or None."""

    def __init__(self, until=None, clock=time.monotonic):
        self._clock, self._until = clock, until
        self.stations = {}
        self.stream = collections.deque(maxlen=STREAM)
        self.bus = "no answer yet"
        self.period = DEFAULT_PERIOD_S
        self.notice = ""
        self.sort_column, self.reverse = "mac", False
        self.filter = ""
        self.selected = None    # MAC
        self.visible = []       # MACs of the stations on the screen
        self.mode = "table"     # or details, help
        self.prompt = None      # or filter, period, kick
        self._typed = ""
        self._scroll = 0        # first line of details
        self._page = 10         # stations, or lines of details, on the screen
        self._top = 0           # first station on the screen
        self._last_index = 0    # of the selected station among those shown
        self._range = 1, 0, 0   # first and last station on the screen, and how many are shown in all
        self._most = 0          # the most stations at one time
        self._width = 80
        self._report_times = collections.deque()
        self.paused = False
        self._waiting = collections.deque(maxlen=STREAM)
        self._waiting_count, self._waiting_answer = 0, None

    @property
    def now(self):
        return self._clock()

    # --- input ---

    def take(self, item):
        """A Happening, an Answer, a Notice or something Said."""
        if isinstance(item, Notice):
            self.notice = item.text
        elif isinstance(item, Answer):
            if self.paused:
                self._waiting_answer = item
            else:
                self._answered(item)
        elif self.paused and isinstance(item, Happening):
            self._waiting.append(item)
            self._waiting_count += 1
        else:
            self._happen(item)

    def _answered(self, answer):
        now = self.now
        self.bus = answer.bus
        if answer.period is not None:
            self.period = answer.period
        for record in answer.records:
            station = self._record(record)
            station.comes()
            if station.dbm is not None:
                station.signals.append(station.dbm)
        if answer.bus == "ok":
            listed = {record["mac"] for record in answer.records}
            for mac, station in self.stations.items():
                if mac not in listed and station.left is None:
                    station.left = now
        self._forget(now)

    def _record(self, record):
        station = self.stations.setdefault(record["mac"], Station(record))
        station.record = record
        return station

    def _forget(self, now):
        for mac, station in list(self.stations.items()):
            if station.left is not None and now - station.left >= LINGER_S:
                del self.stations[mac]

    def _happen(self, item):
        self.stream.append(item)
        if not isinstance(item, Happening):
            return
        now = self.now
        if item.source == "report":
            self._report_times.append(now)
        elif item.source == "notify" and item.values.get("notify_sta_status") == "1" and "mac" in item.values:
            # Updates a station between two lists, and replaces lists that are too long for the bus.
            known = self.stations.get(item.values["mac"])
            station = self._record({**known.record, **{name: value for name, value in item.values.items()
                                                       if name in known.record}} if known else item.values)
            if item.values.get("log_type") == 2:
                station.left = now
            else:
                station.comes()
        self._forget(now)

    # --- selection ---

    def shown(self):
        """The stations that pass the filter, sorted. One of them stays selected."""
        wanted = self.filter.casefold()
        found = [station for station in self.stations.values() if station.has(wanted)]
        found.sort(key=lambda station: station.mac)
        found.sort(key=COLUMNS[self.sort_column].order, reverse=self.reverse)
        return found

    def reports_per_second(self):
        now = self.now
        while self._report_times and now - self._report_times[0] > RATE_S:
            self._report_times.popleft()
        return len(self._report_times) / RATE_S

    def _index(self, shown):
        """The index of the selected station among those shown; None if it is not shown."""
        return next((index for index, station in enumerate(shown) if station.mac == self.selected), None)

    def _choose(self, shown, index):
        self._last_index = max(0, min(len(shown) - 1, index))
        self.selected = shown[self._last_index].mac if shown else None

    def chosen(self):
        return self.stations.get(self.selected)

    # --- keys ---

    def key(self, key):
        """Handles a key. Returns what the caller must do: None, ("quit",), ("kick", mac, radio) or
        ("period", seconds)."""
        if self.prompt:
            return self._key_of_prompt(key)
        if key in ("q", "Q"):
            return ("quit",)
        if key == "?":
            self.mode = "table" if self.mode == "help" else "help"
        elif key in (" ", "p"):
            self._pause()
        elif self.mode == "help":
            self.mode = "table"
        elif self.mode == "details":
            self._key_of_details(key)
        else:
            return self._key_of_table(key)
        return None

    def _step(self, key):
        """How many lines a key moves; None for other keys."""
        return {"up": -1, "k": -1, "down": 1, "j": 1, "page up": -self._page, "page down": self._page,
                "home": -len(self.stations) - 100, "end": len(self.stations) + 100}.get(key)

    def _key_of_details(self, key):
        if key in ("enter", "esc"):
            self.mode = "table"
        elif key == "d":
            self.prompt = "kick"
        elif (step := self._step(key)) is not None:
            self._scroll = max(0, self._scroll + step)

    def _key_of_table(self, key):
        if (step := self._step(key)) is not None:
            shown = self.shown()
            index = self._index(shown)
            self._choose(shown, 0 if index is None else index + step)
        elif key == "s":
            sortable = [name for name in columns_for(self._width) if COLUMNS[name].order]
            index = sortable.index(self.sort_column) if self.sort_column in sortable else -1
            self.sort_column, self.reverse = sortable[(index + 1) % len(sortable)], False
        elif key == "S":
            self.reverse = not self.reverse
        elif key == "/":
            self.prompt, self._typed = "filter", self.filter
        elif key == "esc":
            self.filter = ""
        elif key == "l":
            self.prompt, self._typed = "period", ""
        elif key in ("+", "="):
            return ("period", next((period for period in PERIODS_S if period > self.period), LONGEST_PERIOD_S))
        elif key == "-":
            return ("period", next((period for period in reversed(PERIODS_S) if period < self.period), PERIODS_S[0]))
        elif key == "d" and self.chosen():
            self.prompt = "kick"
        elif key == "enter" and self.chosen():
            self.mode, self._scroll = "details", 0
        return None

    def _key_of_prompt(self, key):
        prompt, wish = self.prompt, None
        if prompt == "kick":
            self.prompt = None
            if key in ("y", "Y") and self.chosen():
                wish = ("kick", self.selected, self.chosen().number("radio_id"))
        elif key == "esc":
            self.prompt = None
            if prompt == "filter":
                self.filter = ""
        elif key == "enter" and prompt == "period" and self._typed and not 1 <= int(self._typed) <= LONGEST_PERIOD_S:
            self._typed = ""  # the prompt, which says what is allowed, stays
        elif key == "enter":
            self.prompt = None
            if prompt == "period" and self._typed:
                wish = ("period", int(self._typed))
        elif key == "backspace":
            self._typed = self._typed[:-1]
        elif len(key) == 1 and (prompt == "filter" or (key in "0123456789" and len(self._typed) < 5)):
            self._typed += key
        if prompt == "filter" and self.prompt:
            self.filter = self._typed
        return wish

    def _pause(self):
        self.paused = not self.paused
        if self.paused:
            return
        for item in self._waiting:
            self._happen(item)
        if self._waiting_answer:
            self._answered(self._waiting_answer)
        self._waiting.clear()
        self._waiting_count, self._waiting_answer = 0, None

    # --- the page ---

    def page(self, width, height):
        """Exactly `height` lines, each exactly `width` cells."""
        self._width = width
        body = max(0, height - 2)
        if self.mode == "help":
            lines = [[("heading", f" {keys:<12}"), (None, text)] for keys, text in HELP]
        elif self.mode == "details" and self.chosen():
            lines = self._details(width, body)
        else:
            self.mode = "table" if self.mode == "details" else self.mode
            # As high as the most stations so far, up to a share of the height, so that nothing jumps when stations arrive or leave.
            self._most = max(self._most, len(self.stations))
            share = (body - 2) * 3 // 5 if body > 6 else max(0, body - 1)
            lines = self._table(width, min(share, max(3, self._most)))
            if body > len(lines):
                lines.append(self._rule(width))
                lines += self._stream(body - len(lines))
        lines = lines[:body] + [[]] * (body - len(lines))
        return [fit_line(line, width) for line in [self._header(), *lines, self._footer()][:height]]

    def _header(self):
        known = [station for station in self.stations.values() if station.left is None]
        online = sum(station.record.get("status") == 1 for station in known)
        # Without the whole list the number of online stations is not known.
        count = f"{online} of {len(known)} online" if self.bus == "ok" else f"{len(known)} stations"
        words = [("title", f" {count}"), (None, f"  period {self.period} s"),
                 (None, f"  {self.reports_per_second():.1f} reports/s"),
                 (None if self.bus == "ok" else "poor", f"  bus {clean(self.bus)}")]
        if self._until is not None:
            words.append((None, f"  {duration(self._until - self.now)} left"))
        if self.paused:
            words.insert(0, ("alert", f" PAUSED +{self._waiting_count} "))
        return words

    def _table(self, width, rows):
        widths = columns_for(width)
        shown = self.shown()
        index = self._index(shown)
        if index is None:
            # The selected station is gone: the one in its place is selected.
            self._choose(shown, self._last_index if self.selected else 0)
            index = self._index(shown) or 0
        self._last_index, self._page = index, max(1, rows)
        # The selected station is visible, and no line is empty while there are stations above.
        self._top = max(0, min(self._top, index, len(shown) - rows), index - rows + 1)
        lines = [heading_line(widths, self.sort_column, self.reverse)]
        seen = shown[self._top:self._top + rows]
        self.visible = [station.mac for station in seen]
        for station in seen:
            base = "selected" if station.mac == self.selected else "left" if station.left is not None else \
                "waiting" if station.record.get("status") != 1 else None
            lines.append(station_line(station, widths, base))
        self._range = (self._top + 1, min(len(shown), self._top + rows), len(shown))
        return lines + [[]] * (rows + 1 - len(lines))

    def _rule(self, width):
        first, last, count = self._range
        words = []
        if self.notice:
            words.append(clean(self.notice))
        if self.filter:
            words.append(f"{count} of {len(self.stations)} with '{clean(self.filter)}'")
        if last - first + 1 < count:
            words.append(f"{first} to {last} of {count}")
        line = clip("".join(f"─ {each} " for each in words), width)
        return [("rule", line + "─" * (width - cells(line)))]

    def _stream(self, rows):
        newest = list(self.stream)[-rows:] if rows > 0 else []
        return [_stream_line(item) for item in newest]

    def _details(self, width, rows):
        station = self.chosen()
        head = [("title", f" {clean(station.mac)}"), (None, f"  {station.text('name')}  "),
                ("said", sparkline(station.signals, min(TREND, max(0, width - 60)))),
                (None, f"  {station.dbm} dBm" if station.dbm is not None else "")]
        count = max(1, width // 40)
        each = width // count
        members = [f" {clean(name):<18}{clean(str(value).strip())}" for name, value in station.record.items()]
        long = -(-len(members) // count)
        room = max(1, rows - 2)
        self._page = room
        self._scroll = max(0, min(self._scroll, long - room))
        lines = [[(None, fit(member, each)) for member in members[row::long]] for row in range(long)]
        return [head, [], *lines[self._scroll:self._scroll + room]]

    def _footer(self):
        station = self.chosen()
        if self.prompt == "kick" and station:
            return [("alert", f" Kick {clean(station.mac)} {station.text('name')}? y/n")]
        if self.prompt == "filter":
            return [("alert", f" Filter: {clean(self._typed)}_  (Enter keeps it, Esc shows all)")]
        if self.prompt == "period":
            return [("alert", f" Log period, 1 to {LONGEST_PERIOD_S} seconds: {self._typed}_  (Enter sets it, Esc does not)")]
        if self.mode == "details":
            return [("footer", " Up Down scroll  d kick  Enter back  ? help  q quit")]
        if self.mode == "help":
            return [("footer", " any key goes back  q quit")]
        return [("footer", f" {KEYS}")]


def _stream_line(item):
    if isinstance(item, Said):
        return [(None, f"{item.at:7.1f} "), (item.style, clean(item.text))]
    style = item.source
    if item.source == "report":
        style = {"log off": "poor", "roamed": "fair", "log on": "good"}.get(KINDS.get(item.values["log_type"]), "report")
    return [(None, f"{item.at:7.1f} "), (style, clean(f"{item.source:<6} {item.line}"))]
