#!/usr/bin/python3
"""Checks that there is no cycle among the object files of a static library: an object is above all objects that define its symbols.

    scripts/check_symbols.py ARCHIVE...

Includes show what a source may call, symbols what it really needs. A global that is declared in a low module and defined in a high
one makes a cycle of all objects between them, which the includes do not show. Prints one line for each cycle; exit status 1 if
there is any.
"""

import re
import subprocess
import sys

from check_includes import circles

MEMBER = re.compile(r"^(\S+)\.(?:c|cpp)\.o:$|^(\S+)\.o:$")
SYMBOL = re.compile(r"^[0-9a-f]* +([A-Za-z]) (\S+)$")
# A definition that several objects may have (an inline function) is not a dependency.
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
    lines = []
    for archive in sys.argv[1:]:
        found = objects(archive)
        if not found:
            sys.exit(f"{archive} has no objects")
        lines += circles(edges_of(found))
    print(*lines, sep="\n", end="\n" if lines else "")
    return 1 if lines else 0


if __name__ == "__main__":
    sys.exit(main())
