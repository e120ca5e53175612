"""A fleet, a cluster of brokers, two collectors and a database, of which one after the other fails. The fleet's ledger has
all reports that it made; after each failure the store has exactly that."""

import pathlib
import re
import shlex
import signal
import subprocess
import time

import pika

from images import mac, told
from programs import connect, wait


def test_nothing_fails(running):
    running.end_and_compare("nothing fails")


def test_a_collector_is_killed(running):
    since = time.monotonic()
    running.collectors[0].stop(signal.SIGKILL)
    running.wait_until_stored(200)
    recovery = running.recovery(since)
    running.collector()
    running.end_and_compare("kill -9 of a collector", recovery=recovery)


def restart(node):
    node.start()
    node.wait_until_up()


def test_a_node_of_the_broker_is_killed(running):
    leader = running.cluster.queue(running.queue)["leader"]
    node = next(node for node in running.cluster.nodes[:2] if node.name != leader)  # half of the fleet is there
    since = time.monotonic()
    node.kill()
    running.wait_until_stored(200)  # of the other half
    restart(node)
    running.end_and_compare("kill -9 of a broker node", recovery=running.recovery(since))


def test_the_leader_of_the_queue_is_killed(running):
    node = running.cluster.node_of(running.cluster.queue(running.queue)["leader"])
    since = time.monotonic()
    node.kill()
    wait(lambda: (running.cluster.queue(running.queue) or {}).get("leader") not in ("", None, node.name), "another leader")
    print(f"\nanother leader after {time.monotonic() - since:.1f} s")
    restart(node)
    running.end_and_compare("kill -9 of the queue's leader", recovery=running.recovery(since))


def test_the_database_is_killed(running):
    since = time.monotonic()
    running.postgres.stop(signal.SIGKILL)
    before = running.sent()
    wait(lambda: running.sent() > before + 300, "reports that cannot be stored")
    running.postgres.start()
    running.end_and_compare("kill -9 of the database", recovery=running.recovery(since))


def test_a_node_answers_nobody_for_a_minute(running):
    """A node is stopped, so that its connections stay open and silent, like those of a node behind a dead link."""
    node = running.cluster.node_of(running.cluster.queue(running.queue)["leader"])
    since = time.monotonic()
    node.signal(signal.SIGSTOP)
    try:
        time.sleep(60)
    finally:
        node.signal(signal.SIGCONT)
    running.end_and_compare("a broker node, the queue's leader, silent for a minute", recovery=running.recovery(since))


CUT = {"seconds": 90}  # the fleet goes on all the while


def test_the_network_between_the_nodes_is_cut_for_a_minute(run, access_points, with_cables):  # pylint: disable=unused-argument
    """The queue's leader and the two others do not hear each other, while access points and collectors reach all three."""
    access_points.live(1)
    running = run(**CUT)
    cluster = running.cluster
    leader = cluster.node_of(cluster.queue(running.queue)["leader"])
    others = [node for node in cluster.nodes if node is not leader]
    cluster.split(leader, others)
    since = time.monotonic()
    try:
        wait(lambda: cluster.queue(running.queue, others), "another leader")
        print(f"\nanother leader after {time.monotonic() - since:.1f} s")
        running.wait_until_stored(200)  # of the majority's half
        access_points.live(10)
        time.sleep(max(0, since + 60 - time.monotonic()))
    finally:
        cluster.mend()
    mended = time.monotonic()
    access_points.live(20)
    recovery = running.recovery(mended)
    running.end_and_compare("the leader's network to the other nodes cut for a minute", recovery=recovery)
    cluster.wait_until_whole()


def test_a_node_s_cable_is_pulled_for_a_minute(run, with_cables):  # pylint: disable=unused-argument
    running = run(**CUT)
    node = running.cluster.nodes[0]  # half of the fleet is there
    node.port.pull()
    since = time.monotonic()
    try:
        running.wait_until_stored(200)  # of the other half
        time.sleep(max(0, since + 60 - time.monotonic()))
    finally:
        node.port.plug()
    running.end_and_compare("a broker node's cable pulled for a minute", recovery=running.recovery(time.monotonic()))
    running.cluster.wait_until_whole()


def test_three_whole_access_points_are_in_the_store_beside_the_simulated_ones(run, access_points):
    running = run()
    access_points.live(1)
    access_points.live(10)
    running.end_and_compare("three whole access points beside 50 simulated ones")


def test_the_database_is_slow(running):
    """A lock blocks every write."""
    since = time.monotonic()
    session = running.postgres.session(running.name)
    session.stdin.write("BEGIN; LOCK TABLE report IN ACCESS EXCLUSIVE MODE; SELECT 'locked';\n")
    session.stdin.flush()
    assert session.stdout.readline() == "locked\n"
    before = running.sent()
    wait(lambda: running.sent() > before + 1000, "reports that cannot be stored")
    # The broker keeps what is not stored. It counts every few seconds.
    waiting = wait(lambda: (count := running.cluster.queue(running.queue)["messages"]) >= 500 and count, "messages in the queue")
    session.stdin.write("COMMIT;\n\\q\n")
    session.stdin.flush()
    assert session.wait(60) == 0
    running.end_and_compare(f"a database that takes nothing, while {waiting} reports wait in the queue", recovery=running.recovery(since))


def test_what_is_no_report_is_set_aside_with_its_reason(running):
    node = running.cluster.nodes[0]
    for payload in ("no report", "{}"):
        subprocess.run(["mosquitto_pub", "-h", node.address, "-p", str(node.mqtt), "-u", "fleet", "-P", "secret", "-q", "1", "-m", payload,
                        "-t", f"{running.name}/report/02:54:4b:00:00:01"], check=True, timeout=60)
    wait(lambda: (running.cluster.queue(running.queue + ".refused") or {}).get("messages") == 2, "what was set aside")
    link = pika.BlockingConnection(pika.ConnectionParameters(node.address, node.amqp, credentials=pika.PlainCredentials("fleet", "secret")))
    channel = link.channel()
    found = {}
    for _ in range(2):
        _, properties, body = channel.basic_get(running.queue + ".refused", auto_ack=True)
        found[body] = {name: value for name, value in properties.headers.items() if not name.startswith("x-")}
    link.close()
    key = f"{running.name}.report.02:54:4b:00:00:01"
    assert found == {b"no report": {"reason": "no JSON object", "routing-key": key}, b"{}": {"reason": "ssid is missing", "routing-key": key}}
    running.end_and_compare("two messages that are no reports")
    assert sum(one.err.read_text().count("a message is set aside") for one in running.collectors) == 2


def test_all_of_it_is_encrypted(whole):
    """Access points by mqtts://, collectors by amqps://."""
    cluster, vouched = whole.cluster, ["--subscribe-ca", whole.cluster.authority]
    collectors = [whole.collector(*vouched, url=cluster.amqps(queue=whole.queue)) for _ in range(2)]
    node = cluster.nodes[0]
    whole.fleet(node, to=f"mqtts://fleet:secret@{node.address}:{node.mqtts}/{whole.name}", more=["--ca", cluster.authority])
    whole.end_and_compare("TLS from access points to collectors")
    assert [one.stop() for one in collectors] == [0, 0]


def test_a_node_without_a_trusted_certificate_gets_no_connection(cluster, start, build_dir):
    url = cluster.amqps(queue="unknown")
    one = start([build_dir / "bin/wsm-collector", "--quiet", "--subscribe", url, "--subscribe-ca", cluster.folder / "other.crt"])
    wait(lambda: "subscribe: " in one.err.read_text(), "the refusal")
    print("\n" + one.err.read_text().strip())
    assert "certificate" in one.err.read_text().lower() or "SSL" in one.err.read_text()
    assert one.stop() == 0
    assert "subscribed" not in one.err.read_text()
    assert not cluster.queue("unknown")


def commands_of_the_manual():
    """The commands of docs/fleet.md that grant rights, as lists of words."""
    text = (pathlib.Path(__file__).resolve().parents[2] / "docs/fleet.md").read_text(encoding="utf-8")
    return [shlex.split(line)[1:] for line in text.splitlines() if re.match(r"rabbitmqctl (add_user|set_\w*permissions) ", line)]


def test_with_the_manuals_rights_an_access_point_publishes_only_its_own(cluster, start, build_dir, tmp_path):
    one, other = "02:54:4b:00:00:01", "02:54:4b:00:00:02"
    commands = commands_of_the_manual()
    assert len(commands) == 5
    for words in [*commands, *([word.replace(one, other) for word in words] for words in commands[2:])]:
        cluster.nodes[0].ctl(*words)
    url = cluster.amqp(user="wsm-collector:PASSWORD") + "&prefix=wsm/%2b"
    collector = start([build_dir / "bin/wsm-collector", "--json", "--subscribe", url],
                      name="collector")
    wait(lambda: "subscribe: subscribed" in collector.err.read_text() or collector.process.poll() is not None, "the subscription")

    def publish(who, prefix, *images):
        path = tmp_path / f"{who[-1]}-{prefix[-1]}"
        program = start([build_dir / "bin/wsm-collector", "--quiet", "--socket", path, "--publish",
                         f"mqtt://{who.replace(':', '%3a')}:PASSWORD@{cluster.nodes[0].address}:{cluster.nodes[0].mqtt}/wsm/{prefix}"], name=f"publisher-{path.name}")
        program.wait_for_socket(path)
        for image in images:
            with connect(path) as peer:
                peer.sendall(image)
        return program
    now = int(time.time()) - 1000
    foreign = publish(other, one, told(7, 1, now))
    wait(lambda: "the connection has ended" in foreign.err.read_text(), "the broker's refusal")
    own = publish(one, one, told(1, 1, now))
    wait(lambda: any(f'"mac":"{mac(1)}"' in line for line in collector.lines()), "the report")
    assert own.stop() == 0
    assert len(collector.lines()) == 1
    assert collector.stop() == 0
