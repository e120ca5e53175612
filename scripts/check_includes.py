#!/usr/bin/python3
"""Checks includes: folders by the table below, no cycles between modules, no C++ runtime library on the device.

    scripts/check_includes.py [TREE]
    scripts/check_includes.py --floors [TREE]    the table of the daemon's modules in docs/architecture.md

A module is a source file with its header. Prints one line for each finding, "file:line: what"; exit status 1 if there is any.
"""

import pathlib
import re
import sys

BASE = ["base/cxx/", "base/include/"]
BELOW = ["protocol/", "platform/", *BASE]
ROLES = ["src/outputs/", "src/inputs/", "src/wlan/", "src/fw/", "src/model/", "src/tools/"]

# Folder -> what its files may include besides the folder itself. Names of folders end with a slash.
MAY_INCLUDE = {
    "src/compat/": ["src/", *BELOW],
    "src/core/": [*ROLES, "src/bus/", "src/life/", *BELOW],
    "src/bus/": [*ROLES, "src/life/", *BELOW],
    "src/life/": [*ROLES, *BELOW],
    "src/outputs/": ["src/inputs/", "src/model/", "src/tools/", *BELOW],
    "src/wlan/": ["src/inputs/", "src/model/", "src/tools/", *BELOW],
    "src/inputs/": ["src/model/", "src/tools/", *BELOW],
    "src/fw/": ["src/tools/", *BELOW],
    "src/model/": ["src/tools/", *BELOW],
    "src/tools/": BELOW,
    "protocol/": [],
    "base/": [],
    "platform/": ["protocol/", *BASE],
    "drivers/": ["protocol/", *BASE],
    "wsm/": ["protocol/", "src/tools/array.h", *BASE],
    "recorder/": ["protocol/", "drivers/channel/", "lab/common/", *BASE],
    "collector/": ["protocol/"],
    "lab/fleet/": ["collector/", "lab/apsim/", "protocol/", *BASE], # a fleet publishes with the collector's code
    "lab/": ["protocol/", "drivers/channel/", *BASE],
}
# A header of the daemon may include only these of the project: the record and the tools.
HEADERS_MAY_INCLUDE = ["src/model/record.h", "src/tools/", *BELOW]
# Where a quoted name is looked up, after the including file's own folder.
ROOTS = ["", "src/", "platform/", "drivers/", "lab/", "recorder/", "base/include/", "base/libubus/", "base/ubusd/", "base/libuci/"]

DEVICE = ("src/", "platform/", "protocol/", "drivers/", "base/", "wsm/")
NEEDS_RUNTIME = {"any", "deque", "exception", "format", "fstream", "future", "iostream", "istream", "list", "map",
                 "mutex", "ostream", "regex", "set", "sstream", "stdexcept", "string", "thread", "unordered_map",
                 "unordered_set", "vector"}

INCLUDE = re.compile(r'^\s*#\s*include\s+(?:"([^"]+)"|<([^>]+)>)')


def includes(path):
    """The includes of a file: (line, quoted name or None, bracketed name or None)."""
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
        if found := INCLUDE.match(line):
            yield number, found[1], found[2]


def resolve(tree, name, included):
    """The file, relative to the tree, that a quoted include of the file `name` means; None if there is none."""
    for folder in [f"{pathlib.PurePosixPath(name).parent}/", *ROOTS]:
        if (tree / folder / included).is_file():
            return str(pathlib.PurePosixPath(folder) / included)
    return None


def allowed(rules, name):
    return any(name.startswith(rule) if rule.endswith("/") else name == rule for rule in rules)


def check_file(tree, name, edges):
    folder = next((known for known in MAY_INCLUDE if name.startswith(known)), None)
    for line, quoted, bracketed in includes(tree / name):
        where = f"{name}:{line}"
        if bracketed:
            if bracketed in NEEDS_RUNTIME and name.startswith(DEVICE):
                yield f"{where}: <{bracketed}> needs the C++ runtime library"
            continue
        target = resolve(tree, name, quoted)
        if target is None:
            yield f'{where}: "{quoted}" is nowhere'
            continue
        edges.setdefault(room(name), {}).setdefault(room(target), where)
        if folder is None:
            yield f"{where}: the folder is not in the table"
        elif not target.startswith(folder) and not allowed(MAY_INCLUDE[folder], target):
            yield f"{where}: {folder} may not include {target}"
        elif name.startswith("src/") and name.endswith(".h") and not allowed(HEADERS_MAY_INCLUDE, target):
            yield f"{where}: a header may not include {target}"


def room(name):
    return name.rsplit(".", 1)[0]


def circles(edges):
    """One line for every include that closes a cycle."""
    done, road = set(), []

    def walk(here):
        road.append(here)
        for there, where in sorted(edges.get(here, {}).items()):
            if there in road and there != here:
                yield f"{where}: closes the circle {' > '.join([*road[road.index(there):], there])}"
            elif there not in done and there not in road:
                yield from walk(there)
        road.pop()
        done.add(here)

    for start in sorted(edges):
        if start not in done:
            yield from walk(start)


def findings(tree):
    """Every finding in the tree, as lines."""
    edges = {}
    for top in ("protocol", "src", "platform", "base", "drivers", "collector", "recorder", "lab"):
        for path in sorted((tree / top).rglob("*")):
            if path.suffix in (".h", ".c", ".cpp"):
                yield from check_file(tree, str(path.relative_to(tree)), edges)
    yield from circles(edges)


def floors(tree):
    """The daemon's modules as rows of a table, each on the lowest level that is above everything it includes."""
    edges = {}
    for path in sorted((tree / "src").glob("*/*")):
        edges.setdefault(room(str(path.relative_to(tree))), {})
        list(check_file(tree, str(path.relative_to(tree)), edges))
    height = {}

    def floor(name):
        if name not in height:
            height[name] = 1 + max((floor(below) for below in edges[name] if below != name and below in edges), default=0)
        return height[name]

    for level in range(max(map(floor, edges)), 0, -1):
        folders = {}
        for name in sorted(edges):
            if floor(name) == level:
                _, folder, what = name.split("/")
                folders.setdefault(folder, []).append(what)
        yield f"| {level} | " + " · ".join(f"`{folder}/` {', '.join(names)}" for folder, names in folders.items()) + " |"


def main():
    words = [word for word in sys.argv[1:] if word != "--floors"]
    tree = pathlib.Path(words[0]) if words else pathlib.Path(__file__).resolve().parent.parent
    found = list(findings(tree))
    lines = found
    if "--floors" in sys.argv and not found:  # a module in a circle is on no level
        lines = list(floors(tree))
    print(*lines, sep="\n", end="\n" if lines else "")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
