"""The members of every message, as docs/schema/wsmd.schema.json has them."""

import json
import pathlib

SCHEMA = pathlib.Path(__file__).resolve().parents[2] / "docs/schema/wsmd.schema.json"
_MESSAGES = json.loads(SCHEMA.read_text(encoding="utf-8"))["$defs"]


def _of(*messages):
    return {name for message in messages for name in _MESSAGES[message]["properties"]}


# What an expectation of a scenario may name; an event may be anybody's, and have any members.
OF = {"report": _of("report"), "notify": _of("sta notification", "sta period request"), "event": None}
STATION = _of("station")
