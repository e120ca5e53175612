"""wsm on a real bus: what a person at the access point's terminal sees, whatever names stations have."""

import json
import os
import pathlib
import re
import subprocess

import pytest
from wcwidth import wcswidth

from driver import Driver

A, B, C = "02:00:00:00:00:0a", "02:00:00:00:00:0b", "02:00:00:00:00:0c"
MANY = 300
ROOT = pathlib.Path(__file__).resolve().parents[2]

# Runs a program on a terminal as wide as its first argument says, and prints what it has written there.
_ON_A_TERMINAL = """
import fcntl, os, pty, struct, sys, termios
child, terminal = pty.fork()
if child == 0:
    fcntl.ioctl(1, termios.TIOCSWINSZ, struct.pack("4H", 24, int(sys.argv[1]), 0, 0))
    os.execvp(sys.argv[2], sys.argv[2:])
said = b""
try:
    while data := os.read(terminal, 65536):
        said += data
except OSError:
    pass
sys.stdout.buffer.write(said)
sys.exit(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]))
"""


def wsm(lab, *arguments, **options):
    return lab.run(["wsm", *arguments], check=False, **options)


def associate(lab, mac, name="phone", ip="192.168.10.50", radio=0):
    lab.apsim(f"lease mac={mac} ip={ip} name={name}")
    lab.apsim(f"assoc mac={mac} ifname=ath{radio} radio={radio}")


def online(lab, mac):
    def states():
        page = lab.bus("call", "wsmd", "stations", {"fields": ["state"]})
        return {one["mac"]: one["state"] for one in page["stations"]}

    lab.wait(lambda: states().get(mac) == "online", 20, f"{mac} to be online")


@pytest.fixture
def lived(running_lab):
    """One station online, one that has left."""
    associate(running_lab, A)
    associate(running_lab, B, "tv", "192.168.10.51", 1)
    online(running_lab, A)
    online(running_lab, B)
    running_lab.apsim(f"disassoc mac={B} reason=307")
    running_lab.wait(lambda: running_lab.bus("call", "wsmd", "departed")["total"] == 1, 10, "the departure")
    return running_lab


def test_without_a_command_it_says_how_the_daemon_is_and_who_is_there(lived):
    said = wsm(lived)
    assert (said.status, said.stderr) == (0, "")
    lines = said.stdout.splitlines()
    assert re.fullmatch(r"wsmd \d+\.\d+\.\d+, up \d+s: 1 stations, 1 online \(most 2 of \d+\)", lines[0])
    titles = lines[2].split()
    assert titles[:5] == ["STATION", "NAME", "ADDRESS", "NETWORK", "IFACE"] and titles[-1] == "TIME"
    assert lines[3].split()[:5] == [A, "phone", "192.168.10.50", "Lobby", "ath0"]
    assert len(lines) == 4


def test_a_list_has_no_line_beside_its_table(lived):
    lines = wsm(lived, "list").stdout.splitlines()
    assert [line.split()[0] for line in lines] == ["STATION", A]


def test_one_station_is_shown_with_all_that_is_known(lived):
    said = wsm(lived, "show", A.upper().replace(":", "-"))
    assert said.status == 0
    shown = {line[:18].strip(): line[18:] for line in said.stdout.splitlines()}
    assert shown["mac"] == A
    assert shown["signal"].endswith(" dBm")
    assert re.fullmatch(r"192\.168\.10\.50, lease, since \d\d:\d\d:\d\d, seen \d\d:\d\d:\d\d", shown["addresses"])
    assert shown["names"].startswith("phone, lease, ")


def test_who_left_is_listed_with_the_reason(lived):
    lines = wsm(lived, "departed").stdout.splitlines()
    assert len(lines) == 2
    assert B in lines[1] and "station" in lines[1] and "tv" in lines[1]
    assert re.match(r"\d\d:\d\d:\d\d  ", lines[1])


def test_health_is_what_the_daemon_says(lived):
    shown = {line.split()[0]: line for line in wsm(lived, "health").stdout.splitlines()}
    assert {"version", "events", "driver", "reports", "stations", "neighbours", "addresses", "memory", "loop"} <= set(shown)
    assert "received 3" in shown["events"]
    assert all(len(line) <= 80 for line in shown.values())


def test_json_is_what_the_bus_answers_one_text_a_line(lived):
    def answers(*arguments):
        return [json.loads(line) for line in wsm(lived, "--json", *arguments).stdout.splitlines()]

    [station] = answers("list")
    assert station["mac"] == A and station["ip"] == "192.168.10.50"
    assert answers("departed") == lived.bus("call", "wsmd", "departed")["departed"]
    [shown] = answers("show", A)
    assert [one["address"] for one in shown["addresses"]] == ["192.168.10.50"]
    [health] = answers("health")
    assert health["stations"]["known"] == 1
    assert [one["mac"] for one in answers()] == [A]


def test_a_kick_disconnects_and_says_so(lived):
    said = wsm(lived, "kick", A)
    assert (said.status, said.stdout) == (0, f"{A} is disconnected\n")
    assert lived.bus("call", "wsmd", "departed")["departed"][0]["ended_by"] == "kick"
    again = wsm(lived, "kick", A)
    assert (again.status, again.stderr) == (1, f"wsm: no station {A}\n")


def test_a_watcher_is_told_in_words_and_in_json_and_ends_with_the_daemon(running_lab):
    lab = running_lab
    words, texts = lab.start("watch", ["wsm", "watch"]), lab.start("watch", ["wsm", "watch", "--json"])

    def greeted():
        lab.apsim(f"assoc mac={C} ifname=ath0 radio=0")
        lab.apsim(f"disassoc mac={C} reason=307")
        return all(any(C in line for line in one.lines()) for one in (words, texts))

    lab.wait(greeted, 20, "both to have subscribed")
    associate(lab, A)
    online(lab, A)
    lab.apsim(f"roam mac={A} ifname=ath1 radio=1")
    lab.apsim(f"disassoc mac={A} reason=307")
    for kind, detail in (("joined", "ath0 at Lobby"), ("changed", "address 192.168.10.50 (lease)"),
                         ("changed", "name phone (lease)"), ("roamed", "from ath0 to ath1"), ("left", "ended by station")):
        lab.wait(lambda: any(kind in line and A in line and detail in line for line in words.lines()), 10, f"{kind}: {detail}")
    lab.wait(lambda: any('"left"' in line and A in line for line in texts.lines()), 10, "the last one as JSON")
    kinds = [kind for line in texts.lines() for kind, message in json.loads(line).items() if message["mac"] == A]
    assert [kinds[0], kinds[-1]] == ["joined", "left"]
    assert all(len(line) <= 80 for line in words.lines())
    lab.daemon.stop()
    assert (words.wait(), texts.wait()) == (4, 4)
    assert "wsmd has gone" in words.text()


def test_many_stations_are_read_page_by_page(open_lab):
    lab = open_lab(room_for=MANY).start_all()
    for number in range(MANY):
        lab.apsim(f"assoc mac=02:00:00:00:{number // 256:02x}:{number % 256:02x} ifname=ath0 radio=0")
    lab.wait(lambda: lab.bus("call", "wsmd", "stations", {"limit": 1, "fields": ["mac"]})["total"] == MANY, 30, "all of them")
    macs = [line.split()[0] for line in wsm(lab, "list").stdout.splitlines()[1:]]
    assert macs == [f"02:00:00:00:{number // 256:02x}:{number % 256:02x}" for number in range(MANY)]


HOSTILE = [b"\x1b]0;owned\x07\x1b[2J", b"a\nb\rc\td", b"\xff\xfe\x80bad", "\u202etxt.exe".encode(), "e\u0301\u200b\ufeff".encode(),
           "日本語のネットワーク名です".encode()[:32], ("😀" * 8).encode(), "\u009b31m".encode(), b"%s%n%d"]


@pytest.mark.parametrize("ssid", HOSTILE, ids=range(len(HOSTILE)))
def test_whatever_a_network_is_called_the_columns_stay_in_line(running_lab, ssid):
    lab = running_lab
    driver = Driver(lab)
    driver.associate(mac=A, ssid=b"plain")
    driver.associate(mac=B, ssid=ssid)
    lab.wait(lambda: lab.bus("call", "wsmd", "stations", {"limit": 1, "fields": ["mac"]})["total"] == 2, 10, "both stations")
    for arguments in ([], ["list"], ["show", B], ["--json", "list"], ["--json", "show", B]):
        done = wsm(lab, *arguments)
        assert done.status == 0, done
        for character in done.stdout:
            assert character == "\n" or character.isprintable() or character == "\u0301", (arguments, character)
        assert "\ufffd" not in done.stdout, "only UTF-8 is written"
    lines = wsm(lab, "list").stdout.splitlines()
    assert len(lines) == 3
    # The interface is in the same column of every line.
    at = {wcswidth(line[:line.index(word)]) for line, word in zip(lines, ("IFACE", "ath0", "ath0"))}
    assert len(at) == 1, lines
    assert all(wcswidth(line) <= 80 for line in lines)


def test_a_narrow_terminal_gets_fewer_columns_and_a_wide_one_all(lived):
    def shown(width):
        done = lived.run(["/usr/bin/python3", "-c", _ON_A_TERMINAL, str(width), "wsm", "list"])
        lines = done.stdout.splitlines()
        assert all(len(line) <= width for line in lines) and A in lines[1]
        return lines[0].split()

    assert shown(132) == ["STATION", "NAME", "ADDRESS", "NETWORK", "IFACE", "BAND", "DBM", "FROM", "TO", "TIME"]
    narrow = shown(40)
    assert narrow[:2] == ["STATION", "NAME"] and not {"NETWORK", "FROM", "TO"} & set(narrow)


def test_without_a_broker_or_a_daemon_it_says_so(lab):
    none = wsm(lab, "list")
    assert none.status == 3 and none.stderr.startswith("wsm: no broker answers")
    lab.start_ubusd()
    none = wsm(lab, "list")
    assert none.status == 4 and none.stderr.startswith('wsm: the bus has no object "wsmd"')


@pytest.mark.parametrize("arguments", [["nothing"], ["show"], ["show", "02:00"], ["show", "02:00:00:00:00:0g"], ["kick", A, B],
                                       ["departed", "0"], ["departed", "257"], ["departed", "-1"], ["list", "x"], ["--colour"],
                                       ["\x1b[31m"]])
def test_wrong_usage_changes_nothing_and_has_status_2(build_dir, arguments):
    done = subprocess.run([build_dir / "bin/wsm", *arguments], capture_output=True, text=True, timeout=30, check=False)
    assert done.returncode == 2
    assert done.stdout == ""
    assert done.stderr.startswith("wsm: ") and "\x1b" not in done.stderr


def test_help_names_every_command_and_the_manual_has_the_same(build_dir):
    said = subprocess.run([build_dir / "bin/wsm", "--help"], capture_output=True, text=True, check=True, timeout=30).stdout
    commands = re.findall(r"^  (\w+)", said, re.MULTILINE)
    assert commands == ["list", "show", "departed", "watch", "kick", "health"]
    page = (ROOT / "docs/man/wsm.1").read_text(encoding="utf-8")
    completion = (ROOT / "wsm/completion.bash").read_text(encoding="utf-8")
    for command in commands:
        assert re.search(rf"^\.B\w* \"?{command}\b", page, re.MULTILINE), command
        assert re.search(rf"\b{command}\b", completion), command


def test_completion_offers_commands_and_the_stations_that_are_there(lived):
    def offered(*words):
        line = " ".join(f"'{word}'" for word in ("wsm", *words))
        script = (ROOT / "wsm/completion.bash").read_text(encoding="utf-8")
        return lived.run(["bash", "-c", f"{script}\nCOMP_WORDS=({line}) COMP_CWORD={len(words)}\n_wsm\nprintf '%s\\n' \"${{COMPREPLY[@]}}\""]).stdout.split()
    assert offered("s") == ["show"]
    assert offered("show", "") == [A]
    assert offered("kick", "02") == [A]


@pytest.mark.skipif(os.geteuid() != 0, reason="only root can be somebody else")
@pytest.mark.parametrize("arguments", [[], ["list"], ["departed"], ["health"], ["show", A], ["kick", A], ["watch"]])
def test_who_may_not_ask_is_told_so(running_lab, arguments):
    running_lab.apsim(f"assoc mac={A} ifname=ath0 radio=0")
    running_lab.wait_for_report(mac=A, log_type=1)
    stranger = running_lab.run(["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", "wsm", *arguments], check=False)
    assert (stranger.status, stranger.stdout) == (5, "")
    assert stranger.stderr == 'wsm: no right to ask "wsmd": be root, or of a group that the bus\'s rules name\n'
