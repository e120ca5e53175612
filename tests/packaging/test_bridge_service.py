"""wsm-bridge under a supervisor: the settings of its unit, and the program as its own user with its one capability."""

import json
import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess

import pytest

USER, STRANGER = 4712, 65534
WAIT = 30
AS_ITS_USER = ["unshare", "--net", "setpriv", f"--reuid={USER}", f"--regid={USER}", "--clear-groups",
               "--bounding-set=-all,+net_admin", "--inh-caps=-all,+net_admin", "--ambient-caps=-all,+net_admin", "--no-new-privs"]
ASK = """import socket, struct, sys
s = socket.socket(socket.AF_UNIX)
s.settimeout(30)
s.connect(sys.argv[1])
s.sendall(struct.pack("=iiI", 5, 0, 0).ljust(int(sys.argv[2]), b"\\0"))
print(struct.unpack("=i", s.recv(4))[0])"""


def unit(tree, name):
    """The settings of a unit file; those given more than once as the last one."""
    lines = (tree / "packaging/systemd" / name).read_text(encoding="utf-8").splitlines()
    return dict(line.split("=", 1) for line in lines if "=" in line and not line.startswith("#"))


def test_the_unit_gives_it_one_right_and_a_user(tree):
    settings = unit(tree, "wsm-bridge.service")
    assert settings["User"] == "wsm-bridge"
    assert settings["CapabilityBoundingSet"] == settings["AmbientCapabilities"] == "CAP_NET_ADMIN"
    assert settings["NoNewPrivileges"] == "yes" and settings["ProtectSystem"] == "strict"


def test_one_that_has_stopped_is_ended_by_a_signal_that_it_obeys(tree):
    settings = unit(tree, "wsm-bridge.service")
    assert settings["Type"] == "notify"
    assert 2 <= int(settings["WatchdogSec"]) <= 30, "it gives a sign in each second"
    assert settings["WatchdogSignal"] == "SIGKILL"
    assert settings["Restart"] == "always"
    assert settings["RuntimeDirectoryPreserve"] == "restart", "its memory outlives it"


def test_the_units_are_understood_and_closed_to_the_rest_of_the_system(installed, tmp_path):
    if not (installed / "sbin/wsm-bridge").exists():
        pytest.skip("built without the bridge")
    if shutil.which("systemd-analyze") is None:
        pytest.skip("systemd is not installed")
    text = (installed / "lib/systemd/system/wsm-bridge.service").read_text(encoding="utf-8")
    copy = tmp_path / "wsm-bridge.service"  # with a program that is there
    copy.write_text(text.replace("ExecStart=wsm-bridge", f"ExecStart={installed}/sbin/wsm-bridge"), encoding="utf-8")
    done = subprocess.run(["systemd-analyze", "verify", "--man=no", copy], capture_output=True, text=True, check=False)
    assert not [line for line in done.stderr.splitlines() if "wsm-bridge.service" in line], done.stderr
    done = subprocess.run(["systemd-analyze", "security", "--offline=true", "--threshold=40", copy], capture_output=True, text=True,
                          check=False)
    assert done.returncode == 0, done.stdout + done.stderr


def test_without_a_capability_file_one_is_made_with_a_limit_for_each_radio(tree):
    lines = (tree / "packaging/systemd/wsmd.tmpfiles").read_text(encoding="utf-8").splitlines()
    kind, path, mode, user, group, _, text = next(line for line in lines if line.startswith("f ")).split(None, 6)
    assert (path, mode, user, group) == ("/tmp/tk_device/tk_device.json", "0644", "root", "root")
    assert "%" not in text and "\\" not in text  # these have a special meaning in a unit file
    radios = json.loads(text)["wireless"]["radiolist"]
    assert [radio["sta_limit_max"] for radio in radios] == [256, 256]


# --- at work ---

class Service:
    """The bridge as its supervisor starts it: its own user, one capability, its own folder, and a link at the daemon's path."""

    def __init__(self, program, folder, libraries):
        self.folder = folder
        own = folder / "wsm-bridge"
        own.mkdir()
        os.chown(own, USER, 0)
        own.chmod(0o2750)
        (folder / "was.sock").symlink_to("wsm-bridge/was.sock")
        self.signs = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.signs.settimeout(WAIT)
        self.signs.bind(str(folder / "signs"))
        (folder / "signs").chmod(0o666)
        environment = dict(os.environ, NOTIFY_SOCKET=str(folder / "signs"), LD_LIBRARY_PATH=str(libraries))
        self.log = (folder / "log").open("wb")
        self.process = subprocess.Popen(
            [*AS_ITS_USER, program, "--socket", own / "was.sock", "--memory", own / "stations", "--control", folder],
            stdin=subprocess.DEVNULL, stdout=self.log, stderr=self.log, env=environment)

    def sign(self):
        return self.signs.recv(64).decode()

    def ask(self, user, group):
        """What the bridge answers to a process without capabilities over files; None when it cannot connect."""
        done = subprocess.run(
            ["setpriv", f"--reuid={user}", f"--regid={group}", "--clear-groups", "--bounding-set=-all", "--inh-caps=-all",
             "/usr/bin/python3", "-c", ASK, self.folder / "was.sock", "48"], capture_output=True, text=True, check=False)
        return int(done.stdout) if done.returncode == 0 else None

    def end(self):
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait()
        self.signs.close()
        self.log.close()


@pytest.fixture
def service(build_dir, tmp_path, sanitized):
    program = build_dir / "bin/wsm-bridge"
    if os.geteuid() != 0:
        pytest.skip("only root can be somebody else")
    if not program.exists():
        pytest.skip("built without the bridge")
    if subprocess.run([*AS_ITS_USER, "true"], capture_output=True, check=False).returncode != 0:
        pytest.skip("no right to give away")
    for folder in (tmp_path, *tmp_path.parents):  # the other users must be able to enter these
        if folder.stat().st_uid == os.geteuid() and folder.parent != folder and "pytest" in str(folder):
            folder.chmod(0o755)
    one = Service(program, tmp_path, build_dir / "lib")
    yield one
    one.end()


def rights(process):
    """The effective capabilities of a process, a bit for each."""
    status = pathlib.Path(f"/proc/{process.pid}/status").read_text(encoding="utf-8")
    return int(re.search(r"^CapEff:\t(\w+)$", status, re.M)[1], 16)


def test_it_says_that_it_has_started_and_in_each_second_that_it_is_alive(service):
    signs = [service.sign() for _ in range(3)]
    assert "READY=1" in signs
    assert signs.count("WATCHDOG=1") == 2
    service.process.send_signal(signal.SIGSTOP)
    service.signs.settimeout(1.5)
    with pytest.raises(TimeoutError):
        while True:  # what was on its way
            service.sign()
    service.process.kill()
    assert service.process.wait(WAIT) == -signal.SIGKILL


def test_it_answers_the_daemon_without_rights_over_files_and_no_stranger(service):
    while service.sign() != "READY=1":
        pass
    assert rights(service.process) == 1 << 12  # CAP_NET_ADMIN
    # There are no radios: when asked for the number of stations the bridge answers that there is no such interface.
    assert service.ask(0, 0) < 0
    assert service.ask(STRANGER, STRANGER) is None


def test_it_leaves_no_socket_behind_and_keeps_its_memory(service):
    while service.sign() != "READY=1":
        pass
    service.process.terminate()
    assert service.process.wait(WAIT) == 0
    assert sorted(path.name for path in (service.folder / "wsm-bridge").iterdir()) == ["stations"]
