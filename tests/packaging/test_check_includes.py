"""scripts/check_includes.py: what it finds, and that it finds nothing in the tree."""

import re
import subprocess

import pytest


@pytest.fixture
def findings(tree, tmp_path):
    """Checks a small tree of the given files (path to text); returns the lines printed."""
    def check(files, *options):
        for name, text in files.items():
            path = tmp_path / name
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text, encoding="utf-8")
        done = subprocess.run([tree / "scripts/check_includes.py", *options, tmp_path], capture_output=True, text=True, check=False)
        lines = done.stdout.splitlines()
        assert done.returncode == (1 if lines else 0), done.stderr
        return lines
    return check


def test_the_tree_has_no_finding(tree):
    done = subprocess.run([tree / "scripts/check_includes.py"], capture_output=True, text=True, check=False)
    assert (done.stdout, done.stderr, done.returncode) == ("", "", 0)


def test_a_folder_may_include_what_the_table_allows(findings):
    assert findings({
        "src/fw/a.cpp": '#include "fw/a.h"\n#include "tools/text.h"\n#include <cstdio>\n',
        "src/fw/a.h": "", "src/tools/text.h": "",
    }) == []


def test_a_folder_may_not_include_what_the_table_does_not_name(findings):
    assert findings({
        "src/fw/a.cpp": '// the table\n#include "model/table.h"\n', "src/model/table.h": "",
    }) == ["src/fw/a.cpp:2: src/fw/ may not include src/model/table.h"]


@pytest.mark.parametrize(("lower", "upper"), [
    ("tools", "model"), ("model", "inputs"), ("inputs", "wlan"), ("inputs", "outputs"), ("outputs", "life"), ("wlan", "life"),
    ("life", "bus"), ("bus", "core"), ("core", "compat"),
])
def test_the_daemons_folders_have_one_direction(findings, lower, upper):
    assert findings({f"src/{lower}/a.cpp": f'#include "{upper}/b.h"\n', f"src/{upper}/b.h": ""}) == [
        f"src/{lower}/a.cpp:1: src/{lower}/ may not include src/{upper}/b.h"]


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
        "src/core/a.h": '#include "model/record.h"\n#include "tools/b.h"\n#include "model/table.h"\n',
        "src/model/record.h": "", "src/model/table.h": "", "src/tools/b.h": "",
    }) == ["src/core/a.h:3: a header may not include src/model/table.h"]


def test_a_circle_between_sources_is_found_without_one_between_headers(findings):
    assert findings({
        "src/life/a.cpp": '#include "life/b.h"\n', "src/life/a.h": "",
        "src/life/b.cpp": '#include "life/c.h"\n', "src/life/b.h": "",
        "src/life/c.cpp": '#include "life/a.h"\n', "src/life/c.h": "",
    }) == ["src/life/c.cpp:1: closes the circle src/life/a > src/life/b > src/life/c > src/life/a"]


@pytest.mark.parametrize("folder", ["base/libubox", "collector", "drivers/x", "lab/x", "platform/x", "protocol"])
def test_a_circle_is_found_in_every_folder(findings, folder):
    assert findings({
        f"{folder}/a.cpp": '#include "b.h"\n', f"{folder}/a.h": "", f"{folder}/b.cpp": '#include "a.h"\n', f"{folder}/b.h": "",
    }) == [f"{folder}/b.cpp:1: closes the circle {folder}/a > {folder}/b > {folder}/a"]


def test_what_the_cxx_runtime_library_is_needed_for_stays_in_the_lab(findings):
    assert findings({"src/tools/a.cpp": "#include <string>\n", "lab/x/a.cpp": "#include <string>\n"}) == [
        "src/tools/a.cpp:1: <string> needs the C++ runtime library"]


def test_a_name_that_is_nowhere_is_found(findings):
    assert findings({"src/tools/a.cpp": '#include "tools/gone.h"\n'}) == ['src/tools/a.cpp:1: "tools/gone.h" is nowhere']


def test_instead_of_levels_a_circle_is_printed(findings):
    assert findings({
        "src/fw/a.cpp": '#include "fw/b.h"\n', "src/fw/b.h": "", "src/fw/b.cpp": '#include "fw/a.h"\n', "src/fw/a.h": "",
    }, "--floors") == ["src/fw/b.cpp:1: closes the circle src/fw/a > src/fw/b > src/fw/a"]


def test_the_architecture_shows_the_rooms_as_they_stand(tree):
    done = subprocess.run([tree / "scripts/check_includes.py", "--floors"], capture_output=True, text=True, check=True)
    page = (tree / "docs/architecture.md").read_text(encoding="utf-8")
    shown = re.findall(r"^\| \d+ \| `.*\n", page, re.M)
    assert "".join(shown) == done.stdout, "scripts/check_includes.py --floors prints the table anew"


def test_no_test_module_imports_another(tree):
    importing = re.compile(r"^\s*(?:from|import) test_\w+", re.MULTILINE)
    assert [str(path) for path in (tree / "tests").rglob("*.py") if importing.search(path.read_text(encoding="utf-8"))] == []
