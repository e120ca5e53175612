"""The collector's page in a real browser: each test of collector/cases.js on a collector of its own making, and those of
collector/live.js on the real one."""

import base64
import pathlib
import sys
import time

import pytest

TESTS = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(TESTS / "collector"))  # images.py: reports by hand
sys.path.insert(0, str(TESTS / "system"))  # formats.py: their layout

from images import told  # noqa: E402

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
