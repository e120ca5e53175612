"""Reports that come through an MQTT broker: one collector publishes them, others take and store them."""

import json
import re
import signal
import sqlite3
import subprocess
import time

import pytest

from brokers import Publisher, messages, needs_mosquitto, reports, subscribed
from images import mac, told
from programs import wait
from served import Served

pytestmark = needs_mosquitto
NOW = int(time.time()) - 1000
AP = "02:54:4b:00:00:01"


@pytest.fixture
def publish(start, build_dir, tmp_path, broker, with_mqtt):  # pylint: disable=unused-argument
    return Publisher(start, build_dir, tmp_path, f"mqtt://127.0.0.1:{broker.port}/home")


@pytest.fixture
def subscribe(start, build_dir, broker):
    """Starts a collector that takes reports from the broker; it has subscribed when this returns."""
    def start_one(*options, name="subscriber", form="--json"):
        one = start([build_dir / "bin/wsm-collector", form, "--grace", "0", "--subscribe", f"mqtt://127.0.0.1:{broker.port}/home",
                     "--client-id", name, *options], name=name)
        subscribed(one)
        return one
    return start_one


def taken(*subscribers):
    """The numbers that the tests have sent as the seconds of reports."""
    lines = [line for one in subscribers for line in one.out.read_text(encoding="utf-8").split("\n")[:-1]]
    return sorted(json.loads(line)["oltime"] for line in lines)


def send(broker, topic, payload):
    subprocess.run(["mosquitto_pub", "-p", str(broker.port), "-t", topic, "-m", payload, "-q", "1"], check=True, timeout=60)


def test_what_is_published_comes_out_as_it_went_in(publish, subscribe):
    one = subscribe()
    publish.send(told(1, 1, NOW, ssid=b'a"\n\\\xff\x01', online_ts=NOW), told(2, 2, NOW, 30))
    wait(lambda: len(one.lines()) == 2, "the reports")
    first, second = map(json.loads, one.lines())
    assert (first["mac"], first["ssid"], first["ap_mac"]) == (mac(1), 'a"\\n\\\\\\xff\\x01', AP + "\\n")
    assert (second["mac"], second["log_type"], second["oltime"]) == (mac(2), 2, 30)
    assert first["received"] >= NOW
    assert one.stop() == 0


def test_collectors_of_a_group_share_the_reports(publish, subscribe):
    both = [subscribe(name="one"), subscribe(name="other")]
    publish.send(*(told(1, 3, NOW, number) for number in range(500)))
    wait(lambda: len(taken(*both)) >= 500, "the reports")
    assert taken(*both) == list(range(500))
    assert all(len(taken(one)) > 100 for one in both)
    assert [one.stop() for one in both] == [0, 0]


def test_a_kill_costs_nothing_that_is_not_stored(publish, subscribe, tmp_path):
    store = tmp_path / "store"
    options = ["--store", f"sqlite:{store}", "--sample", "0"]
    one = subscribe("--commit", "86400", *options, name="first")
    publish.send(*(told(1, 3, NOW, number) for number in range(300)))
    wait(lambda: taken(one), "reports that are taken and not stored")
    one.stop(signal.SIGKILL)
    assert not rows(store, "SELECT * FROM sample")
    again = subscribe("--commit", "0", *options, name="first")

    def stored():
        return len({up for (up,) in rows(store, "SELECT up FROM sample")})
    publish.send(*(told(2, 3, NOW, number, wifi_up=number + 1) for number in range(300)))
    wait(lambda: set(range(300)) <= set(taken(again)) and stored() >= 300, "all reports")
    assert again.stop() == 0


def rows(store, query):
    with sqlite3.connect(f"file:{store}?mode=ro", uri=True) as database:
        return database.execute(query).fetchall()


def test_what_is_stored_does_not_come_again(publish, subscribe, tmp_path):
    store = tmp_path / "store"
    options = ["--store", f"sqlite:{store}", "--sample", "0", "--commit", "0"]
    one = subscribe(*options, name="first")
    publish.send(*(told(1, 3, NOW, number, wifi_up=number) for number in range(200)))
    wait(lambda: len(rows(store, "SELECT * FROM sample")) == 200, "the store")
    assert one.stop() == 0
    again = subscribe(*options, name="first")
    publish.send(told(1, 3, NOW, 9999))
    wait(lambda: 9999 in taken(again), "the last report")
    assert taken(again) == [9999]
    assert again.stop() == 0


def test_while_the_broker_is_away_nothing_is_lost(publish, subscribe, broker):
    one = subscribe()
    publish.send(*(told(1, 3, NOW, number) for number in range(100)))
    broker.stop()
    publish.send(*(told(1, 3, NOW, number) for number in range(100, 200)))
    broker.run()
    wait(lambda: sorted(set(taken(one))) == list(range(200)), "all reports")
    assert one.stop() == 0


def test_what_is_no_report_is_set_aside_with_its_reason(publish, subscribe, broker, start, tmp_path):
    aside = start(["mosquitto_sub", "-p", str(broker.port), "-V", "5", "-t", "#", "-q", "1", "-F", "%r %t %p\\n%P"], name="aside")
    broker.wait_for_probe(aside)
    store = tmp_path / "store"
    one = subscribe("--store", f"sqlite:{store}", "--commit", "0", form="--quiet")
    send(broker, f"home/report/{AP}", "no report")
    publish.send(told(1, 1, NOW))
    wait(lambda: rows(store, "SELECT mac FROM stay") == [(mac(1),)], "the report behind it")
    wait(lambda: f"0 refused/home/report/{AP} no report\nreason:no JSON object\n" in aside.out.read_text(), "what was set aside")
    assert one.stop() == 3
    said = one.err.read_text()
    assert f"subscribe: a message is set aside, no JSON object: home/report/{AP}\n" in said
    assert "subscribe: 1 messages were set aside\n" in said


def test_nobody_speaks_for_another_access_point(publish, subscribe, broker):
    listener = broker.subscribe()
    one = subscribe()
    publish.send(told(1, 1, NOW))
    wait(lambda: reports(listener) and one.lines(), "the report")
    payload = next(payload for topic, payload in messages(listener) if "/report/" in topic)
    send(broker, "home/report/02:54:4b:00:00:99", payload)
    wait(lambda: "not of the access point that its topic names: home/report/02:54:4b:00:00:99" in one.err.read_text(), "the message")
    assert sum(f'"mac":"{mac(1)}"' in line for line in one.lines()) == 1
    assert one.stop() == 3


@pytest.mark.parametrize("url", ["mqtt://", "mqtt://x/a/#", "mqtt://x/a+b", "mqtt://x:0", "mqtt://x,y", "http://x", "amqp://x?queue=",
                                 "amqp://x?colour=red", "amqp://x,", "amqp://x/%2", "x"])
def test_an_address_that_is_none_is_wrong_usage(build_dir, url):
    done = subprocess.run([build_dir / "bin/wsm-collector", "--subscribe", url], capture_output=True, timeout=30, check=False)
    assert done.returncode == 2


def test_it_says_once_that_the_broker_does_not_answer(start, build_dir, broker, with_mqtt):  # pylint: disable=unused-argument
    broker.stop()
    one = start([build_dir / "bin/wsm-collector", "--quiet", "--subscribe", f"mqtt://127.0.0.1:{broker.port}"])
    wait(lambda: "the broker does not answer" in one.err.read_text(), "the message")
    broker.run()
    subscribed(one)
    assert len(re.findall("does not answer", one.err.read_text())) == 1
    assert one.stop() == 0


def written(ledger):
    """A fleet's ledger: its reports, and for each station's MAC the access point, begin, end and number of reports of its stay."""
    reports_, stays = set(), {}
    for line in ledger.read_text().splitlines():
        kind, *words = line.split(" ")
        if kind == "report":
            reports_.add((words[0], words[1], int(words[2])))
        else:
            stays[words[0]] = (words[1], *map(int, words[2:]))
    return reports_, stays


def test_a_fleet_s_stays_are_in_the_store_as_its_ledger_has_them(broker, subscribe, start, build_dir, tmp_path):  # noqa: F811
    if not (build_dir / "bin/wsm-fleet-sim").exists():
        pytest.skip("built without wsm-fleet-sim")
    store = tmp_path / "store"
    one = subscribe("--store", f"sqlite:{store}", "--commit", "0", "--grace", "30", form="--quiet")
    fleet = start([build_dir / "bin/wsm-fleet-sim", "--to", f"mqtt://127.0.0.1:{broker.port}/home", "--access-points", "20",
                   "--stations", "10", "--seconds", "300", "--speed", "0", "--ledger", tmp_path / "ledger"])
    assert fleet.wait_for_end() == 0, fleet.err.read_text()
    sent, stays = written(tmp_path / "ledger")
    assert len(sent) > 1000 and len(stays) > 200
    wait(lambda: rows(store, "SELECT sum(reports) FROM stay") == [(len(sent),)], "all reports in the store")
    assert one.stop() == 0
    kept = {mac_: (ap, began // 1000000, (ended or 0) // 1000000, reports_) for mac_, ap, began, ended, reports_ in
            rows(store, "SELECT mac, ap, began, ended, reports FROM stay")}
    assert kept == stays


def test_a_live_page_of_collectors_that_share_needs_a_group_of_its_own(publish, subscribe, build_dir):
    asked = subprocess.run([build_dir / "bin/wsm-collector", "--http", "127.0.0.1:x", "--socket", "/"], capture_output=True, text=True, timeout=30,
                           check=False)
    if "libmicrohttpd" in asked.stderr:
        pytest.skip("built without libmicrohttpd")
    both = [subscribe(name="one"), subscribe(name="other")]
    page = subscribe("--group", "page", "--http", "127.0.0.1:0", name="page", form="--quiet")
    publish.send(*(told(number, 1, int(time.time())) for number in range(40)))
    served = Served.__new__(Served)
    served.port = re.search(r"http: port (\d+)", page.err.read_text())[1]
    wait(lambda: len(served.get("/api/v1/stations")) == 40, "all stations on the page")
    wait(lambda: sum(len(one.lines()) for one in both) == 40, "the reports of those who share")
    assert all(one.lines() for one in both)
    assert page.err.read_text().count("live: what this collector receives is shown; if others share its queue, give it one of its own") == 1
    assert [one.stop() for one in [page, *both]] == [0, 0, 0]
