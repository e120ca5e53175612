"""The demo with the collector's page: history at once, and a page that a browser outside of the lab reaches."""

import json
import os
import pathlib
import re
import subprocess
import sys
import urllib.request

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "lab"))
sys.path.insert(0, str(ROOT / "tests/system"))

import formats  # noqa: E402
from wsmlab import history  # noqa: E402

DAY = 86400
NOON = 1795262400


def values_of(image):
    """The members of a report, by the tests' own layout."""
    found = {}
    for name, (offset, form) in formats.REPORT.items():
        width = formats.struct.calcsize(form)
        value, = formats.struct.unpack(form, image[offset:offset + width])
        found[name] = value.rstrip(b"\0").decode() if isinstance(value, bytes) else value
    return found


def test_a_report_of_history_has_the_daemons_layout():
    fields = {"mac": "02:60:00:00:00:01", "log_type": 3, "ssid": "Lobby", "ifname": "ath1", "ip": "10.60.0.3", "online_ts": NOON,
              "offline_ts": NOON + 9, "oltime": 9, "flow_rateup": 1024, "flow_ratedown": 2048, "wifi_up": 1 << 40, "wifi_down": 5,
              "radio_id": 1, "reason_code": 300, "reason": "OW_STA_TIMEOUT", "floornoise": -94, "utilization": 33, "maxRate": 1200,
              "version": "11ax", "channel": 36, "ap_mac": "02:54:4b:00:00:01\n", "rssi": -61}
    image = history.image(**fields)
    told = values_of(image)
    assert len(image) == formats.REPORT_SIZE
    assert {name: told[name] for name in fields} == fields
    assert not any(told[name] for name in told if name not in fields)


def test_history_is_in_order_ends_before_now_and_is_the_same_each_time():
    images = history.reports(2, NOON, 30)
    assert images == history.reports(2, NOON, 30) != history.reports(2, NOON, 30, seed=2)
    reports = [values_of(image) for image in images]
    times = [one["offline_ts"] or one["online_ts"] + one["oltime"] for one in reports]
    assert times == sorted(times) and NOON - 2 * DAY <= times[0] < NOON - 1.9 * DAY and times[-1] <= NOON
    assert {one["log_type"] for one in reports} == {1, 2, 3, 4}
    assert len({one["mac"] for one in reports}) == 30


def test_who_is_there_at_the_end_of_history_may_stay():
    last = {one["mac"]: one["log_type"] for one in map(values_of, history.reports(1, NOON, 30, leave=False))}
    assert 2 in last.values() and 3 in last.values()


@pytest.fixture
def demo(build_dir, tmp_path):
    def start(*options):
        argv = [sys.executable, "-m", "wsmlab.demo", "--build-dir", str(build_dir), *options]
        environment = {**os.environ, "PYTHONPATH": str(ROOT / "lab"), "TMPDIR": str(tmp_path)}
        return subprocess.Popen(argv, env=environment, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    return start


def test_the_demo_serves_the_page_with_a_history(demo, tmp_path):
    with demo("--web", "127.0.0.1:0", "--history", "2d", "--stations", "3") as process:
        for line in process.stdout:
            if found := re.match(r"the page: (http://127\.0\.0\.1:[1-9]\d*/) ", line):
                break
        else:
            pytest.fail("no address was printed")
        url = found[1]

        def get(path):
            with urllib.request.urlopen(url + path, timeout=60) as answer:
                return answer.read()

        try:
            assert get("") == (ROOT / "collector/web/index.html").read_bytes()
            now = json.loads(get("api/v1/status"))["now"]
            older = json.loads(get(f"api/v1/sessions?limit=10000&until={int(now) - DAY}"))
            assert len(older) > 20 and all(stay["name"] and stay["began"] > now - 2.1 * DAY for stay in older)
            assert len({point["ap"] for point in json.loads(get("api/v1/radios?step=86400&since=3d"))}) == 3
        finally:
            process.terminate()
            rest = process.communicate(timeout=60)[0]
    assert process.returncode == 0, rest
    assert rest.splitlines()[-1].endswith("the daemon ended cleanly (status 1, as it should)")
    assert not list(tmp_path.iterdir()), "nothing is left behind"


@pytest.mark.parametrize("options, words", [
    (["--history", "7d"], "--history: of which page?"), (["--web", "--history", "7w"], "number of days from 1 to 60"),
    (["--web", "--scenario", "x"], "simulated clients only"), (["--web", "here"], "ADDRESS:PORT is wanted")])
def test_what_cannot_be_shown_is_said(demo, options, words):
    with demo(*options) as process:
        assert words in process.communicate(timeout=60)[0]
    assert process.returncode in (1, 2)
