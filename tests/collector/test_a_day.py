"""A day of a network's people through every output at once: all outputs agree."""

import collections
import json
import re
import shutil
import sqlite3
import subprocess
import time

import pytest

from images import mac, told
from programs import connect, wait
from brokers import Broker, messages, reports

BEGIN = int(time.time()) - 50000
PEOPLE, VISITS = 12, 3


def a_day():
    """Images in the order of their times, and how often each kind of event happens in them."""
    happened, images = collections.Counter(), []
    for person in range(1, PEOPLE + 1):
        for visit in range(VISITS):
            since = BEGIN + visit * 10000 + person * 10
            images.append((since, told(person, 1, since)))
            images.append((since + 600, told(person, 3, since, 600, wifi_up=1000, wifi_down=9000, ip=f"10.0.0.{person}")))
            happened.update(joined=1, left=1)
            if person % 3 == 0:  # walks over to the other radio
                images.append((since + 700, told(person, 1, since + 700, radio_id=1, ifname="ath1")))
                images.append((since + 900, told(person, 2, since + 700, 200, radio_id=1, ifname="ath1", wifi_up=50, wifi_down=70,
                                                 reason="OW_STA_TIMEOUT", reason_code=300)))
                happened.update(roamed=1)
            else:
                images.append((since + 900, told(person, 2, since, 900, wifi_up=2000, wifi_down=10000, reason="OW_STA_DEAUTH_RECV",
                                                 reason_code=307)))
    return [image for _, image in sorted(images, key=lambda pair: pair[0])], happened


@pytest.mark.skipif(not shutil.which("mosquitto", path="/usr/sbin:/usr/bin"), reason="mosquitto is not installed")
def test_every_output_tells_of_the_same_day(start, build_dir, tmp_path):
    images, happened = a_day()
    broker = Broker(tmp_path, start)
    subscriber = broker.subscribe()
    hook, ran = tmp_path / "hook", tmp_path / "ran"
    hook.write_text(f'#!/bin/sh\necho "$1" >> {ran}\n')
    hook.chmod(0o755)
    path = tmp_path / "socket"
    program = start([build_dir / "bin/wsm-collector", "--json", "--grace", "0", "--socket", path, "--store", f"sqlite:{tmp_path}/store",
                     "--commit", "0", "--sample", "0", "--metrics", "127.0.0.1:0", "--exec", hook, "--publish",
                     f"mqtt://127.0.0.1:{broker.port}/home"])
    wait(lambda: path.exists() or program.process.poll() is not None, "the collector")
    if "built without" in program.err.read_text():
        pytest.skip(program.err.read_text())
    program.wait_for_socket(path)
    for image in images:
        with connect(path) as peer:
            peer.sendall(image)

    port = re.search(r"metrics: port (\d+)", program.err.read_text())[1]

    def counted():
        text = subprocess.run(["/usr/bin/python3", "-c", "import sys,urllib.request as u;print(u.urlopen(sys.argv[1]).read().decode())",
                               f"http://127.0.0.1:{port}/metrics"], capture_output=True, text=True, timeout=30, check=True).stdout
        found = {kind: int(value) for kind, value in re.findall(r'^wsm_changes_total.*kind="(\w+)"} (\d+)', text, re.M)}
        return text if collections.Counter({kind: found.get(kind, 0) for kind in happened}) == happened else None
    text = wait(counted, "the day in the metrics")
    assert f"\nwsm_collector_reports_total {len(images)}\n" in text
    assert re.findall(r"^wsm_collector_output_dropped_total.* (\d+)$", text, re.M) == ["0"] * 5
    wait(lambda: len(reports(subscriber)) == len(images), "the day at the broker")
    assert program.stop() == 0

    assert len(program.lines()) == len(images)
    with sqlite3.connect(tmp_path / "store") as db:
        kinds = dict(db.execute("SELECT kind, count(*) FROM event GROUP BY kind"))
        assert {kind: kinds.get(kind, 0) for kind in happened} == happened
        assert db.execute("SELECT count(*), sum(state = 3) FROM stay").fetchone() == (happened["joined"], happened["left"])
        assert db.execute("SELECT count(*) FROM sample").fetchone() == (len(images),)
        up = sum(1050 if person % 3 == 0 else 2000 for person in range(1, PEOPLE + 1)) * VISITS
        assert db.execute("SELECT sum(up) FROM stay").fetchone() == (up,)
    assert re.search(r'^wsm_bytes_total.*direction="up"} (\d+)$', text, re.M)[1] == str(up)
    assert collections.Counter(ran.read_text().split()) == happened
    broker.wait_for_probe(subscriber)
    published = collections.Counter(json.loads(payload)["kind"] for topic, payload in messages(subscriber)
                                    if "/station/" in topic and payload)
    assert {kind: published[kind] for kind in happened} == happened
    assert not any(f"home/station/{mac(person)}" in broker.retained() for person in (1, PEOPLE))
