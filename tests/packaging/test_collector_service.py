"""The collector as a service: what its unit allows it, and what its init script on a device hands to it."""

import re
import shlex
import shutil
import signal
import subprocess
import time

import pytest

from init_scripts import run_init


@pytest.fixture
def program(build_dir):
    path = build_dir / "bin/wsm-collector"
    if not path.exists():
        pytest.skip("built without the lab")
    return path


def accepted(program, settings):
    """Runs the collector with these settings on no reports at all; what it says on its error stream."""
    done = subprocess.run([program, "--config", settings, "/dev/null"], capture_output=True, text=True, timeout=30, check=False)
    return done.returncode, done.stderr


# --- systemd ---

@pytest.fixture
def units(tree, program, tmp_path):
    """The units as they are installed, with the program of the build."""
    if shutil.which("systemd-analyze") is None:
        pytest.skip("systemd is not installed")
    for name in ("wsm-collector.service", "wsm-collector.socket"):
        text = (tree / "packaging/systemd" / name).read_text(encoding="utf-8")
        (tmp_path / name).write_text(text.replace("ExecStart=wsm-collector ", f"ExecStart={program} "), encoding="utf-8")
    return tmp_path


def test_systemd_finds_nothing_wrong_with_the_units(units):
    done = subprocess.run(["systemd-analyze", "verify", "--man=no", units / "wsm-collector.service", units / "wsm-collector.socket"],
                          capture_output=True, text=True, timeout=60, check=False)
    ours = [line for line in (done.stdout + done.stderr).splitlines() if "wsm-collector" in line]
    assert (done.returncode, ours) == (0, [])


def test_little_is_open_to_the_service(units):
    done = subprocess.run(["systemd-analyze", "security", "--offline=yes", "--no-pager", units / "wsm-collector.service"],
                          capture_output=True, text=True, timeout=60, check=False)
    exposure = re.search(r"Overall exposure level for wsm-collector.service: ([\d.]+)", done.stdout)
    assert exposure and float(exposure[1]) < 2.0, done.stdout + done.stderr


def test_the_settings_of_the_package_are_accepted(tree, program, tmp_path):
    text = (tree / "packaging/systemd/wsm-collector.conf").read_text(encoding="utf-8")
    (tmp_path / "settings").write_text(text.replace("/var/lib/wsm-collector", str(tmp_path)), encoding="utf-8")
    status, said = accepted(program, tmp_path / "settings")
    assert status == 0 or "built without SQLite" in said, said


# --- on a device ---

def called(tree, feed, tmp_path, function, **options):
    """The calls that a function of the script makes, and the file with its settings."""
    settings = tmp_path / "etc/settings"
    set_options = "".join(f"OPTION_{name}={shlex.quote(value)}; " for name, value in options.items())
    calls = run_init(tree, feed, f"SETTINGS_FILE={settings}; {set_options}{function}", tmp_path, service="wsm-collector")
    return calls, settings


def started(tree, feed, tmp_path, **options):
    return called(tree, feed, tmp_path, "start_service", **options)


def reloaded(tree, feed, tmp_path, **options):
    return called(tree, feed, tmp_path, "reload_service", **options)


def test_unless_it_is_wanted_it_is_not_started(tree, feed, tmp_path):
    assert started(tree, feed, tmp_path) == ([], tmp_path / "etc/settings")
    assert not (tmp_path / "etc").exists()


def test_it_gets_the_options_as_its_settings_in_a_file_for_nobody_else(tree, feed, tmp_path, program):
    calls, settings = started(tree, feed, tmp_path, enabled="1", grace="10", join_private="1", drop_names="0",
                              publish="mqtt://u:a b'c$(id)@host/x")
    assert ["procd_set_param", "command", "/usr/bin/wsm-collector", "--config", str(settings)] in calls
    assert ["procd_set_param", "file", str(settings)] in calls and ["procd_set_param", "stderr", "1"] in calls
    assert ["procd_set_param", "respawn", "3600", "5", "0"] in calls
    assert settings.read_text() == "quiet\ngrace = 10\npublish = mqtt://u:a b'c$(id)@host/x\njoin-private = yes\ndrop-names = no\n"
    assert settings.stat().st_mode & 0o777 == 0o600


def test_a_value_of_two_lines_makes_no_setting_of_its_own(tree, feed, tmp_path):
    calls, settings = started(tree, feed, tmp_path, enabled="1", names="x\nexec = /bin/reboot", keep="7")
    assert settings.read_text() == "quiet\nkeep = 7\n"
    assert [call[:4] for call in calls if call[0] == "logger"] == [["logger", "-t", "wsm-collector", "-p"]]


def test_a_change_of_its_configuration_reloads_it(tree, feed, tmp_path):
    calls = run_init(tree, feed, "service_triggers", tmp_path, service="wsm-collector")
    assert calls == [["procd_add_reload_trigger", "wsm-collector"]]


def test_a_running_collector_takes_new_settings_at_a_signal(tree, feed, tmp_path, program):
    _, settings = started(tree, feed, tmp_path, enabled="1", grace="10", queue="100", socket=str(tmp_path / "socket"))
    with subprocess.Popen([program, "--config", settings], stderr=subprocess.PIPE, text=True) as collector:
        try:
            deadline = time.monotonic() + 30
            while not (tmp_path / "socket").exists() and time.monotonic() < deadline:
                time.sleep(0.02)
            calls, _ = reloaded(tree, feed, tmp_path, enabled="1", grace="20", queue="100", drop_names="1", socket=str(tmp_path / "socket"))
            assert calls == [["procd_send_signal", "wsm-collector"]]
            collector.send_signal(signal.SIGHUP)  # as procd does
            assert collector.stderr.readline() == "wsm-collector: reloaded\n"
        finally:
            collector.terminate()
    assert settings.read_text() == f"quiet\nsocket = {tmp_path}/socket\nqueue = 100\ngrace = 20\ndrop-names = yes\n"
    assert settings.stat().st_mode & 0o777 == 0o600


def test_a_reload_without_a_change_makes_it_read_its_names_again(tree, feed, tmp_path):
    started(tree, feed, tmp_path, enabled="1", names="/etc/names")
    calls, _ = reloaded(tree, feed, tmp_path, enabled="1", names="/etc/names")
    assert calls == [["procd_send_signal", "wsm-collector"]]


def test_a_setting_that_is_read_only_at_the_start_restarts_the_collector(tree, feed, tmp_path):
    started(tree, feed, tmp_path, enabled="1", grace="10", queue="100")
    calls, settings = reloaded(tree, feed, tmp_path, enabled="1", grace="20", queue="200")
    assert ["procd_set_param", "file", str(settings)] in calls, "with other settings it is another instance"
    assert not [call for call in calls if call[0] == "procd_send_signal"]
    assert settings.read_text() == "quiet\nqueue = 200\ngrace = 20\n"


def test_a_reload_begins_and_ends_the_service_as_the_configuration_wants(tree, feed, tmp_path):
    begins = ["procd_open_instance"]
    assert begins in reloaded(tree, feed, tmp_path, enabled="1")[0], "it did not run"
    assert reloaded(tree, feed, tmp_path, enabled="0")[0] == [], "a start without an instance ends the one that runs"
    assert begins in reloaded(tree, feed, tmp_path, enabled="1")[0], "it was ended"
    assert called(tree, feed, tmp_path, "stop_service")[0] == []
    assert begins in reloaded(tree, feed, tmp_path, enabled="1")[0], "it was stopped"


def test_the_script_knows_every_setting_and_no_other(feed, program):
    script = (feed / "files/etc/init.d/wsm-collector").read_text(encoding="utf-8")
    known = set(re.search(r"OPTIONS='([^']*)'", script)[1].replace("_", "-").split())
    usage = subprocess.run([program, "--help"], capture_output=True, text=True, timeout=30, check=True).stdout
    settings = set(re.findall(r"^  --([\w-]+)", usage, re.M))
    for_people = {"json", "csv", "raw", "quiet", "follow", "summary", "count", "config", "help", "version"}
    assert known == settings - for_people


def test_the_device_s_own_options_are_accepted(tree, feed, tmp_path, program):
    text = (feed / "files/etc/config/wsm-collector").read_text(encoding="utf-8")
    options = dict(re.findall(r"^\toption (\w+) '(.*)'$", text, re.M))
    assert options.pop("enabled") == "0"
    _, settings = started(tree, feed, tmp_path, enabled="1", **{**options, "store": f"sqlite:{tmp_path}/store", "http": "127.0.0.1:0"})
    status, said = accepted(program, settings)
    assert status == 0 or "built without" in said, said
