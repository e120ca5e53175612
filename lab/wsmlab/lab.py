"""Lab: the access point, under a program's control.

    with Lab(build_dir) as lab:
        lab.start_all()
        lab.apsim("assoc mac=02:00:00:00:00:01 ifname=ath0 radio=0")
        report = lab.wait_for_report(mac="02:00:00:00:00:01", log_type=1)
        print(lab.bus("call", "sta", "get", {"get_all_sta_status": "online"}))
"""

import json
import pathlib
import re
import socket
import time

from . import network
from .space import LabError, Space, Timeout

_ETC = pathlib.Path(__file__).parent.parent / "etc"
_CAPABILITY = "/tmp/tk_device/tk_device.json"
_UNDEFINED = ": runtime error: "
AP_MAC = "02:54:4b:00:00:01"
# For a daemon with a preloaded library: the sanitizer's library is then not the first.
PRELOADING = {"ASAN_OPTIONS": "verify_asan_link_order=0:log_path=/run/sanitizer/wsmd"}


class BusError(LabError):
    """The command-line bus client failed; `status` is its exit status (255 for a handler's -1)."""

    def __init__(self, done):
        super().__init__(repr(done))
        self.status = done.status


class Lab:
    """An access point on which nothing runs yet.

    config      uci package -> its text, instead of the one in lab/etc/config; None leaves the package out
    capability  text of the capability file; None leaves it out
    sys_mac     text of /proc/tk_sys/sys_mac; None leaves it out
    firewall    back end of iptables: nft, legacy, or auto; FirewallUnusable when it does not work here
    files       more files, path -> text
    room_for    stations that the capability file must have room for; it is raised where its limits are lower
    patience    factor for every time limit
    """

    def __init__(self, build_dir, *, config=None, capability=(_ETC / "tk_device/tk_device.json").read_text(),
                 sys_mac=AP_MAC + "\n", firewall="auto", files=None, room_for=0, user_namespace=None,
                 patience=1.0):
        self.build_dir = pathlib.Path(build_dir).resolve()
        if not self.build_dir.is_dir():
            raise LabError(f"{self.build_dir} is not there: build first")
        self.firewall = firewall
        self.patience = patience
        self.user_namespace = user_namespace
        packages = {path.name: path.read_text() for path in (_ETC / "config").iterdir()}
        packages.update(config or {})
        self._layout = {f"/etc/config/{name}": text for name, text in packages.items() if text is not None}
        if capability is not None:
            capability = _with_room(capability, room_for) if room_for else capability
            self._layout[_CAPABILITY] = capability
        if sys_mac is not None:
            self._layout["/proc/tk_sys/sys_mac"] = sys_mac
        self._layout.update(files or {})
        self.space = None
        self.daemon = None
        self.collector = None
        self._reports = []  # of the current collector
        self._new_reports = None
        self._seen = 0      # reports that wait_for_report() has passed

    # --- opening and closing ---

    def __enter__(self):
        self.space = Space(keep=[self.build_dir, _ETC.parent], files=self._layout,
                           environment=network.environment(self.build_dir), user_namespace=self.user_namespace)
        try:
            for folder in ("run/ubus", "run/sanitizer"):
                (self.root / folder).mkdir(parents=True)
            network.bring_up(self.space)
            self.firewall = network.bring_up_firewall(self.space, self.firewall)
        except BaseException:
            self.space.close()
            raise
        return self

    def __exit__(self, kind, *_):
        try:
            if kind is None:
                self.end()
        finally:
            self.space.close()

    def end(self):
        """Stops what still runs, the daemon first, and raises LabError when a sanitizer found something or the daemon
        did not end as it must. Leaks are found only when a program exits normally, so programs are not killed."""
        faults = []
        running = [process for process in self.space.processes if process.running]
        running.sort(key=lambda process: process is not self.daemon)
        for process in running:
            try:
                status = process.stop(10 * self.patience)
            except Timeout as error:
                faults.append(str(error))
                process.kill()
            else:
                if process is self.daemon and status != 1:
                    faults.append(f"the daemon ended with status {status}")
        faults += self.sanitizer_findings()
        if faults:
            raise LabError("\n".join(faults))

    def sanitizer_findings(self):
        """What the sanitizers of all programs have reported so far. Undefined behaviour is reported on standard error only."""
        written = [path.read_text(errors="replace") for path in sorted((self.root / "run/sanitizer").iterdir())]
        printed = (process.err.text() for process in self.space.processes)
        return written + [text for text in printed if _UNDEFINED in text]

    # --- the access point's file system ---

    @property
    def root(self):
        """The lab's /, from outside. Absolute links in it lead out of it: use paths without links."""
        return self.space.root

    @property
    def files(self):
        """The lab's /tmp, from outside."""
        return self.root / "tmp"

    def write_config(self, package, text):
        """Replaces a uci package atomically, as an editor does."""
        path = self.root / "etc/config" / package
        new = path.with_name(f".{package}.new")
        new.write_text(text)
        new.replace(path)

    # --- programs ---

    def run(self, argv, **options):
        """Runs a program in the lab to its end: Space.run()."""
        done = self.space.run(argv, **options)
        if _UNDEFINED in done.stderr:
            raise LabError(repr(done))
        return done

    def start(self, name, argv, **options):
        """Starts a program in the lab: Space.start()."""
        return self.space.start(name, argv, **options)

    def process(self, name):
        """The newest program of this name that was started; None: there was none."""
        return next((one for one in reversed(self.space.processes) if one.name == name), None)

    def start_ubusd(self):
        process = self.start("ubusd", ["ubusd"])
        self._wait_for_socket("/var/run/ubus/ubus.sock", process)
        return process

    def start_apsim(self, *options):
        process = self.start("apsim", ["apsim", *options])
        self._wait_for_socket("/var/run/apsim.sock", process)
        self._wait_for_socket("/var/run/was.sock", process)
        return process

    def start_collector(self, *options):
        self.collector = self.start("wsm-collector", ["wsm-collector", "--json", *options])
        self._reports, self._new_reports, self._seen = [], self.collector.follow(), 0
        self._wait_for_socket("/tmp/sta_server_domain", self.collector)
        return self.collector

    def start_dhcpmon(self, *options):
        process = self.start("dhcpmon", ["dhcpmon", *options])
        self.run(["ubus", "-t", "10", "wait_for", "dhcpmon", "dhcpmon.client.notify"])
        return process

    def start_daemon(self, *, wait=True, environment=None, record=None):
        """Starts the daemon; with `wait`, waits until its start-up is over. `record`: a path in the lab for a recording of
        what the daemon receives."""
        argv = ["wsmd"]
        if record:
            argv = ["wsm-record", "--output", record, "--", *argv]
            environment = {**PRELOADING, **(environment or {})}
        self.daemon = self.start("wsmd", argv, environment=environment)
        if wait:
            self.wait(lambda: self._daemon_has_logged("init finish..") or not self.daemon.running, 30,
                      "the end of the daemon's start-up")
            if not self.daemon.running:
                raise LabError(f"the daemon ended during start-up with status {self.daemon.status}\n"
                               f"{self.daemon.text()}\n" + "\n".join(self.log_lines()[-20:]))
        return self.daemon

    def start_replay(self, recording):
        """Starts the player of a recording, which plays it to the daemon that is started next."""
        # Its path need not be visible in the lab.
        process = self.start("wsm-replay", ["wsm-replay", "--files", "-"],
                             stdin=pathlib.Path(recording).read_bytes())
        try:
            self._wait_for_socket("/var/run/was.sock", process)
        except LabError as error:
            said = process.text().removeprefix("wsm-replay: ").removeprefix("-: ").strip()
            raise LabError(f"{recording}: {said}") from error
        return process

    def replay(self, recording):
        """Broker, collector, and the daemon, to which the recording is played in the driver's place. Returns the player,
        for wait_for_replay()."""
        self.start_ubusd()
        self.start_collector()
        player = self.start_replay(recording)
        self.start_daemon()
        return player

    def replay_is_over(self, player):
        """Whether the player has reached the end of the recording; LabError if the player has exited."""
        if not player.running:
            raise LabError(f"wsm-replay ended with status {player.status}: {player.text()}")
        return "end of the recording" in player.text()

    def wait_for_replay(self, player, timeout):
        """Waits until the recording has been played to its end; returns the player's last line."""
        self.wait(lambda: self.replay_is_over(player), timeout, "the end of the recording")
        return player.lines()[-1]

    def start_all(self, *, dhcpmon=False, environment=None):
        """Broker, driver simulator, collector, and the daemon, which then knows the driver's family. `environment`: more
        variables for the daemon."""
        self.start_ubusd()
        self.start_apsim()
        self.start_collector()
        if dhcpmon:
            self.start_dhcpmon()
        self.start_daemon(environment=environment)
        self.wait_for_family()
        return self

    def _wait_for_socket(self, path, process):
        """Waits until a process listens there. A probe would count as a connection, so the kernel's list of sockets is read."""
        accepting = "00010000"

        def listening():
            if not process.running:
                raise LabError(f"{process.name} ended with status {process.status}: {process.text()}")
            # Num RefCount Protocol Flags Type St Inode Path
            sockets = pathlib.Path(f"/proc/{self.space.init_pid}/net/unix").read_text().splitlines()
            return any(words[-1] == path and words[3] == accepting for words in map(str.split, sockets[1:]))
        self.wait(listening, 10, f"{process.name} to listen at {path}")

    def client(self, name, mac):
        """A wireless client in its own network namespace, attached to the bridge."""
        return network.Client(self, name, mac)

    # --- waiting ---

    def wait(self, predicate, timeout=10, what="it"):
        """Calls `predicate` until it gives something true, and returns that; Timeout after `timeout` seconds."""
        end = time.monotonic() + timeout * self.patience
        pause = 0.002
        while not (value := predicate()):
            if time.monotonic() > end:
                raise Timeout(f"waited {timeout * self.patience:g} s for {what}; last value: {value!r}")
            time.sleep(pause)
            pause = min(pause * 1.5, 0.05)
        return value

    # --- the driver ---

    def apsim(self, line):
        """Sends one command to the driver simulator; returns what follows "ok"; LabError with its text on "error"."""
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as connection:
            connection.settimeout(20 * self.patience)
            connection.connect(str(self.root / "run/apsim.sock"))
            connection.sendall(line.encode("utf-8", "surrogateescape") + b"\n")
            answer = bytearray()
            while not answer.endswith(b"\n"):
                chunk = connection.recv(1 << 16)
                if not chunk:
                    raise LabError(f"apsim hung up on {line!r} after {bytes(answer)!r}")
                answer += chunk
        word, _, rest = answer.decode("utf-8", "replace").rstrip("\n").partition(" ")
        if word != "ok":
            raise LabError(f"apsim {line!r}: {rest or word}")
        return rest

    def stations(self):
        """The driver's own stations, to compare the daemon's table with."""
        return json.loads(self.apsim("list"))

    def driver_requests(self):
        """The requests that the driver has received so far: a list of {cmd, size, ifname, ...}."""
        return json.loads(self.apsim("log"))

    def wait_for_family(self):
        """Waits until the daemon has registered with the driver's family."""
        self.wait(lambda: self._daemon_has_logged("Creat a new g_sta."), 10, "the daemon to learn of the family")

    def _daemon_has_logged(self, text):
        """Only lines of the current daemon, not of an earlier one."""
        return any(f"[{self.daemon.pid}]" in line and text in line for line in self.log_lines())

    # --- the collector ---

    def reports(self):
        """Every report that the collector has printed so far, decoded, in order."""
        self._reports += [json.loads(line) for line in self._new_reports.take() if line.startswith("{")]
        return self._reports

    def wait_for_report(self, timeout=10, **members):
        """Waits for a report with these members, later than the one returned before; returns it."""
        def found():
            reports = self.reports()
            for number in range(self._seen, len(reports)):
                if all(reports[number].get(name) == value for name, value in members.items()):
                    self._seen = number + 1
                    return reports[number]
            return None
        return self.wait(found, timeout, f"a report with {members}")

    # --- the bus ---

    def bus(self, command, *arguments, timeout=20):
        """Runs the command-line bus client; tables and lists among the arguments become JSON. Returns the parsed
        reply, or the printed lines if they are not JSON; None when nothing is printed."""
        words = [json.dumps(word) if isinstance(word, (dict, list)) else str(word) for word in arguments]
        done = self.run(["ubus", "-S", command, *words], check=False, timeout=timeout * self.patience)
        if done.status != 0:
            raise BusError(done)
        if not done.stdout.strip():
            return None
        return json.loads(done.stdout) if command == "call" else done.stdout.splitlines()

    def online(self, mac=None):
        """The daemon's station list, by MAC."""
        question = {"get_all_sta_status": "online", **({"get_sta_mac": mac} if mac else {})}
        return {station["mac"]: station for station in self.bus("call", "sta", "get", question)["online_list"]}

    def watch_bus(self):
        """Starts to collect every event and every notification of the object sta; returns a BusWatch."""
        return BusWatch(self)

    # --- the log ---

    def log_lines(self):
        """The daemon's log, the old generation first."""
        lines = []
        for name in ("sta.log.0", "sta.log"):
            try:
                lines += (self.files / name).read_text(errors="replace").splitlines()
            except FileNotFoundError:
                pass
        return lines

    def logged(self, text):
        """How many log lines hold the text."""
        return sum(text in line for line in self.log_lines())

    def wait_for_log(self, text, count=1, timeout=10):
        """Waits until `count` lines of the log hold the text."""
        self.wait(lambda: self.logged(text) >= count, timeout, f"{count} × {text!r} in the log")

    # --- the firewall ---

    def firewall_rules(self, table):
        """The table's chains and rules as iptables-save prints them, without counters and comments."""
        lines = self.run(["iptables-save", "-t", table]).stdout.splitlines()
        return [re.sub(r" \[\d+:\d+\]$", "", line) for line in lines if line[:1] in (":", "-")]

    # --- when a test has failed ---

    def tails(self, count=40):
        """The last lines of every log, by name."""
        logs = {f"{process.name} [{process.pid}] status {process.status}": _tail(process.text().splitlines(), count)
                for process in self.space.processes}
        logs["/tmp/sta.log"] = _tail(self.log_lines(), count)
        for number, finding in enumerate(self.sanitizer_findings()):
            logs[f"sanitizer {number}"] = finding
        return logs

    def keep_logs(self, folder):
        """Writes every log whole into `folder`."""
        folder = pathlib.Path(folder)
        folder.mkdir(parents=True, exist_ok=True)
        for number, process in enumerate(self.space.processes):
            (folder / f"{number}-{process.name}.log").write_bytes(process.out.bytes())
        (folder / "sta.log").write_text("\n".join(self.log_lines()) + "\n")
        for number, finding in enumerate(self.sanitizer_findings()):
            (folder / f"sanitizer-{number}.log").write_text(finding)


def _with_room(capability, stations):
    """The capability file's text with limits that let so many stations in."""
    file = json.loads(capability)
    radios = file["wireless"]["radiolist"]
    radios[-1]["sta_limit_max"] += max(0, stations - sum(radio["sta_limit_max"] for radio in radios))
    return json.dumps(file)


class BusWatch:
    """What passes on the bus while it runs: `events` by `ubus listen`, `notifications` of the object sta by
    `ubus subscribe`. An event is a pair of name and members, a notification its members."""

    def __init__(self, lab):
        self.lab = lab
        self._events, self._notifications = [], []
        self._subscriber = self._notified = None
        self._listener = lab.start("ubus listen", ["ubus", "listen"])
        self._heard = self._listener.follow()
        # It is ready when it prints an event.
        self._speak_until(self._listener.text, "the listener on the bus")

    def subscribe(self):
        """Subscribes to the object sta, which must exist; returns itself once it is subscribed."""
        monitor = self.lab.start("ubus monitor", ["ubus", "-m", "invoke", "-m", "subscribe", "monitor"])
        self._speak_until(monitor.text, "the monitor of the bus")
        self._subscriber = self.lab.start("ubus subscribe sta", ["ubus", "subscribe", "sta"])
        self._notified = self._subscriber.follow()
        self.lab.wait(lambda: " subscribe: " in monitor.text(), 10, "the subscription to sta")
        monitor.stop()
        return self

    def stop(self):
        for process in (self._listener, self._subscriber):
            if process:
                process.stop()

    def _speak_until(self, heard, what):
        def spoken():
            self.lab.bus("send", "lab.ready", {})
            return heard()
        self.lab.wait(spoken, 10, what)

    @property
    def events(self):
        self._events += [event for event in _members(self._heard) if event[0] != "lab.ready"]
        return self._events

    @property
    def notifications(self):
        self._notifications += [members for _, members in _members(self._notified)]
        return self._notifications

    def wait_for_event(self, name, timeout=10, **members):
        def found():
            for event, values in self.events:
                if event == name and all(values.get(key) == value for key, value in members.items()):
                    return values
            return None
        return self.lab.wait(found, timeout, f"the event {name} with {members}")

    def wait_for_notification(self, timeout=10, **members):
        def found():
            for values in self.notifications:
                if all(values.get(key) == value for key, value in members.items()):
                    return values
            return None
        return self.lab.wait(found, timeout, f"a notification with {members}")


def _members(follower):
    """Name and members of what `ubus listen` and `ubus subscribe` print, one JSON object with one member per line."""
    return [next(iter(json.loads(line).items())) for line in follower.take()]


def _tail(lines, count):
    return "\n".join(line[:300] for line in lines[-count:])
