"""The collector's page in a real browser: each test of collector/cases.js on a collector of its own making, and those of
collector/live.js on the real one."""

import base64
import pathlib
import random
import subprocess
import sys
import time

import pytest

TESTS = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(TESTS / "collector"))  # images.py: reports by hand
sys.path.insert(0, str(TESTS / "system"))  # formats.py: their layout

sys.path.insert(0, str(TESTS.parent / "lab"))

from formats import REPORT, struct  # noqa: E402
from images import mac, told  # noqa: E402
from wsmlab import history  # noqa: E402

SUITE = "collector"


def test_page(browser, case):
    browser.run(SUITE, case)


@pytest.mark.parametrize("name", [
    "stations come, roam and leave, and a restart does not stop the page", "the store tells of a station and of access points",
    "a token in the address opens the page"])
def test_page_of_the_real_collector(browser, build_dir, tmp_path, name):
    since = int(time.time()) - 1000
    messages = {
        "first": told(1, 1, since, ip="10.0.0.7"), "roamed": told(1, 1, since + 300, radio_id=1, ifname="ath1", channel=36),
        "left": told(1, 2, since + 300, 600, radio_id=1, ifname="ath1", reason="OW_STA_DEAUTH_RECV", reason_code=307),
        "hostile": told(2, 1, since, ssid=b'<img src=x onerror="window.hurt=1">\xff\n')}
    (tmp_path / "token").write_text("a-token_of.letters-0123456789\n")
    browser.run("collector-live", name, {"program": str(build_dir / "bin/wsm-collector"), "folder": str(tmp_path),
                                         "messages": {key: base64.b64encode(text).decode() for key, text in messages.items()}})


def test_the_first_rows_of_ten_thousand_stations_of_the_real_collector(browser, build_dir, tmp_path):
    since = int(time.time()) - 600
    chance = random.Random(1)
    (tmp_path / "reports").write_bytes(b"".join(
        told(number, 3, since - number % 300, 500 + number % 300, rssi=-chance.randrange(40, 90), radio_id=number % 2, channel=6 + number % 2 * 30,
             ssid=f"Network {number % 7}", ip=f"10.1.{number >> 8}.{number & 255}", wifi_up=chance.randrange(2**32), wifi_down=chance.randrange(2**36),
             ap_mac=f"02:54:4b:00:00:{number % 40:02x}\n", version="11ax", floornoise=-95, utilization=40, maxRate=1200)
        for number in range(10000)))
    (tmp_path / "names").write_text("".join(f"{mac(number)} A name of station {number}\n" for number in range(10000)))
    program = build_dir / "bin/wsm-collector"
    subprocess.run([program, "--quiet", "--store", f"sqlite:{tmp_path}/store", tmp_path / "reports"], check=True)
    browser.run("collector-live", "the first rows of ten thousand", {
        "program": str(program), "folder": str(tmp_path), "messages": {}, "options": ["--names", str(tmp_path / "names")]})


def fields_of(report):
    """What the next report of the same station has as well."""
    names = ("mac", "ssid", "ifname", "ip", "online_ts", "oltime", "wifi_up", "wifi_down", "radio_id", "floornoise", "utilization", "maxRate",
             "version", "channel", "ap_mac", "rssi", "flow_rateup", "flow_ratedown")
    return {name: struct.unpack_from(REPORT[name][1], report, REPORT[name][0])[0] for name in names}


def test_pictures_of_a_week_of_the_real_collector(browser, build_dir, tmp_path):
    now = int(time.time())
    images = history.reports(7, now - 240, 90, leave=False)
    (tmp_path / "reports").write_bytes(b"".join(images))
    (tmp_path / "names").write_text("".join(f"{history.mac_of(n)} {history.name_of(n)}\n" for n in range(91) if n % 6 != 3))
    program = build_dir / "bin/wsm-collector"
    subprocess.run([program, "--quiet", "--store", f"sqlite:{tmp_path}/store", tmp_path / "reports"], check=True)
    last = {}
    for report in images:
        fields = fields_of(report)
        last[fields["mac"]] = (fields, struct.unpack_from("<H", report, 296)[0])
    chance = random.Random(1)
    updates = []
    for _ in range(20):
        for fields, kind in last.values():
            if kind in (1, 3):
                fields["oltime"] += 12
                fields["rssi"] = max(-88, min(-38, fields["rssi"] + chance.randrange(-3, 4)))
                updates.append(base64.b64encode(history.image(log_type=3, **fields)).decode())
    browser.run("collector-live", "pictures of a week", {
        "program": str(program), "folder": str(tmp_path), "messages": {}, "updates": updates,
        "options": ["--names", str(tmp_path / "names")]})
