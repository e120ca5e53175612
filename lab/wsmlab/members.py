"""The members of every message, from docs/schema/wsmd.schema.json."""

import json
import pathlib

SCHEMA = pathlib.Path(__file__).resolve().parents[2] / "docs/schema/wsmd.schema.json"
_MESSAGES = json.loads(SCHEMA.read_text(encoding="utf-8"))["$defs"]


def _of(*messages):
    return {name for message in messages for name in _MESSAGES[message]["properties"]}


# The members that an expectation of a scenario may name; an event may come from any program and have any members.
OF = {"report": _of("report"), "notify": _of("sta notification", "sta period request"), "event": None}
STATION = _of("station")


def table(message):
    """The members of a message as rows of a document's table, in its order."""
    rows = ["| member | type | meaning |", "|---|---|---|"]
    for name, member in _MESSAGES[message]["properties"].items():
        if "$ref" in member:
            member = _MESSAGES["members"][member["$ref"].rsplit("/", 1)[1]]
        kind = {"integer": "number", "number": "number", "boolean": "yes or no", "object": "table", "array": "list"}.get(member.get("type"), "text")
        rows.append(f"| `{name}` | {kind} | {member['description'].replace('|', chr(92) + '|')} |")
    return "\n".join(rows) + "\n"
