"""The tables of docs/formats.md: fields of layouts, from the lists that the programs expand.

    PYTHONPATH=lab python3 -m wsmlab.fields [BUILD]      writes them into docs/formats.md

A comment "fields: LAYOUT" is followed by a table whose first columns, up to the field's name, are what wsmd-fields prints.
The columns after it are written by hand and stay with their field.
"""

import pathlib
import re
import subprocess
import sys

PAGE = pathlib.Path(__file__).resolve().parents[2] / "docs/formats.md"
_TABLE = re.compile(r"<!-- fields: (?P<layout>\w+) -->\n\n?(?P<head>\|.*\n\|[-|]+\n)(?P<rows>(?:\|.*\n)*)")


def printed(build_dir):
    """The rows of each layout, the field's name last: {layout: [(column, ..., field), ...]}."""
    lines = subprocess.run([pathlib.Path(build_dir) / "bin/wsmd-fields"], capture_output=True, text=True, timeout=30,
                           check=True).stdout.splitlines()
    layouts = {}
    for layout, *columns in (line.split("\t") for line in lines):
        layouts.setdefault(layout, []).append(tuple(columns))
    return layouts


def written_anew(text, layouts):
    """The text of the document with its tables' first columns as they are in `layouts`."""
    def table(match):
        cells = [[cell.strip() for cell in re.split(r"(?<!\\)\|", line.strip()[1:-1])] for line in match["rows"].splitlines()]
        by_hand = {row[field]: row[field + 1:] for row in cells
                   for field in [next(i for i, cell in enumerate(row) if cell.startswith("`"))]}
        rows = []
        for *columns, field in layouts[match["layout"]]:
            behind = by_hand.get(f"`{field}`", [])
            rows.append("".join(f"| {cell} " if cell else "| " for cell in [*columns, f"`{field}`", *behind]) + "|")
        return f"<!-- fields: {match['layout']} -->\n\n{match['head']}" + "\n".join(rows) + "\n"
    return _TABLE.sub(table, text)


def main(build_dir="build"):
    PAGE.write_text(written_anew(PAGE.read_text(encoding="utf-8"), printed(build_dir)), encoding="utf-8")


if __name__ == "__main__":
    main(*sys.argv[1:])
