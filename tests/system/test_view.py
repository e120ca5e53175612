"""The live view of ./demo on a terminal: what it shows, what each key does, and that nothing stays behind."""

import os
import pathlib
import re
import signal
import sys

import pytest

from leftovers import mounts, processes_below, still_running
from terminal import Terminal
from wsmlab.board import HELP

LAB_FOLDER = pathlib.Path(__file__).resolve().parents[2] / "lab"
CTRL_C, CTRL_Z, ESC, ENTER, DOWN, END = "\x03", "\x1a", "\x1b", "\r", "\x1b[B", "\x1b[F"
FIRST, SECOND = "02:60:00:00:00:01", "02:60:00:00:00:02"
COLOUR = re.compile(rb"\x1b\[[0-9;]*\b(3[0-7]|4[0-7]|9[0-7])[;m]")


@pytest.fixture
def show(build_dir, patience, tmp_path):
    """Starts the demo on a terminal, with three clients that have arrived and have names unless options say otherwise."""
    opened = []

    def start(*options, width=80, height=24, arrived=3, **environment):
        argv = [sys.executable, "-m", "wsmlab.demo", "--build-dir", str(build_dir),
                *(options or ("--stations", str(arrived)))]
        variables = {**os.environ, "PYTHONPATH": str(LAB_FOLDER), "TERM": "xterm-256color", "LC_ALL": "C.UTF-8",
                     "TMPDIR": str(tmp_path), "HOME": str(tmp_path), **environment}
        variables.pop("NO_COLOR" if "NO_COLOR" not in environment else "", None)
        terminal = Terminal(argv, variables, width, height, limit=40 * patience)
        opened.append(terminal)
        if arrived:
            terminal.wait_for(f"{arrived} of {arrived} online")
        if not options:
            terminal.wait(lambda: all(re.match(r"\S+ +[^- ]", line) for line in rows(terminal)), "their names, which leases bring")
        return terminal

    yield start
    for terminal in opened:
        terminal.close()


def rows(terminal):
    """The stations' lines in the table, from the top."""
    return [line for line in terminal.lines if re.match("([0-9a-f]{2}:){5}", line)]


def macs(terminal):
    return [line[:17] for line in rows(terminal)]


def test_80_by_24_has_room_for_all_that_matters(show):
    terminal = show()
    header, headings, first = terminal.lines[:3]
    assert re.match(r" 3 of 3 online  period 60 s  \d+\.\d reports/s  bus ok +$", header)
    assert headings.split() == "MAC▲ name IP signal dBm Mb/s time state".split()
    assert re.match(r"02:60:00:00:00:01 ben-phone +10\.60\.0\.\d+ +[█·]{5} +-\d\d +\d+ +\d+ s online *$", first)
    assert "? help  q quit" in terminal.lines[23]
    assert terminal.wait_for("report log on   " + FIRST)
    assert terminal.wait_for("notify log on   " + FIRST)


def test_a_larger_terminal_shows_more(show):
    terminal = show(width=160, height=50)
    assert terminal.lines[1].split() == ("MAC▲ name IP SSID VLAN radio signal dBm trend Mb/s up Mb/s up down time "
                                         "state").split()
    assert re.match(FIRST + r" ben-phone +10\.60\.0\.\d+ +Lobby +11 1 ch36 .* [kM]?B +\d+ s online *$", terminal.lines[2])
    assert len(terminal.lines_with(" report ")) > 2
    assert "q quit" in terminal.lines[49]


def test_the_view_follows_the_terminals_size(show):
    terminal = show()
    terminal.resize(160, 50)
    terminal.wait(lambda: "SSID" in terminal.lines[1] and "q quit" in terminal.lines[49], "the larger page")
    terminal.resize(50, 10)
    terminal.wait(lambda: terminal.lines[1].split() == ["MAC▲", "name", "signal", "dBm"]
                  and "s/S sort" in terminal.lines[9], "the smaller page")
    terminal.press("q")
    assert terminal.wait_for_end() == 0


def test_s_and_S_change_the_order(show):
    terminal = show()
    assert macs(terminal) == [FIRST, SECOND, "02:60:00:00:00:03"]
    terminal.press("S")
    terminal.wait(lambda: macs(terminal) == ["02:60:00:00:00:03", SECOND, FIRST], "the order from below")
    terminal.press("s")
    terminal.wait_for("name▲")
    assert [line.split()[1] for line in terminal.lines[2:5]] == ["ben-phone", "chiara-phone", "dario-phone"]


def test_the_filter_leaves_what_has_the_text(show):
    terminal = show()
    terminal.press("/", "chia")
    terminal.wait_for("Filter: chia_")
    terminal.wait(lambda: macs(terminal) == [SECOND], "one station")
    terminal.press(ENTER)
    terminal.wait_for("1 of 3 with 'chia'")
    terminal.press(ESC)
    terminal.wait(lambda: len(macs(terminal)) == 3, "all stations")


def test_a_paused_view_stands_still_and_goes_on(show):
    terminal = show()
    terminal.press("l", "1", ENTER)
    terminal.wait_for("period 1 s")
    terminal.press("p")
    terminal.wait_for(" PAUSED +")
    before = terminal.lines[1:]
    terminal.wait(lambda: int(re.search(r"PAUSED \+(\d+)", terminal.lines[0])[1]) > 5, "more to wait")
    assert terminal.lines[1:] == before
    terminal.press(" ")
    terminal.wait_gone("PAUSED")
    terminal.wait(lambda: terminal.lines[1:] != before, "the view to go on")


def test_a_kicked_station_leaves_and_its_reports_say_so(show):
    terminal = show()
    terminal.press(DOWN, "d")
    terminal.wait_for(f"Kick {SECOND} chiara-phone? y/n")
    terminal.press("n")
    terminal.wait_gone("y/n")
    terminal.press("d")
    terminal.wait_for("y/n")
    terminal.press("y")
    terminal.wait_for(f"you    delete mac={SECOND} radio=")
    terminal.wait_for(f"report log off  {SECOND}")
    terminal.wait_for(f"notify log off  {SECOND}")
    assert not terminal.lines_with(f"log off  {FIRST}")


def test_the_log_period_is_set_in_the_daemon(show):
    terminal = show()
    terminal.press("+")
    terminal.wait_for("you    set set_update_log_period=120")
    terminal.wait_for("period 120 s")  # as the daemon's log has it
    terminal.press("l", "2", ENTER)
    terminal.wait_for("period 2 s")
    terminal.press("-")
    terminal.wait_for("period 1 s")
    # Three stations, each reported once a second.
    terminal.wait(lambda: float(re.search(r"(\d+\.\d) reports/s", terminal.lines[0])[1]) >= 2, "reports")


def test_details_are_all_that_the_daemon_says(show):
    terminal = show(width=120, height=30)
    terminal.press(ENTER)
    terminal.wait_for("Enter back")
    members = set(re.findall(r"(?:^| )([A-Za-z]\w+)  +", "\n".join(terminal.lines[2:])))
    assert {"ssid", "mac", "ip", "name", "power", "status", "flowup_rate_cnt", "ap_auth_req", "ssid_ifname"} <= members
    terminal.press(ENTER)
    terminal.wait_for("MAC▲")


def test_help_tells_the_keys(show):
    terminal = show()
    terminal.press("?")
    for keys, text in HELP:
        terminal.wait(lambda: any(keys in line and text in line for line in terminal.lines), text)
    terminal.press("?")
    terminal.wait_for("MAC▲")


@pytest.mark.parametrize("way", ["q", CTRL_C, signal.SIGTERM], ids=["q", "ctrl-c", "sigterm"])
def test_however_it_ends_nothing_stays_behind(show, way, tmp_path):
    mounted = mounts()
    terminal = show()
    inside = processes_below(terminal.process.pid)
    assert inside
    if isinstance(way, str):
        terminal.press(way)
    else:
        terminal.process.send_signal(way)
    assert terminal.wait_for_end() == 0
    summary = "".join(terminal.lines)
    assert re.search(r"\d+ reports \(\d+ log on.*\d stations at the end; the daemon ended cleanly", summary)
    assert terminal.modes == terminal.modes_before
    switches = re.findall(rb"\x1b\[\?(?:47|1049)[hl]", terminal.raw)  # releases of the library have one or the other
    assert switches[0][-1:] == b"h" and switches[-1][-1:] == b"l"  # back on the ordinary page
    assert not terminal.screen.cursor.hidden
    assert not still_running(inside)
    assert mounts() <= mounted
    assert not list(tmp_path.iterdir())


def test_it_ends_by_itself_when_its_time_is_over(show):
    # This does not wait for stations: whether three are online at once within seconds depends on when they roam.
    terminal = show("--stations", "0", "--seconds", "5", arrived=0)
    terminal.wait(lambda: re.search(r"bus ok  \d s left", terminal.lines[0]), "the time that is left")
    assert terminal.wait_for_end() == 0


def test_a_stopped_view_leaves_the_terminal_and_takes_it_again(show):
    terminal = show()
    terminal.press(CTRL_Z)
    terminal.wait(lambda: pathlib.Path(f"/proc/{terminal.process.pid}/stat").read_text().rsplit(")")[1].split()[0] == "T",
                  "the process to stop")
    assert terminal.modes == terminal.modes_before
    terminal.screen.reset()
    os.killpg(terminal.process.pid, signal.SIGCONT)
    terminal.wait_for("3 of 3 online")
    terminal.press("q")
    assert terminal.wait_for_end() == 0


def test_colours_are_used_where_the_terminal_has_them(show):
    terminal = show()
    assert terminal.style_of("q quit").fg != "default"
    assert terminal.style_of(FIRST).bg != "default"  # the chosen one
    assert COLOUR.search(bytes(terminal.raw))


@pytest.mark.parametrize("variables", [{"NO_COLOR": "1"}, {"TERM": "vt100"}])
def test_without_colours_the_chosen_station_is_reversed(show, variables):
    terminal = show(**variables)
    assert not COLOUR.search(bytes(terminal.raw))
    assert terminal.style_of(FIRST).reverse
    assert not terminal.style_of(SECOND).reverse


def test_a_terminal_that_knows_ascii_alone_gets_nothing_else(show):
    terminal = show(LC_ALL="POSIX", PYTHONUTF8="0", PYTHONCOERCECLOCALE="0")
    line = terminal.lines[3]
    assert re.match(SECOND + r" \S+ +10\.60\.0\.\d+ +#*\.* +-\d\d ", line)
    assert terminal.raw.isascii()


@pytest.mark.parametrize("variables", [{"TERM": "dumb"}, {"TERM": ""}])
def test_a_terminal_that_can_do_nothing_gets_lines(show, variables):
    terminal = show("--stations", "3", "--seconds", "3", arrived=0, **variables)
    assert terminal.wait_for_end() == 0
    assert b"s  report  log on " in terminal.raw
    assert b"\x1b" not in terminal.raw


def test_plain_asks_for_lines(show):
    terminal = show("--stations", "3", "--seconds", "3", "--plain", arrived=0)
    assert terminal.wait_for_end() == 0
    assert b"s  report  log on " in terminal.raw
    assert b"\x1b" not in terminal.raw


def test_a_scenario_is_played_in_the_view_and_its_outcome_told(show, tmp_path):
    (tmp_path / "short.scn").write_text("# Short\n0s driver assoc mac=02:00:00:00:00:01\n1s -> report log_type=1\n"
                                        "2s -> report log_type=7\n")
    terminal = show("--scenario", str(tmp_path / "short.scn"), arrived=0)
    terminal.wait_for("do     driver assoc mac=02:00:00:00:00:01")
    terminal.wait_for("ok     -> report log_type=1")
    terminal.wait_for("FAILED short.scn:4: ")
    terminal.press("q")
    assert terminal.wait_for_end() == 1


def test_quitting_ends_a_scenario_early(show, tmp_path):
    (tmp_path / "long.scn").write_text("# Long\n0s driver assoc mac=02:00:00:00:00:01\n9m nothing\n")
    terminal = show("--scenario", str(tmp_path / "long.scn"), arrived=1)
    terminal.press("q")
    assert terminal.wait_for_end() == 0
    assert terminal.lines_with("stopped before its end")


def test_a_daemon_that_is_silent_keeps_no_key_waiting(show, tmp_path):
    (tmp_path / "silent.scn").write_text("# Silent\n0s driver assoc mac=02:00:00:00:00:01\n"
                                         "6s run kill -STOP $(pidof wsmd)\n16s run kill -CONT $(pidof wsmd)\n9m nothing\n")
    terminal = show("--scenario", str(tmp_path / "silent.scn"), arrived=1)
    terminal.wait_for("bus silent")
    assert "kill -CONT" not in "".join(terminal.lines)
    terminal.press("?")
    terminal.wait_for("choose a station")
    terminal.press("x", "/", "nobody")
    terminal.wait_for("Filter: nobody_")
    terminal.press(ESC)
    terminal.wait_for("bus ok")
    terminal.press("q")
    assert terminal.wait_for_end() == 0


def test_foreign_texts_break_neither_screen_nor_columns(show, tmp_path):
    (tmp_path / "foreign.scn").write_text(
        "# Foreign\n"
        r"""0s driver assoc mac=02:00:00:00:00:01 'ssid=\x1b[2J\x1b]0;title\x07Caf\xc3\xa9 1'""" "\n"
        r"""0s driver assoc mac=02:00:00:00:00:02 'ssid=\xe6\x97\xa5\xe6\x9c\xac\xe2\x9a\xa1\xf0\x9f\x93\xb6e\xcc\xb6 2'""" "\n"
        r"""0s driver assoc mac=02:00:00:00:00:03 'ssid=\xff\xfe\xe2\x80\xae\x9b31m 3'""" "\n"
        "0s driver lease mac=02:00:00:00:00:01 ip=192.168.1.20 name=日本日本日本日本日本日本\n"
        "9m nothing\n")
    terminal = show("--scenario", str(tmp_path / "foreign.scn"), arrived=3, width=160)
    terminal.wait(lambda: "日本" in terminal.lines[2], "the name")
    for text in (b"\x1b[2J\x1b]", b"\x07", b"\x9b31m"):
        assert text not in terminal.raw
    assert "日本⚡📶" in terminal.lines[3]
    # The texts of these columns begin at the same cells as their headings.
    headings = terminal.lines[1]
    for row in (2, 3, 4):
        cells = terminal.screen.buffer[row]
        for heading, wanted in (("IP", "01 "), ("VLAN", " "), ("radio", "0"), ("state", "ow")):
            at = headings.index(heading)
            assert cells[at].data in wanted, (row, heading, terminal.lines[row])
            assert cells[at - 1].data == " ", (row, heading, terminal.lines[row])
