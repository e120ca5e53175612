"""The lab itself: its files, that it is cut off from the machine, and that nothing of it stays behind."""

import contextlib
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import textwrap
import time

import pytest

from wsmlab import FirewallUnusable, Lab, LabError, Timeout, network

LAB_FOLDER = pathlib.Path(__file__).resolve().parents[2] / "lab"


def namespaces_of(process):
    found = set()
    for kind in ("mnt", "net", "pid"):
        with contextlib.suppress(OSError):  # it has ended meanwhile
            found.add(os.readlink(f"/proc/{process}/ns/{kind}"))
    return found


def namespaces():
    """The namespaces of every process on this machine."""
    return set().union(*(namespaces_of(process) for process in os.listdir("/proc") if process.isdigit()))


class KeptNamespace:
    """A namespace of a process by its `name`, which stays its own as long as this is open: the kernel gives the number of one that
    has gone to the next, maybe of another test's lab."""

    def __init__(self, pid, kind):
        self._open = open(f"/proc/{pid}/ns/{kind}", "rb")
        self.name = os.readlink(f"/proc/self/fd/{self._open.fileno()}")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._open.close()


def wait_until(predicate, limit=10):
    end = time.monotonic() + limit
    while not predicate():
        assert time.monotonic() < end
        time.sleep(0.01)


def test_the_access_point_has_its_files_in_their_absolute_places(lab):
    assert lab.run(["cat", "/proc/tk_sys/sys_mac"]).stdout == "02:54:4b:00:00:01\n"
    assert lab.run(["sh", "-c", "echo /etc/config/*"]).stdout.split() == [
        f"/etc/config/{name}" for name in ("debug", "sysinfo", "system", "wifiinfo", "wireless", "wsmd")]
    assert '"radiolist"' in lab.run(["cat", "/tmp/tk_device/tk_device.json"]).stdout


def test_configuration_files_can_be_written_inside_and_replaced_from_outside(lab):
    lab.run(["sh", "-c", "echo changed > /etc/config/system"])
    lab.write_config("sysinfo", "replaced\n")
    assert lab.run(["cat", "/etc/config/system", "/etc/config/sysinfo"]).stdout == "changed\nreplaced\n"


def test_options_replace_and_leave_out_files(open_lab):
    lab = open_lab(config={"system": "mine\n", "wifiinfo": None}, capability=None, sys_mac=None,
                   files={"/tmp/dhcp.leases": "a lease\n"})
    assert lab.run(["cat", "/etc/config/system", "/tmp/dhcp.leases"]).stdout == "mine\na lease\n"
    for path in ("/etc/config/wifiinfo", "/tmp/tk_device/tk_device.json", "/proc/tk_sys/sys_mac"):
        assert lab.run(["test", "-e", path], check=False).status == 1


def test_a_lab_hides_the_configuration_of_the_machine(build_dir):
    program = textwrap.dedent(f"""
        import sys
        sys.path.insert(0, {str(LAB_FOLDER)!r})
        from wsmlab import Lab
        with Lab({str(build_dir)!r}, config={{"wifiinfo": None}}) as lab:
            print(lab.run(["sh", "-c", "echo /etc/config/wi*"]).stdout, end="")""")
    machine = ("mount -t tmpfs lab /mnt && mkdir /mnt/new /mnt/work && "
               "mount -t overlay lab -o lowerdir=/etc,upperdir=/mnt/new,workdir=/mnt/work /etc || exit 77; "
               'mkdir -p /etc/config; touch /etc/config/wifiinfo; exec "$0" -c "$1"')
    own_namespace = ["unshare", "--mount", *(["--user", "--map-root-user"] if os.geteuid() != 0 else [])]
    done = subprocess.run([*own_namespace, "sh", "-c", machine, sys.executable, program], capture_output=True,
                          text=True, check=False)
    if done.returncode == 77:
        pytest.skip(f"no overlay of /etc on this kernel: {done.stderr.strip()}")
    assert done.stdout == "/etc/config/wireless\n", done.stderr


def test_the_machines_tmp_and_run_are_not_seen(lab, tmp_path):
    (tmp_path / "outside").write_text("x")
    assert lab.run(["test", "-e", tmp_path / "outside"], check=False).status == 1
    assert sorted(path.name for path in (lab.root / "run").iterdir()) == ["lab", "sanitizer", "ubus"]


def test_proc_shows_the_labs_processes_and_no_others(lab):
    sleeper = lab.start("sleeper", ["sleep", "1000"])
    lab.wait(lambda: lab.run(["cat", f"/proc/{sleeper.pid}/comm"]).stdout == "sleep\n", what="its name")
    assert lab.run(["sh", "-c", "cat /proc/self/comm; head -c 2 /proc/net/netlink"]).stdout == "cat\nsk"
    seen = lab.run(["ps", "-e", "-o", "comm="]).stdout.split()
    assert sorted(seen) == ["ps", "python3", "sleep"]


def test_proc_knows_a_process_after_thousands_have_been_started(lab):
    lab.run(["sh", "-c", "i=0; while [ $i -lt 9000 ]; do (:); i=$((i+1)); done"], timeout=120)
    sleeper = lab.start("sleeper", ["sleep", "1000"])
    assert sleeper.pid > 9000
    lab.wait(lambda: lab.run(["cat", f"/proc/{sleeper.pid}/comm"], check=False).stdout == "sleep\n")


def test_the_network_is_the_access_points_own(lab):
    links = lab.run(["ip", "-o", "link"]).stdout
    assert [line.split(": ")[1] for line in links.splitlines()] == ["lo", "br-lan"]
    assert "192.168.10.1/24" in lab.run(["ip", "-o", "address", "show", "br-lan"]).stdout


def test_a_client_talks_to_the_access_point_from_a_network_of_its_own(lab):
    client = lab.client("phone", "02:00:00:00:00:10")
    client.set_address("192.168.10.20")
    server = lab.start("server", ["/usr/bin/python3", "-c", textwrap.dedent("""
        import socket
        with socket.create_server(("192.168.10.1", 4000)) as listener:
            print("ready", flush=True)
            print(listener.accept()[1][0])""")])
    lab.wait(server.text, what="the server")
    client.run(["/usr/bin/python3", "-c", "import socket; socket.create_connection(('192.168.10.1', 4000), 10)"])
    assert server.wait() == 0
    assert server.text() == "ready\n192.168.10.20\n"


@pytest.mark.parametrize("backend", ["nft", "legacy"])
def test_the_firewall_has_the_systems_chain_for_clients(open_lab, backend):
    try:
        lab = open_lab(firewall=backend)
    except FirewallUnusable as error:
        pytest.skip(str(error))
    assert lab.firewall == backend
    assert lab.firewall_rules("nat") == [
        ":PREROUTING ACCEPT", ":INPUT ACCEPT", ":OUTPUT ACCEPT", ":POSTROUTING ACCEPT", ":prerouting_lan -",
        "-A PREROUTING -i br-lan -j prerouting_lan", "-A POSTROUTING -o wan -j MASQUERADE"]
    assert ("nf_tables" in lab.run(["iptables", "--version"]).stdout) == (backend == "nft")


def test_a_program_gets_its_input_and_gives_its_output_and_status(lab):
    done = lab.run(["sh", "-c", "cat; echo bad >&2; exit 7"], stdin=b"given", check=False)
    assert (done.status, done.stdout, done.stderr) == (7, "given", "bad\n")


def test_the_status_of_a_program_ended_by_a_signal_is_minus_the_signal(lab):
    process = lab.start("sleeper", ["sleep", "1000"])
    process.signal(signal.SIGTERM)
    assert process.wait() == -signal.SIGTERM


def test_a_program_that_is_not_there_is_an_error_that_names_it(lab):
    with pytest.raises(LabError, match="no-such-program: No such file"):
        lab.run(["no-such-program"])


def test_programs_start_with_the_signals_of_a_fresh_process(lab):
    masks = lab.run(["grep", "-E", "^Sig(Blk|Ign)", "/proc/self/status"]).stdout
    classic_signals = (1 << 31) - 1
    assert [int(line.split()[1], 16) & classic_signals for line in masks.splitlines()] == [0, 0]


def test_waiting_in_vain_says_for_what(lab):
    with pytest.raises(Timeout, match="waited 0.* s for rain; last value: 0"):
        lab.wait(lambda: 0, timeout=0.05, what="rain")


def test_a_closed_lab_leaves_no_process_mount_or_namespace(build_dir):
    mounts = pathlib.Path("/proc/mounts").read_text()
    with contextlib.ExitStack() as kept:
        with Lab(build_dir) as lab:
            lab.client("phone", "02:00:00:00:00:10")
            lab.start("sleeper", ["sleep", "1000"])
            lab.run(["sh", "-c", "setsid sleep 1000 & :"])
            inside = {kept.enter_context(KeptNamespace(lab.space.init_pid, kind)).name for kind in ("mnt", "net", "pid")}
            assert not inside & namespaces_of("self")
        assert not inside & namespaces()
    assert pathlib.Path("/proc/mounts").read_text() == mounts


@pytest.mark.parametrize("how", [signal.SIGKILL, signal.SIGTERM, signal.SIGINT])
def test_a_lab_ends_with_the_program_that_opened_it(build_dir, how):
    program = textwrap.dedent(f"""
        import sys, time
        sys.path.insert(0, {str(LAB_FOLDER)!r})
        from wsmlab import Lab
        with Lab({str(build_dir)!r}) as lab:
            lab.start("sleeper", ["sleep", "1000"])
            print(lab.space.init_pid, flush=True)
            time.sleep(1000)""")
    with subprocess.Popen([sys.executable, "-c", program], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                          text=True) as owner:
        with KeptNamespace(owner.stdout.readline().strip(), "pid") as inside:
            owner.send_signal(how)
            owner.wait(10)
            wait_until(lambda: inside.name not in namespaces())


def test_what_a_sanitizer_writes_fails_the_test(build_dir):
    with pytest.raises(LabError, match="heap-use-after-free"):
        with Lab(build_dir) as lab:
            lab.run(["sh", "-c", "echo heap-use-after-free > /run/sanitizer/report.77"])


def test_undefined_behaviour_fails_the_test_wherever_it_is_told(build_dir):
    line = "x.cpp:5:1: runtime error: signed integer overflow"
    with pytest.raises(LabError, match="signed integer overflow"):
        with Lab(build_dir) as lab:
            lab.run(["sh", "-c", f"echo '{line}' >&2"], check=False)
    with pytest.raises(LabError, match="signed integer overflow"):
        with Lab(build_dir) as lab:
            lab.start("server", ["sh", "-c", f"echo '{line}' >&2"]).wait()


def test_everything_runs_in_a_user_namespace(open_lab):
    if subprocess.run(["unshare", "--user", "--map-root-user", "true"], check=False).returncode != 0:
        pytest.skip("no user namespaces here")
    lab = open_lab(user_namespace=True).start_all(dhcpmon=True)
    network.start_dhcp_server(lab)
    address = lab.client("phone", "02:00:00:00:00:10").ask_for_address("phone")
    lab.apsim("assoc mac=02:00:00:00:00:10 ifname=ath0 radio=0")
    lab.wait_for_report(mac="02:00:00:00:00:10", log_type=1)
    lab.wait(lambda: lab.online()["02:00:00:00:00:10"]["ip"] == address, 15, "the address")
    assert lab.daemon.stop() == 1
    assert [rule for rule in lab.firewall_rules("mangle") if rule.startswith("-A")] == []


def test_a_lab_opens_for_a_user_who_is_not_root(build_dir):
    if os.geteuid() != 0:
        pytest.skip("every other test shows it: the tests do not run as root")
    program = textwrap.dedent(f"""
        import sys
        sys.path.insert(0, {str(LAB_FOLDER)!r})
        from wsmlab import Lab
        with Lab({str(build_dir)!r}) as lab:
            client = lab.client("phone", "02:00:00:00:00:10")
            client.set_address("192.168.10.20")
            print(lab.run(["cat", "/proc/tk_sys/sys_mac"]).stdout.strip(), lab.firewall_rules("nat")[-2])""")
    tried = subprocess.run(["runuser", "-u", "nobody", "--", "unshare", "--user", "--map-root-user", "true"],
                           capture_output=True, text=True, check=False)
    if tried.returncode != 0:
        pytest.skip(f"no user namespaces for ordinary users here: {tried.stderr.strip()}")
    for path in (LAB_FOLDER, build_dir):
        if subprocess.run(["runuser", "-u", "nobody", "--", "test", "-r", path, "-a", "-x", path],
                          check=False).returncode != 0:
            pytest.skip(f"{path} cannot be read by an ordinary user")
    done = subprocess.run(["runuser", "-u", "nobody", "--", sys.executable, "-B", "-c", program],
                          capture_output=True, text=True, timeout=60, check=False)
    assert done.stdout == "02:54:4b:00:00:01 -A PREROUTING -i br-lan -j prerouting_lan\n", done.stderr


def test_the_tools_that_the_lab_needs_are_there():
    path = os.environ["PATH"] + ":/usr/sbin:/sbin"
    for tool in ("unshare", "nsenter", "ip", "iptables", "dnsmasq", "udhcpc"):
        assert shutil.which(tool, path=path), f"{tool} is missing: ./test installs it"
