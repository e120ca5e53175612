"""The examples in docs/: what the programs print on a running access point.

    PYTHONPATH=lab python3 -m wsmlab.examples [BUILD]      writes them into docs/*.md

In a document an example is a comment that names the command, followed by a fenced block with what it printed. When the
comment says "conversation" the block is one: each line "$ COMMAND" is followed by what the command printed, and a line "..."
stands for lines left out. A comment "members: KIND" is followed by the table of that message of schema/wsmd.schema.json. The tests compare each block with what the programs print now: the keys of JSON, their order and the
types of their values; other text without its numbers.
"""

import json
import pathlib
import re
import shlex
import signal
import sys

from . import Lab, members, network
from .overflow import overflow

DOCS = pathlib.Path(__file__).resolve().parents[2] / "docs"
_EXAMPLE = re.compile(r"<!-- example: (?P<command>.*?) -->\n```[a-z]*\n(?P<text>.*?)```", re.DOTALL)
_MEMBERS = re.compile(r"<!-- members: (?P<kind>.*?) -->\n(?P<table>(?:\|.*\n)*)")
_MAC = "02:60:00:00:00:01"  # one that ./demo has as well, so that the commands can be tried there
_CONVERSATION, _LEFT_OUT = "conversation", "..."
_ADDRESSES = """ubus call wsmd stations '{"fields":["ip","addresses","names"]}'"""
_RECORDING = "/tmp/fault.wsr"


def in_documents():
    """All examples of docs/*.md: (document, command, text)."""
    return [(path, match["command"], match["text"]) for path in sorted(DOCS.glob("*.md"))
            for match in _EXAMPLE.finditer(path.read_text(encoding="utf-8"))]


def member_tables(text):
    """The text of a document with new tables of members."""
    return _MEMBERS.sub(lambda match: f"<!-- members: {match['kind']} -->\n{members.table(match['kind'])}", text)


def produce(lab, examples):
    """The new text of each example, printed in a lab on which nothing runs yet: a list of texts. A documented "..."
    is kept if the lines around it still exist."""
    life = _Life(lab)
    return [_conversation(life, text) if command == _CONVERSATION else life.printed_by(command) for _, command, text in examples]


class _Life:
    """A lab with one station online and a recorded daemon, and the waiting between the commands."""

    def __init__(self, lab):
        self._lab = lab
        self._dhcpmon = None
        lab.start_ubusd()
        lab.start_apsim()
        lab.apsim(f"lease mac={_MAC} ip=192.168.1.20 name=phone")
        # The first line of commands that do not end.
        self._lines = {"ubus subscribe sta # period": self._period_request(),
                       "ubus subscribe dhcpmon.client.notify": self._client_list()}
        lab.start_collector()
        lab.start_daemon(record=_RECORDING)
        lab.wait_for_family()
        self._told = lab.start("ubus subscribe", ["ubus", "subscribe", "wsmd"])
        watch = lab.watch_bus().subscribe()
        lab.apsim(f"assoc mac={_MAC} ifname=ath0 radio=0")
        self._lines["ubus subscribe sta"] = _line("notify", watch.wait_for_notification(mac=_MAC))
        self._lines["ubus listen ip_change"] = _line("ip_change", watch.wait_for_event("ip_change"))
        lab.wait_for_report(mac=_MAC, log_type=3)
        backup = lab.files / "sta_sta.info"
        self._lines[f"cat /tmp/{backup.name}"] = lab.wait(
            lambda: backup.exists() and backup.read_text(), 10, "the station's line in the backup file")
        watch.stop()
        self._lines[_ADDRESSES] = self._addresses()

    def _addresses(self):
        """With an address that the kernel has seen; it is removed before the station associates again."""
        self._lab.run(["ip", "-batch", "-"], stdin=f"""\
link add ath0 type veth peer name client
link set ath0 master {network.BRIDGE} up
neigh add 2001:db8::a lladdr {_MAC} dev {network.BRIDGE} nud permanent
""".encode())
        said = self._lab.wait(lambda: (text := self._lab.run(shlex.split(_ADDRESSES)).stdout).count('"neighbour"') and text,
                              10, "the neighbour's address")
        self._lab.run(["ip", "link", "delete", "ath0"])
        self._lab.run(["ip", "neigh", "flush", "all", "nud", "permanent"])
        return said

    def _online(self):
        return self._lab.bus("call", "wsmd", "station", {"mac": _MAC})["state"] == "online"

    def _told_of(self, kind):
        """The first notification of this kind that the object wsmd has sent."""
        if kind == "roamed":
            self._lab.apsim(f"roam mac={_MAC} ifname=ath1 radio=1")
            self._lab.apsim(f"roam mac={_MAC} ifname=ath0 radio=0")
        if kind == "resync":
            self._lab.daemon.signal(signal.SIGSTOP)
            overflow(self._lab)
            self._lab.daemon.signal(signal.SIGCONT)
        return self._lab.wait(lambda: next((line for line in self._told.text().splitlines(keepends=True)
                                            if line.startswith(f'{{ "{kind}"') and line.endswith("\n")), None),
                              10, f"a notification {kind}")

    def printed_by(self, command):
        if command.startswith("ubus subscribe wsmd # "):
            return self._told_of(command.rsplit(" ", 1)[1])
        if command.startswith("ubus call wsmd station") and command not in self._lines:
            self._lab.wait(self._online, 20, "the station to be online")
        return self._lines[command] if command in self._lines else self._lab.run(shlex.split(command)).stdout

    def _period_request(self):
        """Uses the daemon's function for it, which the daemon itself never calls."""
        asker = self._lab.start("bus-asks", ["bus-asks"])
        self._lab.run(["ubus", "-t", "10", "wait_for", "sta"])
        line = self._first_line("sta")
        asker.wait(10)
        return line

    def _client_list(self):
        """The first subscriber gets a notification at once."""
        monitor = self._lab.start_dhcpmon()
        line = self._first_line("dhcpmon.client.notify")
        monitor.stop()
        return line

    def _first_line(self, name):
        subscriber = self._lab.start("ubus subscribe", ["ubus", "subscribe", name])
        line = self._lab.wait(lambda: subscriber.text() if subscriber.text().endswith("\n") else None, 10,
                              f"a notification of {name}")
        subscriber.stop()
        return line

    def before(self, command):
        if command.startswith("ubus send dhcp_client_update"):
            self._lab.apsim(f"assoc mac={_MAC} ifname=ath0 radio=0")
            self._lab.wait_for_report(mac=_MAC, log_type=3)
        elif command.startswith("ubus call dhcpmon"):
            if not self._dhcpmon:
                self._dhcpmon = self._lab.start_dhcpmon()
        elif command.startswith("wsm-record --show"):
            self._lab.daemon.stop()

    def after(self, command):
        if command.startswith("ubus call sta delete"):
            self._lab.wait_for_report(mac=_MAC, log_type=2)
        elif command.startswith("ubus send dhcp_client_update"):
            self._lab.wait_for_report(mac=_MAC, log_type=1, ip="192.168.1.21")
        elif command.startswith("ubus send dev_mode"):
            self._lab.wait_for_log("Change Mode To AP!")

    def run(self, command):
        self.before(command)
        printed = self._lab.run(["sh", "-c", command]).stdout
        self.after(command)
        return printed


def _conversation(life, text):
    result = ""
    for command, documented in turns(text):
        printed = life.run(command)
        result += f"$ {command}\n{_fitted(documented, printed) or printed}"
    return result


def turns(text):
    """A conversation's commands, each with what is printed: (command, text)."""
    result = []
    for line in text.splitlines(keepends=True):
        if line.startswith("$ "):
            result.append((line[2:].rstrip("\n"), ""))
        else:
            command, printed = result.pop()
            result.append((command, printed + line))
    return result


def _fitted(documented, printed):
    """`printed` without the lines that `documented` leaves out; None if other lines would have to be left out as well."""
    rest = printed.splitlines()
    result, skipping = [], False
    for line in documented.splitlines():
        if line.strip() == _LEFT_OUT:
            result.append(line)
            skipping = True
            continue
        while skipping and rest and shape(rest[0]) != shape(line):
            rest.pop(0)
        if not rest or shape(rest[0]) != shape(line):
            return None
        result.append(rest.pop(0))
        skipping = False
    return "".join(line + "\n" for line in result) if skipping or not rest else None


def _line(name, members):
    return f'{{ "{name}": {json.dumps(members, separators=(",", ":"))} }}\n'


def shape(text):
    """The part that must stay the same: of JSON the keys in order with the types of their values, of other text everything
    but the numbers."""
    try:
        value = json.loads(text)
    except ValueError:
        if text.startswith("$ "):
            return [(command, shape(printed)) for command, printed in turns(text)]
        text = re.sub(r"^ +", "", re.sub(r"@[0-9a-f]{8}", "@ID", text), flags=re.MULTILINE)
        return re.sub(r"-?\b\d+", "N", text)
    return _kinds(value)


def _kinds(value):
    if isinstance(value, dict):
        return [(key, _kinds(member)) for key, member in value.items()]
    if isinstance(value, list):
        return [_kinds(member) for member in value]
    return type(value).__name__


def write(build_dir):
    with Lab(build_dir) as lab:
        produced = iter(produce(lab, in_documents()))
    for path in dict.fromkeys(path for path, _, _ in in_documents()):
        text = _EXAMPLE.sub(lambda match: f"<!-- example: {match['command']} -->\n```\n{next(produced)}```",
                            path.read_text(encoding="utf-8"))
        path.write_text(member_tables(text), encoding="utf-8")


if __name__ == "__main__":
    if len(sys.argv) > 2:
        sys.exit("usage: python3 -m wsmlab.examples [BUILD]")
    write(*(sys.argv[1:] or ["build"]))
