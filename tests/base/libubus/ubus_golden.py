"""Recorded conversations: reading them, and comparing with them in spite of ids that differ from run to run."""

import json
import pathlib

FOLDER = pathlib.Path(__file__).resolve().parents[2] / "golden" / "ubus"
NAMES = sorted(path.stem for path in FOLDER.glob("*.jsonl"))

RANDOM = ("peer", "objid", "typeid")  # kinds of values that differ from run to run; all others must be the same


class Line:
    """One line of a recording."""

    def __init__(self, text):
        line = json.loads(text)
        self.n = line["n"]
        self.conn = line["conn"]
        self.from_client = line["dir"] == "c>s"
        self.event = line["decoded"].get("event")
        self.type = line["decoded"].get("type")
        if "hex_rle" in line:
            self.data = b"".join(bytes.fromhex(h) * count for h, count in line["hex_rle"])
        else:
            self.data = bytes.fromhex(line["hex"])
        self.ids = [(v["sym"], slice(v["off"], v["off"] + v["len"]))
                    for v in line["decoded"].get("volatile", []) if v["kind"] in RANDOM and v["sym"][:3] != "SYS"]

    def __repr__(self):
        return f"line {self.n}, connection {self.conn}, {'to' if self.from_client else 'from'} the broker"


def read(name):
    return [Line(text) for text in (FOLDER / f"{name}.jsonl").read_text(encoding="utf-8").splitlines()]


class Ids:
    """Maps the names of the recording to the ids of this run."""

    def __init__(self):
        self.value = {}

    def translate(self, line):
        """The recorded message with the ids of this run."""
        data = bytearray(line.data)
        for name, where in line.ids:
            data[where] = self.value[name]
        return bytes(data)

    def compare(self, line, got):
        """Checks that `got` is the recorded message except for its ids, and that these stand for the recorded things."""
        assert len(got) == len(line.data), line
        for name, where in line.ids:
            known = self.value.setdefault(name, got[where])
            assert got[where] == known, f"{line}: {name} is {known.hex()} elsewhere, {got[where].hex()} here"
        assert got == self.translate(line), line
        assert len(set(self.value.values())) == len(self.value), "two things have one id"
