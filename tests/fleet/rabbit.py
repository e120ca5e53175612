"""A cluster of three brokers of a test's own: everything below a temporary folder, with a cookie and port mappers of their own, so
that they never meet the system's; each is stopped by its process id. Each is at the end of a cable that can be cut; without the rights
for that, all are on loopback."""

import json
import os
import pathlib
import re
import secrets
import shutil
import signal
import subprocess
import tempfile

import cables
from brokers import free_port
from certificates import certificate
from programs import wait

LIB = pathlib.Path("/usr/lib/rabbitmq/bin")
CONFIGURATION = pathlib.Path(__file__).resolve().parents[2] / "packaging/fleet"
# One scheduler each, which does not spin: there are three of them on two processors.
SMALL = "+S 1:1 +sbwt none +sbwtdcpu none +sbwtdio none"
ONLY_HERE = " -kernel inet_dist_use_interface {127,0,0,1}"


class Node:
    def __init__(self, cluster, name, port):
        self.cluster, self.port = cluster, port
        self.name = f"{name}@{name if port else 'localhost'}"
        self.address, self.enter = (port.address, port.enter) if port else ("127.0.0.1", [])
        self.folder = cluster.folder / name
        self.folder.mkdir()
        self.amqp, self.mqtt, self.amqps, self.mqtts = free_port(), free_port(), free_port(), free_port()
        self.environment = {
            **cluster.environment, "RABBITMQ_NODENAME": self.name, "RABBITMQ_MNESIA_BASE": str(self.folder),
            "RABBITMQ_LOG_BASE": str(self.folder), "RABBITMQ_CONFIG_FILE": str(self.folder / "rabbitmq"),
            "RABBITMQ_ADVANCED_CONFIG_FILE": str(CONFIGURATION / "advanced.config"),
            "RABBITMQ_ENABLED_PLUGINS_FILE": str(CONFIGURATION / "enabled_plugins"), "RABBITMQ_DIST_PORT": str(free_port()),
            "RABBITMQ_PID_FILE": str(self.folder / "pid"), "RABBITMQ_SERVER_ADDITIONAL_ERL_ARGS": SMALL + ("" if port else ONLY_HERE)}
        self.shell = None

    def configure(self):
        """The configuration file for a real cluster, with the ports and names of this one."""
        text = (CONFIGURATION / "rabbitmq.conf").read_text()
        text = re.sub(r"^listeners.tcp.default = .*", f"listeners.tcp.1 = {self.address}:{self.amqp}", text, flags=re.M)
        text = re.sub(r"^mqtt.listeners.tcp.default = .*", f"mqtt.listeners.tcp.1 = {self.address}:{self.mqtt}", text, flags=re.M)
        for number, node in enumerate(self.cluster.nodes, 1):
            text = re.sub(rf"^(cluster_formation.classic_config.nodes.{number}) = .*", rf"\1 = {node.name}", text, flags=re.M)
        # TLS beside it. The AMQP library compares names, not addresses, so that the address is the certificate's name.
        certificate(self.cluster.folder, self.folder.name, self.address, names=None)
        text += (f"\nlisteners.ssl.1 = {self.address}:{self.amqps}\nmqtt.listeners.ssl.1 = {self.address}:{self.mqtts}\n"
                 f"ssl_options.cacertfile = {self.cluster.authority}\nssl_options.certfile = {self.cluster.folder / self.folder.name}.crt\n"
                 f"ssl_options.keyfile = {self.cluster.folder / self.folder.name}.key\n")
        # A test's disk need not have two gigabytes to spare.
        text = re.sub(r"^disk_free_limit.absolute = .*", "disk_free_limit.absolute = 50MB", text, flags=re.M)
        (self.folder / "rabbitmq.conf").write_text(text)

    def start(self):
        (self.folder / "pid").unlink(missing_ok=True)
        with open(self.folder / "out", "wb") as out:
            # The process that we started is a shell, which waits for the node: the node's own id is in this file.
            self.shell = subprocess.Popen([*self.enter, LIB / "rabbitmq-server"], env=self.environment, cwd=self.folder, stdin=subprocess.DEVNULL,
                                          stdout=out, stderr=out)

    def wait_until_up(self):
        def up():
            out = (self.folder / "out").read_text(errors="replace")
            assert self.shell.poll() is None, out
            return "Starting broker... completed" in out
        wait(up, self.name)

    @property
    def pid(self):
        return int((self.folder / "pid").read_text())

    def signal(self, number):
        os.kill(self.pid, number)

    def kill(self):
        self.signal(signal.SIGKILL)
        self.shell.wait(60)

    def stop(self):
        if self.shell is None or self.shell.poll() is not None:
            return
        try:
            self.signal(signal.SIGCONT)
            self.signal(signal.SIGKILL)
        except (FileNotFoundError, ProcessLookupError):
            self.shell.kill()
        self.shell.wait(60)

    def ctl(self, *words, program="rabbitmqctl"):
        done = subprocess.run([LIB / program, "-q", "-n", self.name, *words], env=self.environment, cwd=self.folder, check=False,
                              capture_output=True, text=True, timeout=120)
        assert done.returncode == 0, done.stdout + done.stderr
        return done.stdout

    def peers(self):
        """The nodes that it takes for running; none while it is not running itself."""
        try:
            state = self.table("cluster_status")
        except AssertionError:
            return []
        return [] if state["partitions"] else state["running_nodes"]

    def table(self, *words):
        return json.loads(self.ctl(*words, "--formatter", "json"))


class Cluster:
    def __init__(self, size=3):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="wsm-mq-"))
        self.mapper_port = free_port()
        hosts = self.folder / "hosts.erl"
        self.environment = {
            "PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LANG": "C.UTF-8", "HOME": str(self.folder), "ERL_EPMD_PORT": str(self.mapper_port),
            "ERL_INETRC": str(hosts), "RABBITMQ_CONF_ENV_FILE": str(self.folder / "none")}
        cookie = self.folder / ".erlang.cookie"
        cookie.write_text(secrets.token_hex(10))
        cookie.chmod(0o400)
        self.mappers, self.nodes = [], []
        self.cables = cables.Cables() if cables.usable() else None
        try:
            self.nodes = [Node(self, f"broker{number}", self.cables and self.cables.namespace()) for number in range(1, size + 1)]
            hosts.write_text("".join(f'{{host, {{{node.address.replace(".", ",")}}}, ["{node.name.split("@")[1]}"]}}.\n' for node in self.nodes) +
                             "{lookup, [file, native]}.\n")
            self.begin()
        except BaseException:
            self.close()
            raise

    def begin(self):
        self.map_ports([], "127.0.0.1" if not self.cables else self.cables.address)
        for node in self.nodes if self.cables else []:
            self.map_ports(node.enter, node.address)
        certificate(self.folder, "ca", "fleet")
        certificate(self.folder, "other", "another fleet", authority="other")
        for node in self.nodes:
            node.configure()
        first, *others = self.nodes
        first.start()
        first.wait_until_up()
        for node in others:
            node.start()
        for node in others:
            node.wait_until_up()
        wait(lambda: len(first.table("cluster_status")["running_nodes"]) == len(self.nodes), "the cluster")
        self.add_user("fleet", "secret", ".*")

    def map_ports(self, enter, address):
        """Starts a port mapper there."""
        with open(self.folder / "mappers", "ab") as out:
            self.mappers.append(subprocess.Popen([*enter, "epmd", "-port", str(self.mapper_port), "-address", address],
                                                 env=self.environment, stdout=out, stderr=out))

    def add_user(self, name, password, everything):
        self.nodes[0].ctl("add_user", name, password)
        self.nodes[0].ctl("set_permissions", "-p", "/", name, everything, everything, everything)

    def running(self):
        return [node for node in self.nodes if node.shell.poll() is None]

    def split(self, node, others):
        """Nothing passes between this node and the others."""
        node.port.hear_nothing_of([other.port for other in others])
        for other in others:
            other.port.hear_nothing_of([node.port])

    def mend(self):
        for node in self.nodes:
            node.port.hear_all()

    def wait_until_whole(self):
        """Until all nodes know each other again."""
        def whole():
            return all(len(node.peers()) == len(self.nodes) for node in self.nodes)
        wait(whole, "the cluster to be whole again")

    def queue(self, name="wsm-reports", nodes=None):
        """Its figures; nothing when none of these nodes leads it. Each is asked for what it leads itself, which it knows alone."""
        columns = ["name", "type", "leader", "members", "online", "messages"]
        for node in nodes or self.running():
            for row in node.table("list_queues", "--local", *columns):
                if row["name"] == name:
                    return row
        return None

    def node_of(self, name):
        return next(node for node in self.nodes if node.name == name)

    def amqp(self, *, queue="wsm-reports", user="fleet:secret"):
        hosts = ",".join(f"{node.address}:{node.amqp}" for node in self.nodes)
        return f"amqp://{user}@{hosts}/?queue={queue}"

    @staticmethod
    def mqtt(node):
        return f"mqtt://fleet:secret@{node.address}:{node.mqtt}/wsm"

    @property
    def authority(self):
        """Who vouches for the nodes."""
        return self.folder / "ca.crt"

    def amqps(self, *, queue):
        hosts = ",".join(f"{node.address}:{node.amqps}" for node in self.nodes)
        return f"amqps://fleet:secret@{hosts}/?queue={queue}"

    def close(self):
        for node in self.nodes:
            node.stop()
        for mapper in self.mappers:
            mapper.terminate()
            mapper.wait(60)
        if self.cables:
            self.cables.close()
        shutil.rmtree(self.folder, ignore_errors=True)
