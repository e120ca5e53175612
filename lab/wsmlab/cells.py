"""Text as a terminal shows it, in cells: a wide character takes two, a combining mark none."""

import unicodedata

REPLACEMENT = "\N{REPLACEMENT CHARACTER}"
ELLIPSIS = "…"
_MARKS = 2            # on one character, at most: more of them would reach into the lines above and below
_WEAK, _STRONG = -90, -30  # dBm: the ends of a sparkline
_STEPS = "▁▂▃▄▅▆▇█"
_BAR, _BAR_REST = "█", "·"

# What stands for our own signs where the terminal knows ASCII alone.
_ASCII = str.maketrans({**dict(zip(_STEPS, "__.-=+*#")), _BAR_REST: ".", ELLIPSIS: "~", "─": "-", "▲": "^", "▼": "v"})


def _changes_its_neighbour(character):
    """Variation selectors and skin tones: what they do to the width of the character before differs by terminal."""
    return "\ufe00" <= character <= "\ufe0f" or "\U000e0100" <= character <= "\U000e01ef" \
        or "\U0001f3fb" <= character <= "\U0001f3ff"


def clean(text):
    """A text from outside as one that can do nothing to the screen: control and format characters (escape sequences,
    line feeds, changes of direction), surrogates, and what has no meaning yet are replaced."""
    cleaned, marks = [], _MARKS  # a mark with nothing to stand on would land on what is left of the text
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
    """As much of the text as the width has room for; an ellipsis says that there is more."""
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
    """The text in exactly so many cells."""
    text = clip(text, width)
    blanks = " " * (width - cells(text))
    return blanks + text if right else text + blanks


def fit_line(segments, width):
    """A line of (style, text) pairs in exactly so many cells."""
    fitted = []
    for style, text in segments:
        text = clip(text, width)
        width -= cells(text)
        fitted.append((style, text))
    return [*fitted, (None, " " * width)] if width else fitted


def ascii_only(text):
    """The text for a terminal that knows nothing else, in the same number of cells."""
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
