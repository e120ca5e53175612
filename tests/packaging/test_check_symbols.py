"""scripts/check_symbols.py: what it finds, and that it finds nothing in our programs."""

import subprocess

import pytest


@pytest.fixture
def findings(tree, tmp_path):
    """Checks a library of the given C sources (name to text); returns the lines printed."""
    def check(sources):
        for name, text in sources.items():
            (tmp_path / f"{name}.c").write_text(text, encoding="utf-8")
            subprocess.run(["cc", "-c", f"{name}.c", "-o", f"{name}.c.o"], cwd=tmp_path, check=True)
        subprocess.run(["ar", "rcs", "made.a", *(f"{name}.c.o" for name in sources)], cwd=tmp_path, check=True)
        done = subprocess.run([tree / "scripts/check_symbols.py", tmp_path / "made.a"], capture_output=True, text=True, check=False)
        lines = done.stdout.splitlines()
        assert done.returncode == (1 if lines else 0), done.stderr
        return lines
    return check


def test_no_program_has_a_circle(tree, build_dir):
    archives = sorted((build_dir / "lib").glob("*.a"))
    assert {"libwsmd_daemon.a", "libbridge_parts.a", "libcollector_parts.a"} <= {archive.name for archive in archives}
    done = subprocess.run([tree / "scripts/check_symbols.py", *archives], capture_output=True, text=True, check=False)
    assert (done.stdout, done.stderr, done.returncode) == ("", "", 0)


def test_a_call_in_one_direction_is_no_circle(findings):
    assert findings({"upper": "void below(void); void above(void) { below(); }", "lower": "void below(void) {}"}) == []


def test_calls_in_both_directions_are_a_circle(findings):
    assert findings({
        "upper": "void below(void); void above(void) { below(); }",
        "lower": "void above(void); void below(void) { above(); }",
    }) == ["upper uses below: closes the circle lower > upper > lower"]


def test_a_global_defined_above_those_who_read_it_is_a_circle(findings):
    assert findings({
        "start": "int id; void tool(void); void start(void) { tool(); }",
        "tool": "extern int id; int seen; void tool(void) { seen = id; }",
    }) == ["tool uses id: closes the circle start > tool > start"]


def test_an_archive_without_objects_is_an_error(tree, tmp_path):
    subprocess.run(["ar", "rcs", "empty.a"], cwd=tmp_path, check=True)
    done = subprocess.run([tree / "scripts/check_symbols.py", tmp_path / "empty.a"], capture_output=True, text=True, check=False)
    assert done.returncode == 1
    assert "no objects" in done.stderr
