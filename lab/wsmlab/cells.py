"""Text as a terminal shows it, in cells: a wide character takes two, a combining mark none."""

import unicodedata

REPLACEMENT = "\N{REPLACEMENT CHARACTER}"
ELLIPSIS = "…"
_MARKS = 2            # the most on one character: more would reach into the lines above and below
_WEAK, _STRONG = -90, -30  # dBm: the ends of a sparkline
_STEPS = "▁▂▃▄▅▆▇█"
_BAR, _BAR_REST = "█", "·"

# Replacements of our own signs on a terminal with ASCII only.
_ASCII = str.maketrans({**dict(zip(_STEPS, "__.-=+*#")), _BAR_REST: ".", ELLIPSIS: "~", "─": "-", "▲": "^", "▼": "v"})


def _changes_its_neighbour(character):
    """Variation selectors and skin tones: their effect on the width of the previous character differs between terminals."""
    return "\ufe00" <= character <= "\ufe0f" or "\U000e0100" <= character <= "\U000e01ef" \
        or "\U0001f3fb" <= character <= "\U0001f3ff"


def clean(text):
    """Makes a foreign text harmless for the screen: control and format characters (escape sequences, line feeds, changes of
    direction), surrogates and unassigned characters are replaced."""
    cleaned, marks = [], _MARKS  # a mark without a character would be put on the character to the left
    for character in unicodedata.normalize("NFC", text):
        if _changes_its_neighbour(character):
            continue
        category = unicodedata.category(character)
        if category[0] == "C" or category in ("Zl", "Zp"):
            character = REPLACEMENT
        marks = marks + 1 if cells(character) == 0 else 0
        if marks <= _MARKS:
            cleaned.append(character)
    return "".join(cleaned)


def cells(text):
    """How many cells a clean text takes."""
    if text.isascii():
        return len(text)
    return sum(0 if unicodedata.category(character) in ("Mn", "Me")
               else 2 if unicodedata.east_asian_width(character) in "WF" else 1 for character in text)


def clip(text, width):
    """As much of the text as fits the width; an ellipsis shows that it was cut."""
    if cells(text) <= width:
        return text
    if width <= 0:
        return ""
    taken, used = [], 0
    for character in text:
        used += cells(character)
        if used > width - 1:
            break
        taken.append(character)
    return "".join(taken) + ELLIPSIS


def fit(text, width, *, right=False):
    """The text in exactly `width` cells."""
    text = clip(text, width)
    blanks = " " * (width - cells(text))
    return blanks + text if right else text + blanks


def fit_line(segments, width):
    """A line of (style, text) pairs in exactly `width` cells."""
    fitted = []
    for style, text in segments:
        text = clip(text, width)
        width -= cells(text)
        fitted.append((style, text))
    return [*fitted, (None, " " * width)] if width else fitted


def ascii_only(text):
    """The text in ASCII, in the same number of cells."""
    return "".join(character if character.isascii() else "?" * cells(character)
                   for character in text.translate(_ASCII))


def signal_bar(dbm):
    """Five steps from -90 to -50 dBm."""
    steps = max(0, min(5, (dbm + 95) // 9))
    return _BAR * steps + _BAR_REST * (5 - steps)


def sparkline(signals, width):
    """The newest of these signals (dBm), one cell each, the newest at the right."""
    newest = list(signals)[-width:] if width > 0 else []
    top = len(_STEPS) - 1
    steps = (round((dbm - _WEAK) * top / (_STRONG - _WEAK)) for dbm in newest)
    return "".join(_STEPS[max(0, min(top, step))] for step in steps).rjust(width)


def duration(seconds):
    """At most seven cells: 59 s, 1:02, 1:02:03, 12d 03h."""
    minutes, second = divmod(max(0, int(seconds)), 60)
    hours, minute = divmod(minutes, 60)
    days, hour = divmod(hours, 24)
    if days:
        return f"{days}d {hour:02}h" if days < 1000 else f"{days}d"
    if hours:
        return f"{hour}:{minute:02}:{second:02}"
    return f"{minute}:{second:02}" if minute else f"{second} s"
