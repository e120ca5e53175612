"""Text on a terminal: how many cells it takes, and what foreign text must not do there."""

import pytest

from wsmlab.cells import ascii_only, cells, clean, clip, duration, fit, fit_line, signal_bar, sparkline


@pytest.mark.parametrize("text, shown", [
    ("Lobby", "Lobby"), ("Café", "Café"), ("日本", "日本"), ("⚡", "⚡"),
    ("\x1b[31mred\x1b[0m", "�[31mred�[0m"),
    ("one\r\ntwo\tthree\0", "one��two�three�"),
    ("\x9b2J", "�2J"),                         # the eight-bit introducer of escape sequences
    ("abc\u202edef\u200b", "abc�def�"),        # direction, zero width
    ("\u2028\ud800\ue000\U000e0001", "����"),  # line separator, lone surrogate, private use, tag
    ("e\u0301", "é"),                          # what has a composed form is composed
    ("\u0301x", "x"),                          # a mark with nothing beneath it
    ("x" + "\u0336" * 40, "x\u0336\u0336"),
    ("❤\ufe0f 👍\U0001f3fd", "❤ 👍"),
])
def test_foreign_text_can_do_nothing_to_the_screen(text, shown):
    assert clean(text) == shown


@pytest.mark.parametrize("text, count", [("", 0), ("abc", 3), ("é", 1), ("x\u0336", 1), ("日本", 4), ("⚡", 2), ("ｱ", 1), ("�", 1), ("█·▁", 3)])
def test_a_text_takes_as_many_cells_as_the_terminal_gives_it(text, count):
    assert cells(clean(text)) == count


@pytest.mark.parametrize("text, width, clipped", [
    ("Lobby", 5, "Lobby"), ("Lobby", 4, "Lob…"), ("Lobby", 1, "…"), ("Lobby", 0, ""),
    ("日本語", 6, "日本語"), ("日本語", 5, "日本…"), ("日本語", 4, "日…"), ("日本語", 2, "…"),
    ("x\u0336yz", 2, "x\u0336…"),
])
def test_what_has_no_room_ends_in_an_ellipsis(text, width, clipped):
    assert clip(text, width) == clipped


@pytest.mark.parametrize("width", range(8))
@pytest.mark.parametrize("text", ["", "ab", "日本語", "a日b本c", "e\u0336\u0336日"])
def test_a_fitted_text_takes_exactly_its_cells(text, width):
    assert cells(fit(text, width)) == width
    assert cells(fit(text, width, right=True)) == width
    line = fit_line([("title", text), (None, text)], width)
    assert cells("".join(part for _, part in line)) == width


def test_numbers_are_set_to_the_right():
    assert fit("42", 5, right=True) == "   42"


def test_without_other_characters_than_ascii_the_cells_stay_the_same():
    assert ascii_only("███·· ▁▄█ Café 日本… ─▲▼") == "###.. _-# Caf? ????~ -^v"


@pytest.mark.parametrize("dbm, bar", [(-120, "·····"), (-86, "█····"), (-77, "██···"), (-68, "███··"), (-59, "████·"),
                                      (-50, "█████"), (0, "█████")])
def test_a_signal_is_a_bar_of_five(dbm, bar):
    assert signal_bar(dbm) == bar


def test_a_sparkline_shows_the_newest_signals_at_the_right():
    assert sparkline([-30, -90, -60], 2) == "▁▅"
    assert sparkline([-200, 0], 4) == "  ▁█"
    assert sparkline([-50], 0) == ""


@pytest.mark.parametrize("seconds, text", [(-1, "0 s"), (59.9, "59 s"), (62, "1:02"), (3723, "1:02:03"),
                                           (12 * 86400 + 3 * 3600, "12d 03h"), (10**9, "11574d")])
def test_a_duration_takes_seven_cells_at_most(seconds, text):
    assert duration(seconds) == text
    assert cells(text) <= 7
