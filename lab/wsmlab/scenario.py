"""Scenarios: actions on an access point and their expected results, one line each. docs/lab.md describes the format.

    scenario = Scenario.read("lab/scenarios/roam.scn")
    scenario.play(lab)          # raises Failed with file, line and what was missing
"""

import fnmatch
import json
import pathlib
import re
import shlex
import time

from . import members
from .clock import Clock
from .happenings import Happenings
from .lab import Lab
from .space import LabError, Timeout
from .station_actions import VERBS, SimulatedStations

SCENARIOS = pathlib.Path(__file__).resolve().parents[1] / "scenarios"
EXPECTATION = "->"
NEVER = "never"
NO_OTHER = ["no", "other"]
AS_EXPECTED = "as expected"
STOPPED = "stopped before its end"
TAKES_PROGRAM = ("start", "stop", "kill", "runs", "ended")
PROGRAMS = {"daemon": "wsmd", "collector": "wsm-collector", "broker": "ubusd", "driver": "apsim", "dhcpmon": "dhcpmon"}
# 5s, 1m30s, +2s
TIME = re.compile(r"(\+?)(?:(\d{1,6})m)?(?:(\d{1,6}(?:\.\d{1,6})?)s)?")
# A comparison of one member: mac=02:*, channel>5, oltime<60
COMPARISON = re.compile(r"([A-Za-z_]\w*)(=|<|>)(.*)", re.DOTALL)


class ScenarioError(LabError):
    """A line that cannot be understood."""


class Failed(LabError):
    """An expectation that was not met in its time."""


class Stopped(Exception):
    """The caller has asked to stop."""


class Line:
    """One line: its time, and the words of an action or, with `expects`, of an expectation for that time. `done`: when it
    was done or met, in seconds like `at`; None before."""

    def __init__(self, place, at, expects, words):
        self.place, self.at, self.expects, self.words = place, at, expects, words
        self.done = None

    @property
    def waits(self):
        """Whether an expectation is checked only at its time: that something has not happened."""
        return self.words[0] == NEVER or self.words[:2] == NO_OTHER

    def __str__(self):
        at = self.at if self.done is None else self.done
        return f"{at:6.1f} s  {EXPECTATION + ' ' if self.expects else '   '}{shlex.join(self.words)}"


class Scenario:
    def __init__(self, title, options, lines):
        self.title, self.options, self.lines = title, options, lines

    @classmethod
    def read(cls, path):
        path = pathlib.Path(path)
        try:
            return cls.parse(path.read_text(encoding="utf-8"), path.name)
        except UnicodeDecodeError as error:
            raise ScenarioError(f"{path.name}: {error}") from error

    @classmethod
    def parse(cls, text, name="scenario"):
        title, options, lines, names, now = "", {}, [], {}, 0.0
        for number, line in enumerate(text.splitlines(), 1):
            place = f"{name}:{number}"
            if line.lstrip().startswith("#"):
                title = title or line.lstrip("# ").strip()
                continue
            try:
                words = shlex.split(line, comments=True)
                words = [re.sub(r"\$(\w+)", lambda match: names[match[1]], word) for word in words]
            except ValueError as error:
                raise ScenarioError(f"{place}: {error}") from error
            except KeyError as error:
                raise ScenarioError(f"{place}: no name {error} was given with let") from error
            if not words:
                continue
            if words[0] == "let" and len(words) == 3:
                names[words[1]] = words[2]
            elif words[:2] == ["lab", "stations"]:
                options["stations"] = words[2:]
                names.update((name, f"${name}") for name in (*words[2:], "network0", "network1"))  # known when it is played
            elif words[0] == "lab" and len(words) >= 2:
                options[words[1]] = words[2:]
            else:
                now = _time(words[0], now, place)
                expects = words[1:2] == [EXPECTATION]
                rest = words[2 if expects else 1:]
                verbs, verb = (Player.EXPECTATIONS if expects else Player.ACTIONS), rest
                if expects and rest[:1] == [NEVER]:
                    verb = rest[1:]
                elif expects and rest[:2] == NO_OTHER:
                    verbs, verb = members.OF, rest[2:]
                if not verb or verb[0] not in verbs:
                    raise ScenarioError(f"{place}: expected one of {', '.join(verbs)}, "
                                        f"not {' '.join(rest) or 'nothing'}")
                if verb[0] in TAKES_PROGRAM:
                    _check_program(verb[1:], place)
                if expects:
                    _check_names(verb, place)
                elif verb[0] == "station":
                    _check_station(verb[1:], options.get("stations", ()), place)
                lines.append(Line(place, now, expects, rest))
        unknown = set(options) - {"clock", "dhcpmon", "driver", "stations"}
        if unknown:
            raise ScenarioError(f"{name}: unknown option of the lab: {', '.join(unknown)}")
        return cls(title or name, options, lines)

    @property
    def is_for_any_driver(self):
        """Whether it speaks of stations and of nothing that only the simulator's access point has."""
        def only_simulated(words):
            return words[0] in ("driver", "clock") or (words[0] in ("start", "stop", "kill") and words[1:] != ["daemon"])
        return set(self.options) == {"stations"} and not any(only_simulated(line.words) for line in self.lines if not line.expects)

    def play_on(self, lab, stations):
        """Plays in a lab where everything runs already, with stations of its kind."""
        player = Player(lab, stations=stations)
        player.happenings.take()  # what came before is of others
        try:
            player.play(self.lines)
        finally:
            player.happenings.stop()

    def play(self, lab, tell=lambda happening: None, stop=lambda: False):
        """Starts everything in `lab`, which is open, and plays. `tell` is called with each line when it is done or
        met, and with each happening in between; Stopped soon after `stop` gives true."""
        lab.start_ubusd()
        lab.start_apsim(*self.options.get("driver", []))
        lab.start_collector()
        if "dhcpmon" in self.options:
            lab.start_dhcpmon()
        clock = Clock(lab) if "clock" in self.options else None
        lab.start_daemon(environment=clock.environment if clock else None)
        lab.wait_for_family()
        stations = SimulatedStations(lab, self.options.get("stations", []))
        Player(lab, tell, stop, clock, stations).play(self.lines)


def _time(word, now, place):
    """Seconds since the beginning: 5s, 1m30s, or +2s after the line before."""
    match = TIME.fullmatch(word)
    if not match or not (match[2] or match[3]):
        raise ScenarioError(f"{place}: a time like 5s, 1m30s or +2s is missing, not {word!r}")
    seconds = 60 * int(match[2] or 0) + float(match[3] or 0)
    if match[1]:
        return now + seconds
    if seconds < now:
        raise ScenarioError(f"{place}: {word} is before the line above it")
    return seconds


def _comparisons(words):
    compared = []
    for word in words:
        match = COMPARISON.fullmatch(word)
        if not match:
            raise ScenarioError(f"{word!r} is no comparison like name=value")
        compared.append(match.groups())
    return compared


def _members_of(words):
    """What an expectation compares, its comparisons, and the members that can be compared; None: any."""
    if words[0] == "bus" and "gives" in words:
        question, answer = words[1:words.index("gives")], words[words.index("gives") + 1:]
        return " ".join(question[:2]), answer, members.of_answer(*question[:2]) if len(question) > 1 else None
    known = {"stations": members.STATION, "ended": {"status"}, "file": {"lines", "size"}, **members.OF}.get(words[0])
    return words[0], words[1:] if words[2:3] != ["has"] else [], known


def _check_names(words, place):
    """Refuses a member that such a message never has: an expectation would always fail, and a `never` always hold."""
    what, compared, known = _members_of(words)
    for match in map(COMPARISON.fullmatch, compared):
        if known is not None and match and match[1] not in known:
            raise ScenarioError(f"{place}: {what} has no member {match[1]!r}; it has {', '.join(sorted(known))}")


def _check_program(words, place):
    if not words or words[0] not in PROGRAMS:
        raise ScenarioError(f"{place}: which program? One of {', '.join(PROGRAMS)}")


def _check_station(words, known, place):
    """station VERB NAME, and the network 0 or 1 where one goes somewhere."""
    takes_network = VERBS.get(words[0]) if words else None
    if takes_network is None:
        raise ScenarioError(f"{place}: expected station and one of {', '.join(VERBS)}")
    if len(words) != (3 if takes_network else 2) or (takes_network and words[2] not in ("0", "1")):
        raise ScenarioError(f"{place}: station {words[0]} NAME{' 0 or 1, the network' if takes_network else ''}")
    if words[1] not in known:
        raise ScenarioError(f"{place}: a line `lab stations {words[1]}` is missing")


def matches(values, compared):
    """Whether the members compare; a text may hold * and ?."""
    for name, relation, wanted in compared:
        if name not in values:
            return False
        value = values[name]
        if relation == "=":
            text = value if isinstance(value, str) else json.dumps(value)
            if not fnmatch.fnmatchcase(text, wanted):
                return False
        elif not (float(value) < float(wanted) if relation == "<" else float(value) > float(wanted)):
            return False
    return True


def _shown(values, names=()):
    """Members as text for people: the named ones that exist, or all."""
    named = {name: values[name] for name in names if name in values} or values
    return " ".join(f"{name}={value}" for name, value in named.items())


def _members(words):
    """name=value words as a message: whole numbers are numbers."""
    return {name: int(value) if re.fullmatch(r"-?\d+", value) else value for name, _, value in _comparisons(words)}


def _count(words):
    """A leading x3 asks for three; returns the number and the other words."""
    if words and re.fullmatch(r"x\d+", words[0]):
        return int(words[0][1:]), words[1:]
    return 1, words


class Player:
    """`tell`: called with each line done and each happening; `stop`: see Scenario.play(); `clock`: the daemon's, when it
    can be moved; `stations`: of the lab's kind."""

    def __init__(self, lab, tell=lambda happening: None, stop=lambda: False, clock=None, stations=None):
        self.lab, self.tell, self.stop, self.clock, self.stations = lab, tell, stop, clock, stations
        self.happenings = Happenings(lab)
        self.came = {"report": [], "notify": [], "event": []}
        self.used = {source: set() for source in self.came}  # indexes that an expectation has taken
        self.last = {}                                        # source and station -> last index taken
        self.seen = []                                        # members that the last expectation compared

    def play(self, lines):
        start = time.monotonic()
        for line in lines:
            line.words = [self._filled_in(word) for word in line.words]
            due = start + line.at
            try:
                if not line.expects or line.waits:
                    self._let_pass(due)
                if line.expects:
                    self._expect(line, due)
                else:
                    self.ACTIONS[line.words[0]](self, line.words[1:])
                    if line.words[0] == "station":  # takes on radios what it takes; the times go on from its end
                        start += max(time.monotonic() - due, 0)
            except (ScenarioError, Failed):
                raise
            except LabError as error:
                raise Failed(f"{line.place}: {line}: {error}") from error
            line.done = time.monotonic() - start
            self.tell(line)

    def _filled_in(self, word):
        """With the addresses of stations and the names of networks, which are the lab's."""
        def known(match):
            return self.stations.network(int(match[1][-1])) if match[1] in ("network0", "network1") else self.stations.mac(match[1])
        return re.sub(r"\$(\w+)", known, word) if self.stations else word

    def _look(self):
        if self.stop():
            raise Stopped
        for happening in self.happenings.take():
            self.came[happening.source].append(happening.values)
            self.tell(happening)

    def _let_pass(self, due):
        while True:
            self._look()
            left = due - time.monotonic()
            if left <= 0:
                return
            time.sleep(min(left, 0.05))

    def _expect(self, line, due):
        if line.words[0] == NEVER:
            if self.EXPECTATIONS[line.words[1]](self, line.words[2:]):
                raise Failed(f"{line.place}: {line}: it did")
            return
        if line.words[:2] == NO_OTHER:
            if others := self._others(line.words[2], _comparisons(line.words[3:])):
                raise Failed(f"{line.place}: {line}: {len(others)} came\n" +
                             "\n".join(f"  came: {_shown(values)}" for values in others[:5]))
            return

        def met():
            self._look()
            return self.EXPECTATIONS[line.words[0]](self, line.words[1:])
        # A slow machine gets more time: being late is not an error by itself.
        left = max(due - time.monotonic(), 1.0)
        try:
            self.lab.wait(met, left, str(line))
        except Timeout as error:
            raise Failed(f"{line.place}: {line}: not met\n{self._recent(line)}") from error

    def _others(self, source, compared):
        """Happenings of this kind that match and that no line has expected."""
        return [self._values(source, values) for index, values in enumerate(self.came[source])
                if index not in self.used[source] and matches(self._values(source, values), compared)]

    @staticmethod
    def _values(source, came):
        return {"event": came[0], **came[1]} if source == "event" else came

    def _recent(self, line):
        """The compared members of the last happening."""
        source = line.words[0]
        names = [match[1] for match in map(COMPARISON.fullmatch, line.words) if match]
        if source in self.came:
            came = [self._values(source, values) for values in self.came[source][-5:]]
        else:
            came = self.seen[:5]  # the first one is what the others sum up to
        shown = [_shown(values, names) for values in came]
        return "\n".join(f"  came: {one}" for one in shown) or "  came: nothing"

    # --- what can be done ---

    def _driver(self, words):
        # Restores quotes that the line's reader has removed, where the driver needs them.
        self.lab.apsim(" ".join(re.sub(r"^(\w+)=(.*\s.*|)$", r'\1="\2"', word, flags=re.DOTALL) for word in words))

    def _station(self, words):
        verb, name, *network = words
        getattr(self.stations, verb)(name, *map(int, network))

    def _clock(self, words):
        match = TIME.fullmatch(words[0]) if len(words) == 1 else None
        if not match or not match[1]:
            raise ScenarioError("clock: how far? Like +5m")
        if not self.clock:
            raise ScenarioError("clock: the scenario needs a line `lab clock`")
        self.clock.skip(int(1000 * (60 * int(match[2] or 0) + float(match[3] or 0))))
        self.lab.wait(lambda: self.clock.idle, 60, "the daemon to live through that time")

    def _bus(self, words):
        if words[0] == "send":
            self.lab.bus("send", words[1], _members(words[2:]))
        else:
            self.lab.bus("call", words[0], words[1], _members(words[2:]))

    def _run(self, words):
        self.lab.run(["sh", "-c", " ".join(words)])

    def _process(self, words):
        if process := self.lab.process(PROGRAMS[words[0]]):
            return process
        raise LabError(f"{words[0]} has not been started")

    def _start(self, words):
        def daemon():
            if self.clock:
                self.clock.hold()
            self.lab.start_daemon(environment=self.clock.environment if self.clock else None)
        self._look()
        if words[0] == "daemon":
            daemon(*words[1:])
        else:
            getattr(self.lab, f"start_{PROGRAMS[words[0]].removeprefix('wsm-')}")(*words[1:])
        self.happenings.restarted(words[0])

    def _stop(self, words):
        self._process(words).stop()

    def _kill(self, words):
        self._process(words).kill()

    ACTIONS = {"station": _station, "driver": _driver, "bus": _bus, "run": _run, "start": _start, "stop": _stop, "kill": _kill,
               "clock": _clock, "nothing": lambda self, words: None}

    # --- what can be expected ---

    def _came(self, source, words):
        """Takes `count` happenings that no expectation has taken yet; those of one station are taken in their order."""
        count, words = _count(words)
        compared = _comparisons(words)
        station = (source, dict((name, wanted) for name, relation, wanted in compared if relation == "=").get("mac"))
        first = self.last.get(station, -1) + 1 if station[1] else 0
        found = [index for index, values in enumerate(self.came[source])
                 if index >= first and index not in self.used[source] and matches(self._values(source, values), compared)][:count]
        if len(found) < count:
            return False
        self.used[source].update(found)
        self.last[station] = found[-1]
        return True

    def _report(self, words):
        return self._came("report", words)

    def _notify(self, words):
        return self._came("notify", words)

    def _event(self, words):
        return self._came("event", ["event=" + words[0], *words[1:]])

    def _bus_gives(self, words):
        question, answer = words[:words.index("gives")], words[words.index("gives") + 1:]
        reply = self.lab.bus("call", question[0], question[1], _members(question[2:]))
        self.seen = [reply or {}]
        return matches(reply or {}, _comparisons(answer))

    def _stations(self, words):
        listed = self.lab.online().values()
        self.seen = [{"stations": len(listed)}, *listed]
        compared = _comparisons(words[1:])
        return len(listed) == int(words[0]) and all(matches(station, compared) for station in listed)

    def _agree(self, _):
        return {station["mac"] for station in self.lab.stations()} == set(self.lab.online())

    def _figures(self, _):
        """The driver goes on counting: the daemon's numbers are between those before and after."""
        def counted(mac):
            return next(((one["rx_bytes"], one["tx_bytes"]) for one in self.lab.stations() if one["mac"] == mac), None)
        self.seen = []
        before = {mac: counted(mac) for mac in self.lab.online()}
        self.lab.bus("call", "sta", "set", {"set_update_log_period": 60})  # has the daemon ask the driver
        for mac, one in self.lab.online().items():
            low, told, high = before.get(mac), (one["wifi_up_cnt"], one["wifi_down_cnt"]), counted(mac)
            self.seen.append({"mac": mac, "driver": low, "daemon": told, "afterwards": high})
            if not low or not high or not all(0 < a <= b <= c for a, b, c in zip(low, told, high)):
                return False
        return bool(before)

    def _log(self, words):
        count, words = _count(words)
        return self.lab.logged(" ".join(words)) >= count

    def _file(self, words):
        path = self.lab.root / words[0].lstrip("/")
        if words[1:] == ["gone"]:
            return not path.exists()
        if not path.exists():
            return False
        text = path.read_text(errors="replace")
        if words[1] == "has":
            return " ".join(words[2:]) in text
        self.seen = [{"lines": text.count("\n"), "size": len(text)}]
        return matches(self.seen[0], _comparisons(words[1:]))

    def _runs(self, words):
        return self._process(words).running

    def _ended(self, words):
        process = self._process(words)
        self.seen = [{"status": process.status}]
        return not process.running and matches(self.seen[0], _comparisons(words[1:]))

    EXPECTATIONS = {"report": _report, "notify": _notify, "event": _event, "bus": _bus_gives, "stations": _stations,
                    "agree": _agree, "figures": _figures, "log": _log, "file": _file, "runs": _runs, "ended": _ended}


def for_any_driver():
    """The lab's scenarios that are played on radios, too."""
    return [path for path in sorted(SCENARIOS.glob("*.scn")) if Scenario.read(path).is_for_any_driver]


def play_file(path, build_dir, end):
    """For ./demo: plays one file until it is over, or the time `end` is reached, and prints what happens; the exit status."""
    scenario = Scenario.read(path)
    print(scenario.title, flush=True)
    with Lab(build_dir) as lab:
        try:
            scenario.play(lab, tell=lambda happening: print(
                f"  {'ok' if happening.expects else 'do'} {happening}" if isinstance(happening, Line)
                else f"     {happening}", flush=True), stop=lambda: time.monotonic() >= end)
        except Failed as failure:
            print(f"FAILED {failure}", flush=True)
            return 1
        except Stopped:
            print(STOPPED, flush=True)
            return 0
    print(AS_EXPECTED, flush=True)
    return 0
