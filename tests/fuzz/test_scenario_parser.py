"""Scenario files of any text: the parser reads them or names the line that it cannot read, and nothing else happens.

The seeds in corpus/scenario_parser/, among them each text that once made it fail, are read and then changed at random, for
WSMD_FUZZ_SECONDS over all files; without that, each is changed 1500 times."""

import itertools
import os
import pathlib
import random
import sys
import time

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "lab"))

from wsmlab.scenario import Player, Scenario, ScenarioError  # noqa: E402

FILES = sorted((ROOT / "lab/scenarios").glob("*.scn"))
SEEDS = sorted((ROOT / "tests/fuzz/corpus/scenario_parser").iterdir())
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


def rounds():
    """One after the other, as many as a file gets."""
    seconds = os.environ.get("WSMD_FUZZ_SECONDS")
    if seconds is None:
        yield from range(1500)
        return
    end = time.monotonic() + float(seconds) / len(FILES + SEEDS)
    yield from itertools.takewhile(lambda _: time.monotonic() < end, itertools.count())


def is_read(name, parse):
    """False when it is refused, and then with its name in front."""
    try:
        lines = parse().lines
    except ScenarioError as error:
        assert str(error).startswith(f"{name}:")
        return False
    assert all(before.at <= after.at for before, after in zip(lines, lines[1:]))
    return True


@pytest.mark.parametrize("path", FILES + SEEDS, ids=lambda path: path.stem)
def test_a_scenario_of_any_text_is_read_or_refused_with_its_line(build_dir, path):
    is_read(path.name, lambda: Scenario.read(path))
    text, dice, ends = path.read_bytes().decode(errors="replace") or "\n", random.Random(path.stem), {True: 0, False: 0}
    for _ in rounds():
        broken = mutated(text, dice)
        try:
            ends[is_read("scenario", lambda: Scenario.parse(broken))] += 1  # noqa: B023
        except BaseException:
            finding = build_dir / "fuzz/findings" / f"scenario_parser-{path.stem}"
            finding.parent.mkdir(parents=True, exist_ok=True)
            finding.write_bytes(broken.encode(errors="surrogatepass"))
            raise
    if path in FILES and sum(ends.values()) >= 1500:
        assert min(ends.values()) > 50, ends  # both ways were taken
