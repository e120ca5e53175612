#!/usr/bin/python3
"""No circle among the objects of a static library: an object stands above all those that define what it uses.

    scripts/check_symbols.py ARCHIVE

Includes show what a source may call; only symbols show what it needs. A global that is declared below and defined above
ties all objects in between into one knot, which no include betrays. Prints one line for each circle; exit status 1 if there
is any.
"""

import re
import subprocess
import sys

from check_includes import circles

MEMBER = re.compile(r"^(\S+)\.(?:c|cpp)\.o:$|^(\S+)\.o:$")
SYMBOL = re.compile(r"^[0-9a-f]* +([A-Za-z]) (\S+)$")
# A definition that several objects may bring (an inline function) ties nobody to anybody.
DEFINED = set("TDBRGSC")


def objects(archive):
    """Object -> (the symbols it defines, the symbols it uses)."""
    listed = subprocess.run(["nm", archive], capture_output=True, text=True, check=True).stdout
    found, here = {}, None
    for line in listed.splitlines():
        if member := MEMBER.match(line):
            here = found.setdefault(member[1] or member[2], (set(), set()))
        elif here and (symbol := SYMBOL.match(line)):
            if symbol[1] in DEFINED:
                here[0].add(symbol[2])
            elif symbol[1] == "U":
                here[1].add(symbol[2])
    return found


def edges_of(found):
    """Object -> {object it needs: "object uses symbol"}."""
    home = {symbol: name for name, (defined, _) in found.items() for symbol in defined}
    edges = {}
    for name, (_, used) in found.items():
        for symbol in sorted(used):
            if home.get(symbol, name) != name:
                edges.setdefault(name, {}).setdefault(home[symbol], f"{name} uses {symbol}")
    return edges


def main():
    found = objects(sys.argv[1])
    if not found:
        sys.exit(f"{sys.argv[1]} has no objects")
    lines = list(circles(edges_of(found)))
    print(*lines, sep="\n", end="\n" if lines else "")
    return 1 if lines else 0


if __name__ == "__main__":
    sys.exit(main())
