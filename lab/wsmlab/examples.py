"""The examples in docs/: what the programs print, asked of a running access point.

    PYTHONPATH=lab python3 -m wsmlab.examples BUILD      writes them into docs/*.md

In a document an example is a comment that names the command, followed by a fenced block with what it printed. The tests
compare the shape of each block - keys, order and kinds of values - with what the programs print now.
"""

import json
import pathlib
import re
import shlex
import sys

from . import Lab

DOCS = pathlib.Path(__file__).resolve().parents[2] / "docs"
_EXAMPLE = re.compile(r"<!-- example: (?P<command>.*?) -->\n```[a-z]*\n(?P<text>.*?)```", re.DOTALL)
_MAC = "02:00:00:00:00:01"


def in_documents():
    """All examples of docs/*.md: (document, command, text)."""
    return [(path, match["command"], match["text"]) for path in sorted(DOCS.glob("*.md"))
            for match in _EXAMPLE.finditer(path.read_text(encoding="utf-8"))]


def produce(lab, commands):
    """What each of the commands prints on a lab with one station on line: {command: text}."""
    watch = lab.watch_bus().subscribe()
    lab.apsim(f"lease mac={_MAC} ip=192.168.1.20 name=phone")
    lab.apsim(f"assoc mac={_MAC} ifname=ath0 radio=0")
    # The first line of what would run on and on.
    lines = {"ubus subscribe sta": _line("notify", watch.wait_for_notification(mac=_MAC)),
             "ubus listen ip_change": _line("ip_change", watch.wait_for_event("ip_change"))}
    lab.wait_for_report(mac=_MAC, log_type=3)
    return {command: lines[command] if command in lines else lab.run(shlex.split(command)).stdout
            for command in commands}


def _line(name, members):
    return f'{{ "{name}": {json.dumps(members, separators=(",", ":"))} }}\n'


def shape(text):
    """What must not drift: JSON as its keys in order with the kinds of their values, other text with ids left out."""
    try:
        value = json.loads(text)
    except ValueError:
        return re.sub(r"@[0-9a-f]{8}", "@ID", text)
    return _kinds(value)


def _kinds(value):
    if isinstance(value, dict):
        return [(key, _kinds(member)) for key, member in value.items()]
    if isinstance(value, list):
        return [_kinds(member) for member in value]
    return type(value).__name__


def write(build_dir):
    with Lab(build_dir) as lab:
        lab.start_all()
        produced = produce(lab, [command for _, command, _ in in_documents()])
    for path in {path for path, _, _ in in_documents()}:
        text = _EXAMPLE.sub(
            lambda match: f"<!-- example: {match['command']} -->\n```\n{produced[match['command']]}```",
            path.read_text(encoding="utf-8"))
        path.write_text(text, encoding="utf-8")


if __name__ == "__main__":
    write(sys.argv[1])
