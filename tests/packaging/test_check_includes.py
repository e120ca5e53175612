"""scripts/check_includes.py: what it finds, and that the tree has nothing of it."""

import re
import subprocess

import pytest


@pytest.fixture
def findings(tree, tmp_path):
    """Checks a small tree of the given files (path to text); returns the lines printed."""
    def check(files):
        for name, text in files.items():
            path = tmp_path / name
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text, encoding="utf-8")
        done = subprocess.run([tree / "scripts/check_includes.py", tmp_path], capture_output=True, text=True, check=False)
        lines = done.stdout.splitlines()
        assert done.returncode == (1 if lines else 0), done.stderr
        return lines
    return check


def test_the_tree_has_no_finding(tree):
    done = subprocess.run([tree / "scripts/check_includes.py"], capture_output=True, text=True, check=False)
    assert (done.stdout, done.stderr, done.returncode) == ("", "", 0)


def test_a_folder_may_include_what_the_table_allows(findings):
    assert findings({
        "src/fw/sta_fw.cpp": '#include "fw/sta_fw.h"\n#include "tools/sta_text.h"\n#include <cstdio>\n',
        "src/fw/sta_fw.h": "", "src/tools/sta_text.h": "",
    }) == []


def test_a_folder_may_not_include_what_the_table_does_not_name(findings):
    assert findings({
        "src/fw/sta_fw.cpp": '// the table\n#include "sta/sta_table.h"\n', "src/sta/sta_table.h": "",
    }) == ["src/fw/sta_fw.cpp:2: src/fw/ may not include src/sta/sta_table.h"]


def test_of_the_bus_the_driver_may_include_the_notifications_only(findings):
    assert findings({
        "src/driver/a.cpp": '#include "ubus/sta_ubus_notify.h"\n#include "ubus/sta_ubus.h"\n',
        "src/ubus/sta_ubus_notify.h": "", "src/ubus/sta_ubus.h": "",
    }) == ["src/driver/a.cpp:2: src/driver/ may not include src/ubus/sta_ubus.h"]


def test_the_base_libraries_know_nothing_of_the_project(findings):
    assert findings({
        "base/libubox/blob.cpp": '#include "protocol/wire.h"\n', "protocol/wire.h": "",
    }) == ["base/libubox/blob.cpp:1: base/ may not include protocol/wire.h"]


@pytest.mark.parametrize("folder", ["protocol/", "platform/", "drivers/", "collector/", "recorder/", "lab/"])
def test_only_the_daemon_includes_the_daemon(findings, folder):
    assert findings({f"{folder}a.cpp": '#include "tools/text.h"\n', "src/tools/text.h": ""}) == [
        f"{folder}a.cpp:1: {folder} may not include src/tools/text.h"]


def test_a_shared_layout_includes_other_layouts_only(findings):
    assert findings({
        "protocol/a.h": '#include "protocol/b.h"\n#include "base/cxx/ubox.h"\n', "protocol/b.h": "", "base/cxx/ubox.h": "",
    }) == ["protocol/a.h:2: protocol/ may not include base/cxx/ubox.h"]


def test_a_header_of_the_daemon_includes_the_record_and_helpers_only(findings):
    assert findings({
        "src/core/a.h": '#include "sta/sta_info.h"\n#include "tools/b.h"\n#include "sta/sta_table.h"\n',
        "src/sta/sta_info.h": "", "src/sta/sta_table.h": "", "src/tools/b.h": "",
    }) == ["src/core/a.h:3: a header may not include src/sta/sta_table.h"]


def test_a_circle_between_sources_is_found_although_no_header_includes_another(findings):
    assert findings({
        "src/sta/a.cpp": '#include "sta/b.h"\n', "src/sta/a.h": "",
        "src/sta/b.cpp": '#include "sta/c.h"\n', "src/sta/b.h": "",
        "src/sta/c.cpp": '#include "sta/a.h"\n', "src/sta/c.h": "",
    }) == ["src/sta/c.cpp:1: closes the circle src/sta/a > src/sta/b > src/sta/c > src/sta/a"]


def test_a_circle_between_headers_is_found_in_every_folder(findings):
    assert findings({"lab/x/a.h": '#include "b.h"\n', "lab/x/b.h": '#include "a.h"\n'}) == [
        "lab/x/b.h:1: closes the circle lab/x/a.h > lab/x/b.h > lab/x/a.h"]


def test_what_the_cxx_runtime_library_is_needed_for_stays_in_the_lab(findings):
    assert findings({"src/tools/a.cpp": "#include <string>\n", "lab/x/a.cpp": "#include <string>\n"}) == [
        "src/tools/a.cpp:1: <string> needs the C++ runtime library"]


def test_a_name_that_is_nowhere_is_found(findings):
    assert findings({"src/tools/a.cpp": '#include "tools/gone.h"\n'}) == ['src/tools/a.cpp:1: "tools/gone.h" is nowhere']


def floors(tree):
    """The table of docs/architecture.md: room -> floor. A room is a source with its header, without the ending."""
    page = (tree / "docs/architecture.md").read_text(encoding="utf-8")
    found = {}
    for floor, rooms in re.findall(r"^\| (\d+) \| (.*) \|$", page, re.M):
        for room in re.findall(r"`(\w+/\w+)(?:\.h)?`", rooms):
            assert room not in found, room
            found[room] = int(floor)
        if others := re.search(r"`tools/` ([\w, ]+)", rooms):
            found |= {f"tools/sta_{name}": int(floor)
                      for name in re.split(r", ", others[1])}
    return found


def test_in_the_architecture_every_room_stands_above_all_that_it_includes(tree):
    documented = floors(tree)
    rooms = {str(path.relative_to(tree / "src").with_suffix(""))
             for path in (tree / "src").glob("*/*") if path.suffix in (".h", ".cpp")}
    assert documented.keys() == rooms
    for path in sorted((tree / "src").glob("*/*.*")):
        room = str(path.relative_to(tree / "src").with_suffix(""))
        for included in re.findall(r'^#include "(\w+/\w+)\.h"', path.read_text(encoding="utf-8"), re.M):
            if included != room and included in documented:
                assert documented[room] > documented[included], f"{room} includes {included}"
