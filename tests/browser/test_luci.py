"""The page "Wireless clients" of LuCI, in a real browser on a stand-in of LuCI. Each test of luci/cases.js is a pytest item."""

import contextlib
import http.server
import json
import pathlib
import subprocess
import sys
import threading

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
SUITE = "luci"

sys.path.insert(0, str(ROOT / "lab"))

from wsmlab import BusError, Lab  # noqa: E402

A, B = "02:00:00:00:00:0a", "02:00:00:00:00:0b"
NOT_FOUND = 4


def test_wireless_clients(browser, case):
    browser.run(SUITE, case)


def test_the_translations_are_complete_and_in_step_with_the_source():
    subprocess.run([ROOT / "luci/messages", "--check"], check=True)


# --- on the real daemon ---

def bus_answer(lab, call):
    """What a web server makes of a call on the lab's bus."""
    try:
        reply = lab.bus("call", *call)
    except BusError as failure:
        if failure.status == NOT_FOUND:
            return {"error": {"code": -32000, "message": "Object not found"}}
        return {"result": [failure.status]}
    return {"result": [0] if reply is None else [0, reply]}


@contextlib.contextmanager
def bus_at_a_port(lab):
    class Handler(http.server.BaseHTTPRequestHandler):
        def do_POST(self):
            answer = json.dumps(bus_answer(lab, json.loads(self.rfile.read(int(self.headers["Content-Length"]))))).encode()
            self.send_response(200)
            self.send_header("Content-Length", str(len(answer)))
            self.end_headers()
            self.wfile.write(answer)

        def log_message(self, *_):
            pass

    # One at a time: so does the web server of an access point.
    with http.server.HTTPServer(("127.0.0.1", 0), Handler) as server:
        thread = threading.Thread(target=server.serve_forever)
        thread.start()
        yield {"bus": f"http://127.0.0.1:{server.server_port}/"}
        server.shutdown()
        thread.join()


@pytest.fixture
def lab(build_dir):
    with Lab(build_dir) as opened:
        yield opened


@pytest.fixture
def two_clients(lab):
    lab.start_all()
    lab.apsim(f"lease mac={A} ip=192.168.1.20 name=phone")
    lab.apsim(f"assoc mac={A} ifname=ath0 radio=0")
    lab.apsim(f"assoc mac={B} ifname=ath1 radio=1")
    lab.wait_for_report(mac=B, log_type=1)
    return lab


def test_a_client_of_the_real_daemon_is_shown_and_disconnected(browser, two_clients):
    with bus_at_a_port(two_clients) as told:
        browser.run("luci-live", "a client is shown, and disconnected", told)
    assert [station["mac"] for station in two_clients.stations()] == [B]


def test_the_period_reaches_the_real_daemon(browser, two_clients):
    with bus_at_a_port(two_clients) as told:
        browser.run("luci-live", "the period is set", told)
    two_clients.wait_for_log("update_time = 30")


def test_a_bus_without_the_daemon_is_told_of(browser, lab):
    lab.start_ubusd()
    with bus_at_a_port(lab) as told:
        browser.run("luci-live", "the daemon is not there", told)
