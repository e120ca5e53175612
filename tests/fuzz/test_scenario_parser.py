"""Scenario files of any text: the parser reads them or names the line that it cannot read, and nothing else happens."""

import pathlib
import random
import sys

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "lab"))

from wsmlab.scenario import Player, Scenario, ScenarioError  # noqa: E402

FILES = sorted((ROOT / "lab/scenarios").glob("*.scn"))
WORDS = [*Player.ACTIONS, *Player.EXPECTATIONS, "let", "lab", "->", "never", "#", "'", '"', "\\", "$", "$phone", "x3",
         "0s", "+1s", "1m30s", "99999999999999999999s", "9" * 5000 + "s", "9" * 400 + "m1s", "1e9s", "-1s", ".5s", "s", "\u0663s", "mac=", "=",
         "\0", "\r", "\x0b", "\x1c", "\u2028", "\ud800"]


def mutated(text, dice):
    lines = text.splitlines()
    for _ in range(dice.randint(1, 6)):
        at = dice.randrange(len(lines))
        words = lines[at].split(" ")
        word = dice.randrange(len(words))
        match dice.randrange(6):
            case 0: words[word] = dice.choice(WORDS)
            case 1: words.insert(word, dice.choice(WORDS))
            case 2: del words[word]
            case 3: words[word] = words[word][:len(words[word]) // 2] + dice.choice(WORDS)
            case 4: lines.insert(dice.randrange(len(lines)), lines[at])
            case 5: words[word] += chr(dice.randrange(0x300))
        lines[at] = " ".join(words)
    return "\n".join(lines)


@pytest.mark.parametrize("path", FILES, ids=lambda path: path.stem)
def test_a_scenario_of_any_text_is_read_or_refused_with_its_line(path):
    text, dice, ends = path.read_text(encoding="utf-8"), random.Random(path.stem), {"read": 0, "refused": 0}
    for _ in range(1500):
        broken = mutated(text, dice)
        try:
            lines = Scenario.parse(broken, "scenario").lines
        except ScenarioError as error:
            assert str(error).startswith("scenario:"), broken
            ends["refused"] += 1
        else:
            assert all(before.at <= after.at for before, after in zip(lines, lines[1:])), broken
            ends["read"] += 1
    assert min(ends.values()) > 50, ends  # both ways were taken
