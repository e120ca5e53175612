"""./demo: an access point with simulated clients, shown live."""

import argparse
import collections
import importlib.util
import math
import os
import pathlib
import signal
import sys
import time

from . import Lab, LabError, running
from .happenings import KINDS, Happenings, ended_with

PAUSE_S = 0.05
STATIONS, MOST_STATIONS = 12, 4096
RADIO_STATIONS, MOST_RADIO_STATIONS = 4, 12
MOST_DAYS = 60
GUESTS = 4  # one in so many is in the guest network
BROKEN_PIPE = 128 + signal.SIGPIPE


def _seconds(word):
    value = float(word)
    if not (math.isfinite(value) and value > 0):
        raise ValueError
    return value


def _days(word):
    value = int(word.removesuffix("d"))
    if not 1 <= value <= MOST_DAYS:
        raise ValueError
    return value


def _stations(word):
    value = int(word)
    if not 0 <= value <= MOST_STATIONS:
        raise ValueError
    return value


def arguments(words):
    parser = argparse.ArgumentParser(prog="./demo", description="Runs the daemon in the lab with simulated clients.")
    _stations.__name__, _seconds.__name__ = f"number from 0 to {MOST_STATIONS}", "number of seconds above 0"
    _days.__name__ = f"number of days from 1 to {MOST_DAYS}"
    parser.add_argument("--version", action="version", version=f"wsmd demo {version()}")
    parser.add_argument("--stations", type=_stations, metavar="N",
                        help=f"clients that come and go ({STATIONS}; with --radio {RADIO_STATIONS}, at most {MOST_RADIO_STATIONS})")
    parser.add_argument("--seconds", type=_seconds, metavar="S", help="end after so long; without it, on Ctrl-C")
    parser.add_argument("--seed", type=int, default=1, metavar="K", help="of the clients' random numbers (%(default)s)")
    what = parser.add_mutually_exclusive_group()
    what.add_argument("--scenario", type=pathlib.Path, metavar="FILE", help="play this scenario instead")
    what.add_argument("--replay", type=pathlib.Path, metavar="FILE", help="play this recording of a daemon instead")
    what.add_argument("--shell", action="store_true", help="a shell in the newest demo that runs")
    what.add_argument("--exec", nargs=argparse.REMAINDER, metavar="COMMAND",
                      help="run this command in the newest demo that runs, like: --exec ubus list")
    what.add_argument("--radio", action="store_true",
                      help="real hostapd and clients on simulated radios, in a virtual machine that is downloaded")
    parser.add_argument("--web", nargs="?", const="127.0.0.1:8080", metavar="ADDRESS:PORT",
                        help="serve the collector's page (%(const)s), to be looked at in a browser")
    parser.add_argument("--history", type=_days, metavar="DAYS", help="with --web: so many days, like 7d, that went before")
    parser.add_argument("--plain", action="store_true", help="plain lines also on a terminal")
    parser.add_argument("--build-dir", default="build", help=argparse.SUPPRESS)
    parser.add_argument("--check", action="store_true", help=argparse.SUPPRESS)  # only look at the options
    options = parser.parse_args(words)
    if options.exec == []:
        parser.error("--exec: which command?")
    if options.history and not options.web:
        parser.error("--history: of which page? It goes with --web")
    if options.radio and options.stations is not None and options.stations > MOST_RADIO_STATIONS:
        parser.error(f"--radio: has at most {MOST_RADIO_STATIONS} clients")
    if options.stations is None:
        options.stations = RADIO_STATIONS if options.radio else STATIONS
    if options.web and (options.radio or options.scenario or options.replay or options.shell or options.exec):
        parser.error("--web: goes with simulated clients only")
    return options


def version():
    """The project's, from its build file."""
    text = (pathlib.Path(__file__).resolve().parents[2] / "CMakeLists.txt").read_text(encoding="utf-8")
    return text.split("project(wsmd VERSION ")[1].split()[0]


def check(options):
    """Raises OSError for a file that cannot be played."""
    for path in (options.scenario, options.replay):
        if path:
            with open(path, "rb"):
                pass


def run_unseen(lab, begin, end, tell):
    """Without a live view, since people look at the page."""
    happenings = Happenings(lab)
    begin()
    while time.monotonic() < end:
        for happening in happenings.take():
            tell(happening)
        time.sleep(PAUSE_S)


def run_plain(lab, begin, end, tell):
    """One line per happening."""
    def print_and_tell(happening):
        print(happening, flush=True)
        tell(happening)
    run_unseen(lab, begin, end, print_and_tell)


def run_live(lab, begin, end, tell):
    """Shows the live view."""
    from .view import View
    from .watcher import Watcher
    with Watcher(lab) as watcher:
        begin()
        View(watcher, end if math.isfinite(end) else None, tell).run()


def wants_view(options):
    """Whether there is a terminal that can show the view. Plain lines need no terminal library."""
    return (not options.plain and sys.stdin.isatty() and sys.stdout.isatty()
            and os.environ.get("TERM", "") not in ("", "dumb", "unknown")
            and importlib.util.find_spec("urwid") is not None)


def lab_for(options):
    if not options.web:
        return Lab(options.build_dir, room_for=options.stations)
    from .web import LabWithPage
    if options.history:
        print(f"making {options.history} days of history", flush=True)
    return LabWithPage(options.build_dir, options.web, options.history or 0, options.stations, room_for=options.stations)


def show(options):
    counts = collections.Counter()

    def count(item):
        if getattr(item, "source", None) == "report":
            counts[KINDS.get(item.values["log_type"], "other")] += 1

    with lab_for(options) as lab, running.announced(lab):
        lab.start_all(dhcpmon=True)
        if options.web:
            print(f"the page: {lab.url} (Ctrl-C ends the demo)", flush=True)
        print(f"access point up, firewall {lab.firewall}, {options.stations} clients, seed {options.seed}", flush=True)
        end = time.monotonic() + options.seconds if options.seconds is not None else math.inf
        run = run_plain if options.plain else run_unseen if options.web else run_live if wants_view(options) else run_plain
        try:
            run(lab, lambda: lab.apsim(f"population n={options.stations} seed={options.seed} guests={GUESTS}"), end, count)
        except KeyboardInterrupt:
            pass
        question = {"get_all_sta_status": "online", "get_sta_count": "all"}  # a list may be too long for the bus
        online = lab.bus("call", "sta", "get", question)["count"]
        status = lab.daemon.stop()
    shown = ", ".join(f"{counts[kind]} {kind}" for kind in KINDS.values())
    print(f"{sum(counts.values())} reports ({shown}); {online} stations at the end; {ended_with(status)}")


def show_scenario(options):
    """On a terminal; the exit status."""
    from .scenario import Scenario
    from .stage import Stage
    from .view import View
    from .watcher import Watcher
    scenario = Scenario.read(options.scenario)
    until = time.monotonic() + options.seconds if options.seconds is not None else None
    with Lab(options.build_dir) as lab, running.announced(lab), Watcher(lab, follow=False) as watcher, \
            Stage(scenario, lab, watcher) as stage:
        View(watcher, until).run()
    print(f"{scenario.title}\n{stage.outcome}")
    return 1 if stage.failed else 0


def interrupt(*_):
    raise KeyboardInterrupt


def run(options):
    """The exit status."""
    check(options)
    if options.check:
        return 0
    if options.shell or options.exec:
        running.enter(options.exec)
    if options.radio:
        from .radio import play
        play(options, wants_view(options))
    end = time.monotonic() + options.seconds if options.seconds is not None else math.inf
    if options.replay:
        from .replay import play_recording
        play_recording(options.replay, options.build_dir, end)
    elif options.scenario and wants_view(options):
        return show_scenario(options)
    elif options.scenario:
        from .scenario import play_file
        return play_file(options.scenario, options.build_dir, end)
    else:
        show(options)
    return 0


def main(words):
    options = arguments(words)
    signal.signal(signal.SIGTERM, interrupt)
    try:
        status = run(options)
        sys.stdout.flush()
        return status
    except BrokenPipeError:
        # The reader has closed the pipe. Unwritten output must not be written again at exit.
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        return BROKEN_PIPE
    except KeyboardInterrupt:
        return 130
    except (LabError, OSError) as error:
        print(f"./demo: {error}", file=sys.stderr)
        return 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
