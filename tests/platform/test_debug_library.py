"""libdebug as a program links it: thresholds from the configuration, and over the bus while it runs."""

import json
import os
import re
import subprocess
import time

import pytest

PATIENCE = 30  # seconds


def wait(predicate, what):
    end = time.monotonic() + PATIENCE
    while not (value := predicate()):
        assert time.monotonic() < end, f"waited {PATIENCE} s for {what}"
        time.sleep(0.005)
    return value


def levels_written(build_dir, folder, config):
    """Runs the probe where /etc/config/debug is `config` (None: there is none); module -> levels that got through."""
    etc = folder / "config"
    etc.mkdir()
    if config is not None:
        (etc / "debug").write_text(config)
    log = folder / "log"
    own_mounts = ["unshare", "--mount"] if os.geteuid() == 0 else ["unshare", "--map-root-user", "--mount"]
    done = subprocess.run(
        [*own_mounts, "sh", "-c", 'mkdir -p /etc/config 2>/dev/null || { mount -t tmpfs lab /etc && mkdir /etc/config; }\n'
         'mount --bind "$1" /etc/config && exec "$2" "$3"', "sh", etc, build_dir / "tests/debug_program", log],
        capture_output=True, text=True, timeout=PATIENCE, check=False)
    if done.returncode != 0 and "unshare" in done.stderr:
        pytest.skip("no mount namespaces here: " + done.stderr)
    assert done.returncode == 0, done.stderr
    written = {"main": [], "quiet": []}
    for line in log.read_text().splitlines():
        module, level = re.search(r"probe\[\d+\] (\w+) (\d): message$", line).groups()
        written[module].append(int(level))
    return written


ERRORS = [0, 1, 2, 3]
ALL = [0, 1, 2, 3, 4, 5, 6, 7]


@pytest.mark.parametrize("config, main, quiet", [
    (None, ERRORS, ERRORS),
    ("config module 'main'\n\toption level '7'\n", ALL, ERRORS),
    ("config module 'main'\n\toption level '0'\nconfig module 'quiet'\n\toption level '5'\n", [0], [0, 1, 2, 3, 4, 5]),
    ("config module 'main'\n\toption level '8'\nconfig module 'quiet'\n\toption level '-1'\n", ERRORS, ERRORS),
    ("config module 'main'\n\toption level 'all'\nconfig module 'quiet'\n\toption level '5 '\n", ERRORS, ERRORS),
    ("config module 'main'\n\tlist level '7'\n", ERRORS, ERRORS),
    ("config module 'main'\n\toption level '7\n", ERRORS, ERRORS),
    ("option level '7'\n", ERRORS, ERRORS),
], ids=["no package", "one module", "both modules", "out of range", "no number", "a list", "an open quote", "malformed"])
def test_thresholds_come_from_the_configuration(build_dir, tmp_path, config, main, quiet):
    assert levels_written(build_dir, tmp_path, config) == {"main": main, "quiet": quiet}


class Probe:
    """The probe with a bus, writing its rounds."""

    def __init__(self, build_dir, folder):
        self.bin, self.bus, self.log = build_dir / "bin", folder / "bus.sock", folder / "log"
        # The broker lets only root publish objects; in a user namespace of its own it takes us for root.
        as_root = [] if os.geteuid() == 0 else ["unshare", "--map-root-user"]
        self.processes = [subprocess.Popen([*as_root, self.bin / "ubusd", "-s", self.bus])]
        wait(lambda: self.ubus("list").returncode == 0, "the broker")
        self.processes.append(subprocess.Popen([build_dir / "tests/debug_program", self.log, self.bus]))
        assert self.ubus("-t", "30", "wait_for", "probe.debug").returncode == 0

    def ubus(self, *arguments):
        return subprocess.run([self.bin / "ubus", "-s", self.bus, *arguments], capture_output=True, text=True,
                              timeout=60, check=False)

    def set(self, **arguments):
        return self.ubus("-S", "call", "probe.debug", "set", json.dumps(arguments)).returncode

    def get(self):
        return json.loads(self.ubus("-S", "call", "probe.debug", "get").stdout)

    def lines(self):
        return [line.split("] ", 1)[1] for line in self.log.read_text().splitlines()] if self.log.exists() else []

    def next_round(self):
        """What is written between two rounds that begin after this call."""
        rounds = [line for line in self.lines() if "round" in line]
        first, last = len(rounds) + 2, len(rounds) + 3
        end = f"main -: round {last}"
        lines = wait(lambda: end in (lines := self.lines()) and lines, "two more rounds")
        return lines[lines.index(f"main -: round {first}") + 1:lines.index(end)]

    def close(self):
        for process in reversed(self.processes):
            process.terminate()
            assert process.wait(PATIENCE) == 0


@pytest.fixture
def probe(build_dir, tmp_path):
    one = Probe(build_dir, tmp_path)
    yield one
    one.close()


def test_thresholds_can_be_read_and_set_over_the_bus(probe):
    assert probe.get() == {"file": str(probe.log), "limit": 655360, "lost": 0, "modules": {"main": 3, "quiet": 3}}
    assert probe.next_round() == []
    assert probe.set(module="main", level=5) == 0
    assert probe.next_round() == ["main 5: main speaks"]
    assert probe.set(level=7) == 0
    assert probe.next_round() == ["main 5: main speaks", "quiet 5: quiet speaks"]
    assert probe.get()["modules"] == {"main": 7, "quiet": 7}
    assert probe.set(module="main", level=4) == 0
    assert probe.next_round() == ["quiet 5: quiet speaks"]


@pytest.mark.parametrize("arguments", [
    {}, {"module": "main"}, {"module": "main", "level": 8}, {"module": "main", "level": -1},
    {"module": "main", "level": "7"}, {"module": 5, "level": 7}, {"module": "nobody", "level": 7}, {"module": "-", "level": 7}])
def test_a_bad_threshold_is_refused_and_changes_nothing(probe, arguments):
    assert probe.set(**arguments) == 2
    assert probe.get()["modules"] == {"main": 3, "quiet": 3}


def test_the_object_says_what_its_methods_take(probe):
    methods = probe.ubus("-v", "list", "probe.debug").stdout.splitlines()[1:]
    assert methods == ['\t"get":{}', '\t"set":{"module":"String","level":"Integer"}']


def test_the_library_needs_no_runtime_of_its_language(build_dir):
    for name in ("libdebug.so", "libwas.so"):
        needed = subprocess.run(["readelf", "-d", build_dir / "lib" / name], capture_output=True, text=True,
                                timeout=PATIENCE, check=True).stdout
        if "libasan" in needed:
            pytest.skip("the sanitizers' runtime needs it")
        assert "stdc++" not in needed


def test_only_the_libraries_own_names_are_visible(build_dir):
    names = {"libdebug.so": ["dbg_get_ubus_object", "dbg_init", "dbg_logfile", "dbg_module_reg", "dbg_printf"],
             "libwas.so": ["was_ext_ioctl_msg"]}
    for name, expected in names.items():
        listed = subprocess.run(["nm", "-D", "--defined-only", build_dir / "lib" / name], capture_output=True, text=True,
                                timeout=PATIENCE, check=True).stdout
        found = sorted(line.split()[-1] for line in listed.splitlines())
        assert [one for one in found if not one.startswith("_")] == expected
