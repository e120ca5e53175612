"""wsm-check: what it says of a healthy access point, and of one with each part missing."""

import pathlib
import shutil

import pytest

CHECK = pathlib.Path(__file__).resolve().parents[2] / "packaging/check/wsm-check"


@pytest.fixture(params=["dash", "busybox"])
def check(request, build_dir):
    """Runs the check in a lab, by the shell named; returns its Done."""
    shell = [shutil.which(request.param)]
    if not shell[0]:
        pytest.skip(f"{request.param} is not installed")
    if request.param == "busybox":
        shell.append("sh")

    def run(lab, *options, libraries=""):
        return lab.run([*shell, "-s", "--", *options], stdin=CHECK.read_bytes(), check=False,
                       environment={"LD_LIBRARY_PATH": f"{libraries}:{build_dir / 'lib'}"})
    return run


def found(done):
    """The lines by their first word: {"ok": {"bus": "object sta, 0 stations"}, ...}"""
    lines = {"ok": {}, "note": {}, "MISSING": {}}
    for line in done.stdout.splitlines():
        if line.startswith(" "):  # more of the line above
            continue
        kind, rest = line.split(None, 1)
        name, text = rest.split(":", 1)
        lines[kind][name] = text.strip()
    return lines


def test_on_a_healthy_access_point_nothing_is_missing(running_lab, check):
    running_lab.apsim("assoc mac=02:00:00:00:00:01 ifname=ath0 radio=0")
    running_lab.wait_for_report(log_type=1)
    done = check(running_lab)
    lines = found(done)
    assert (done.status, lines["MISSING"], done.stderr) == (0, {}, "")
    assert set(lines["ok"]) == {"daemon", "libdebug.so", "libwas.so", "driver", "capability file", "bus", "chains", "collector",
                                "configuration", "health"}
    assert "driver:\n" in done.stdout and "longest_us: " in done.stdout
    assert lines["ok"]["bus"] == "object sta, 1 stations"
    assert lines["ok"]["capability file"] == "room for 768 stations"


def test_a_driver_may_answer_behind_a_link(open_lab, check):
    lab = open_lab()
    lab.run(["sh", "-c", "mkdir /run/driver && ln -s driver/was.sock /run/was.sock"])
    lab.start("apsim", ["apsim", "--socket", "/run/../run/driver/was.sock"])
    lab.wait(lambda: lab.run(["test", "-S", "/run/driver/was.sock"], check=False).status == 0, 10, "the driver")
    assert found(check(lab))["ok"]["driver"] == "a driver program answers at /var/run/was.sock"


def test_quiet_says_nothing_of_a_healthy_access_point(running_lab, check):
    done = check(running_lab, "--quiet")
    assert (done.status, done.stdout, done.stderr) == (0, "", "")


def test_before_anything_runs_each_missing_part_is_named(open_lab, check):
    lab = open_lab(capability=None)
    done = check(lab)
    lines = found(done)
    assert done.status == 1
    assert lines["MISSING"]["daemon"] == "wsmd does not run: start the service wsmd"
    assert lines["MISSING"]["bus"] == "no broker answers: start ubusd"
    assert lines["MISSING"]["capability file"].endswith("is not there: wsmd does not start without it")
    assert lines["MISSING"]["driver"].startswith("nobody answers at /var/run/was.sock") or "no family" in lines["MISSING"]["driver"]
    assert lines["MISSING"]["chains"].startswith("no chain ")
    assert lines["note"]["collector"].startswith("nobody listens at /tmp/sta_server_domain")


RADIOS_WITHOUT_A_LIMIT = '{"wireless":{"radiolist":[{"name":"wifi0"}]}}'
LIMITS_ELSEWHERE = """{"sta_limit_max": 7, "wireless": {
  "old": {"radiolist": [{"sta_limit_max": 9}]}, "sta_limit_max": 5,
  "radiolist": [{"na\\\\\\"me": "}", "sta_limit_max" : 64}, {"sta_limit_max": "12", "more": {"sta_limit_max": 8}}]},
"radiolist": [{"sta_limit_max": 3}]}"""


@pytest.mark.parametrize("capability", [
    "{", "", '{"wireless":{}}', '{"wireless":{"radiolist":{"sta_limit_max":4}}}', '{"wireless":{"radiolist":[{"sta_limit_max":4}',
    '{"wireless":{},"radiolist":[{"sta_limit_max":4}]}'],
    ids=["cut off", "empty", "no list", "no list but a table", "cut off after the limit", "the list elsewhere"])
def test_a_capability_file_without_radios_is_as_good_as_none(open_lab, check, capability):
    lab = open_lab(capability=capability).start_all()
    assert lab.bus("call", "wsmd", "health")["stations"]["limit"] == 0
    assert found(check(lab))["MISSING"]["capability file"].endswith("has no list wireless.radiolist: wsmd keeps no station")


@pytest.mark.parametrize("capability", [
    RADIOS_WITHOUT_A_LIMIT, '{"wireless":{"radiolist":[]}}', '{"wireless":{"radiolist":[{"sta_limit_max":0}]}}',
    '{"wireless":{"radiolist":[{"sta_limit_max":-3}]}}', LIMITS_ELSEWHERE],
    ids=["no limits", "no radios", "a limit of 0", "a limit below 0", "limits elsewhere"])
def test_the_room_for_stations_is_that_of_the_daemon(open_lab, check, capability):
    lab = open_lab(capability=capability).start_all()
    limit = lab.bus("call", "wsmd", "health")["stations"]["limit"]
    done = check(lab)
    assert (done.status, found(done)["ok"]["capability file"]) == (0, f"room for {limit} stations")


@pytest.fixture
def kernel_driver_lab(open_lab):
    """An access point whose driver has announced itself to the daemon, and cannot be seen at its socket or by `genl`."""
    lab = open_lab()
    lab.run(["sh", "-c", "mkdir /run/driver && ln -s driver/was.sock /run/was.sock"])
    lab.start_ubusd()
    lab.start("apsim", ["apsim", "--socket", "/run/../run/driver/was.sock"])
    lab.wait(lambda: lab.run(["test", "-S", "/run/driver/was.sock"], check=False).status == 0, 10, "the driver")
    lab.start_collector()
    lab.start_daemon()
    lab.wait_for_family()
    lab.run(["rm", "/run/driver/was.sock"])
    genl = shutil.which("genl", path=lab.space.environment["PATH"])
    if genl:
        lab.run(["mount", "--bind", "/dev/null", genl])
    return lab


def test_a_makers_driver_is_found_without_the_program_genl(kernel_driver_lab, check):
    (kernel_driver_lab.root / "run/maker").mkdir()
    (kernel_driver_lab.root / "run/maker/libwas.so").touch()
    done = check(kernel_driver_lab, libraries="/run/maker")
    assert (done.status, found(done)["ok"]["driver"]) == (0, "the kernel has announced the family TK_STA to wsmd")


def test_a_bridge_that_has_gone_is_missing_although_the_daemon_knew_it(kernel_driver_lab, check):
    assert found(check(kernel_driver_lab))["MISSING"]["driver"].startswith("nobody answers at /var/run/was.sock: start wsm-bridge")


@pytest.mark.parametrize("package, text, said", [
    ("wireless", "", "has no wifi-iface"), ("wifiinfo", "", "neither mtk nor qca"),
    ("wifiinfo", "config wifiinfo 'global'\n\toption sdk 'other'\n", "neither mtk nor qca")],
    ids=["no networks", "no sdk", "another sdk"])
def test_a_configuration_that_finds_no_networks_is_named(open_lab, check, package, text, said):
    done = check(open_lab(config={package: text}))
    assert said in found(done)["MISSING"]["configuration"]


def test_a_daemon_that_ran_before_its_broker_is_told_from_one_that_never_ran(open_lab, check):
    lab = open_lab()
    lab.start_ubusd()
    assert found(check(lab))["MISSING"]["bus"].startswith("the broker has no object sta")


def test_an_unknown_option_is_refused(lab, check):
    done = check(lab, "--loud")
    assert (done.status, done.stderr) == (2, "wsm-check: unknown: --loud\n")
