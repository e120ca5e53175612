"""The members of every message, from docs/schema/wsmd.schema.json."""

import json
import pathlib

SCHEMA = pathlib.Path(__file__).resolve().parents[2] / "docs/schema/wsmd.schema.json"
_MESSAGES = json.loads(SCHEMA.read_text(encoding="utf-8"))["$defs"]


def _properties(message):
    """Of any kind of the message."""
    return set(message.get("properties", ())).union(*map(_properties, message.get("anyOf", ())))


def _of(*messages):
    return set().union(*(_properties(_MESSAGES[message]) for message in messages))


# The members that an expectation of a scenario may name; an event may come from any program and have any members.
OF = {"report": _of("report"), "notify": _of("sta notification", "sta period request"), "event": None}
STATION = _of("station")


def of_answer(object_name, method):
    """The members of a call's answer; None if it is not a call that the schema describes."""
    call = f"{object_name} {method}"
    if call == "wsmd station":
        return _of(call, "wsmd refusal")
    answer = f"{call} answer"
    return _of(answer) if answer in _MESSAGES else None


def table(message):
    """The members of a message as rows of a document's table, in its order."""
    rows = ["| member | type | meaning |", "|---|---|---|"]
    for name, member in _MESSAGES[message]["properties"].items():
        if "$ref" in member:
            member = _MESSAGES["members"][member["$ref"].rsplit("/", 1)[1]]
        kind = {"integer": "number", "number": "number", "boolean": "yes or no", "object": "table", "array": "list"}.get(member.get("type"), "text")
        rows.append(f"| `{name}` | {kind} | {member['description'].replace('|', chr(92) + '|')} |")
    return "\n".join(rows) + "\n"
