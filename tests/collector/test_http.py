"""The HTTP interface and the metrics: who may use them, what they answer, and what they refuse."""

import gzip
import http.client
import json
import os
import pathlib
import random
import re
import shutil
import signal
import socket
import subprocess
import time

import pytest

from images import mac, told
from programs import PATIENCE, wait
from served import Served

NOON = int(time.time()) - 1000  # an access point's clock is used when it is near ours
PROMETHEUS = pathlib.Path(__file__).resolve().parents[2] / "packaging/prometheus"
TOKEN = "a-token_of.letters-0123456789"


def test_stations_are_those_that_are_here(serve):
    one = serve()
    assert one.get("/api/v1/stations") == []
    one.send(told(1, 1, NOON), told(2, 3, NOON, 60, wifi_up=7, wifi_down=9, ip="10.0.0.7", rssi=-61, floornoise=-95))
    first, second = one.stations(2)
    assert (first["mac"], first["state"], first["ssid"], first["radio"]) == (mac(1), "here", "Lobby", 0)
    assert (second["signal"], second["up"], second["down"], second["ip"], second["noise"]) == (-61, 7, 9, "10.0.0.7", -95)
    assert one.get(f"/api/v1/stations/{mac(2)}") == second
    assert one.get(f"/api/v1/stations/{mac(3)}", 404) == {"error": "this station is not here"}


def test_the_list_of_stations_can_be_cut_and_ordered(serve, tmp_path):
    (tmp_path / "names").write_text(f"{mac(2)} Anna's phone\n")
    one = serve("--names", tmp_path / "names")
    one.send(*(told(number, 1, NOON - number, rssi=-40 - number, channel=36 if number > 2 else 6) for number in (1, 2, 3)))
    one.stations(3)

    def macs(query):
        return [station["mac"] for station in one.get(f"/api/v1/stations?{query}")]
    assert macs("sort=signal&direction=descending&limit=2") == [mac(1), mac(2)]
    assert macs("sort=time&direction=descending&band=5") == [mac(3)]
    assert macs("search=anna%27s%20lobby") == [mac(2)]
    assert macs("search=%3Cimg%3E&ssid=") == []


def test_a_long_answer_is_compressed_for_who_asks_for_it(serve):
    one = serve()
    one.send(*(told(number, 1, NOON) for number in range(1, 41)))
    plain = one.stations(40)
    status, headers, body = one.ask("/api/v1/stations", Accept_Encoding="gzip, deflate")
    assert (status, headers["Content-Encoding"], headers["Vary"], headers["Content-Type"]) == (200, "gzip", "Accept-Encoding", "application/json")
    assert int(headers["Content-Length"]) == len(body) < 4000 < len(json.dumps(plain))
    assert json.loads(gzip.decompress(body)) == plain
    status, headers, body = one.ask("/api/v1/stations", method="HEAD", Accept_Encoding="gzip")
    assert (status, headers["Content-Encoding"], body) == (200, "gzip", b"")


@pytest.mark.parametrize("wanted", [{}, {"Accept_Encoding": ""}, {"Accept_Encoding": "identity"}, {"Accept_Encoding": "gzip;q=0, br"},
                                    {"Accept_Encoding": "*;q=0"}, {"Accept_Encoding": "gzip;q=" + "9" * 4000}])
def test_nobody_else_gets_a_compressed_answer(serve, wanted):
    one = serve()
    one.send(*(told(number, 1, NOON) for number in range(1, 41)))
    one.stations(40)
    for path in ("/api/v1/stations", "/"):
        status, headers, body = one.ask(path, **wanted)
        assert (status, headers["Content-Encoding"], headers["Vary"]) == (200, None, "Accept-Encoding")
        assert body[:1] in (b"[", b"<")


def test_a_short_answer_and_the_stream_go_as_they_are(serve):
    one = serve()
    for path, status in (("/api/v1/stations", 200), ("/api/v1/nothing", 404), ("/icon.svg", 200)):
        got, headers, body = one.ask(path, Accept_Encoding="gzip")
        assert (got, headers["Content-Encoding"]) == (status, None) and len(body) < 1024
    stream = http.client.HTTPConnection("127.0.0.1", int(one.port), timeout=PATIENCE)
    stream.request("GET", "/api/v1/events", headers={"Accept-Encoding": "gzip"})
    answer = stream.getresponse()
    assert (answer.status, answer.headers["Content-Encoding"]) == (200, None)
    assert answer.readline() == b"retry: 2000\n"
    stream.close()


def test_a_file_of_the_page_is_compressed_as_it_is_now(serve, tmp_path):
    folder = tmp_path / "web"
    folder.mkdir()
    one = serve("--web", folder)
    for text in (b"first " * 1000, b"other " * 1000, b"longer " * 2000, b"brief"):
        (folder / "page.js").write_bytes(text)
        for _ in range(2):
            _, headers, body = one.ask("/page.js", Accept_Encoding="gzip")
            assert headers["Content-Encoding"] == ("gzip" if len(text) >= 1024 else None)
            assert (gzip.decompress(body) if headers["Content-Encoding"] else body) == text
    noise = random.Random(1).randbytes(5000)
    for name in ("noise.js", "noise.png"):  # compressed already: would not become smaller
        (folder / name).write_bytes(noise)
        _, headers, body = one.ask(f"/{name}", Accept_Encoding="gzip")
        assert (headers["Content-Encoding"], body) == (None, noise)


def test_who_has_left_is_gone_after_the_grace_time(serve):
    one = serve("--grace", "0")
    one.send(told(1, 1, NOON))
    one.stations(1)
    one.send(told(1, 2, NOON, 60))
    one.stations(0)


def test_stations_that_were_here_before_a_restart_are_here(serve, tmp_path):
    one = serve("--store", f"sqlite:{tmp_path}/store")
    one.send(told(1, 1, NOON))
    before = one.stations(1)[0]
    one.program.stop()
    again = serve("--store", f"sqlite:{tmp_path}/store")
    assert again.stations(1)[0]["id"] == before["id"]


def test_history_comes_from_the_store(serve, tmp_path):
    one = serve("--store", f"sqlite:{tmp_path}/store", "--commit", "0", "--grace", "0", "--sample", "0")
    one.send(told(1, 1, NOON), told(1, 3, NOON, 60, wifi_up=500, ip="10.0.0.7", floornoise=-95, utilization=20))
    one.send(told(1, 2, NOON, 100, wifi_up=900, reason="OW_STA_TIMEOUT", reason_code=300))
    stay, = wait(lambda: [row for row in one.get("/api/v1/sessions") if row["state"] == "gone"], "the stay")
    assert (stay["mac"], stay["began"], stay["up"], stay["reason"]) == (mac(1), NOON, 900, "OW_STA_TIMEOUT")
    assert one.get(f"/api/v1/stations/{mac(1)}/sessions") == [stay]
    assert one.get(f"/api/v1/stations/{mac(2)}/sessions") == []
    assert [row["departures"] for row in one.get("/api/v1/departures")] == [1]
    assert [row["up"] for row in one.get("/api/v1/top?limit=5")] == [900]
    assert [row["kind"] for row in one.get("/api/v1/changes")] == ["left", "leaving", "joined"]
    assert [row["ip"] for row in one.get(f"/api/v1/stations/{mac(1)}/addresses")] == ["10.0.0.7"]
    points = one.get(f"/api/v1/stations/{mac(1)}/series?step=86400")
    assert sum(point["up"] for point in points) == 900 and points[0]["signal"] == -50
    assert one.get("/api/v1/radios?step=86400")[0]["stations"] == 1
    assert one.get("/api/v1/sessions?until=1999-01-01") == []


def test_stations_that_come_again_and_again_are_told(serve, tmp_path):
    one = serve("--store", f"sqlite:{tmp_path}/store", "--commit", "0", "--grace", "0")
    for begin in range(NOON, NOON + 300, 100):
        one.send(told(1, 1, begin), told(1, 2, begin, 50))
    one.send(told(2, 1, NOON), told(2, 1, NOON + 300), told(2, 1, NOON + 310), told(2, 1, NOON + 320))
    one.send(*(told(3, kind, NOON, 400) for kind in (1, 2)))
    rows = wait(lambda: (rows := one.get("/api/v1/flapping")) and len(rows) == 2 and rows[0]["brief"] == 3 and rows, "both")
    assert [(row["mac"], row["sessions"], row["brief"], row["returns"]) for row in rows] == [(mac(1), 3, 3, 0), (mac(2), 1, 0, 3)]
    assert [row["brief"] for row in one.get("/api/v1/flapping?step=20")] == [0], "whose stays are all longer"


@pytest.mark.parametrize("path, status", [
    ("/api/v1/nothing", 404), ("/api/v2/stations", 404), ("/api/v1/stations/x/series", 404), ("/api/v1/sessions?since=soon", 400),
    ("/api/v1/sessions?limit=0", 400), ("/api/v1/sessions?limit=10001", 400), ("/api/v1/sessions?mac=x", 400),
    ("/api/v1/sessions?x=1", 400), ("/api/v1/stations?x=1", 400), ("/api/v1/stations?limit=0", 400),
    ("/api/v1/stations?sort=colour", 400), (f"/api/v1/stations?search={'x' * 257}", 400), ("/api/v1/status?limit=1", 400),
    ("/api/v1/top?step=0", 400), ("/x", 404),
    ("/api/v1/sessions?since=99999999999999999999d", 400)])
def test_a_wrong_question_is_refused_with_a_reason(serve, path, status):
    assert one_member(serve().get(path, status)) == "error"


def one_member(fields):
    (name,) = fields
    return name


def test_without_a_store_there_is_no_history(serve):
    assert serve().get("/api/v1/sessions", 404) == {"error": "there is no store"}


def test_changes_come_as_a_stream(serve):
    one = serve()
    stream = http.client.HTTPConnection("127.0.0.1", int(one.port), timeout=PATIENCE)
    stream.request("GET", "/api/v1/events")
    answer = stream.getresponse()
    assert (answer.status, answer.headers["Content-Type"]) == (200, "text/event-stream")
    one.send(told(1, 1, NOON, ssid=b'a\n\ndata: "x"\xff'), told(1, 4, NOON, 60), told(1, 1, NOON + 60, radio_id=1))
    events = []
    while len(events) < 3:
        name = answer.readline().decode().rstrip()
        if name.startswith("event: "):
            data = json.loads(answer.readline().decode().removeprefix("data: "))
            assert answer.readline() == b"\n"
            events.append((name[7:], data["kind"], data["station"]["mac"], data["station"]["radio"]))
            assert data["station"]["ssid"] in ('a\\n\\ndata: "x"\\xff', "Lobby")
    assert events == [("joined", "joined", mac(1), 0), ("leaving", "leaving", mac(1), 0), ("roamed", "roamed", mac(1), 1)]
    assert one.program.stop() == 0, "streams do not keep it"
    stream.close()


def test_it_is_read_only(serve):
    one = serve()
    for method in ("POST", "PUT", "DELETE", "OPTIONS", "PATCH"):
        status, headers, _ = one.ask("/api/v1/stations", method)
        assert (status, headers["Allow"]) == (405, "GET, HEAD")
        assert "Access-Control-Allow-Origin" not in headers
    status, _, body = one.ask("/api/v1/stations", "HEAD")
    assert (status, body) == (200, b"")


def test_every_answer_has_the_headers_that_protect_a_browser(serve):
    one = serve()
    for path in ("/api/v1/stations", "/nothing"):
        _, headers, _ = one.ask(path)
        assert headers["X-Content-Type-Options"] == "nosniff" and headers["X-Frame-Options"] == "DENY"
        assert headers["Content-Security-Policy"].startswith("default-src 'self';")
        assert headers["Cache-Control"] == "no-store" and headers["Referrer-Policy"] == "no-referrer"


def test_on_loopback_another_name_of_the_host_is_refused(serve):
    one = serve()
    assert one.get("/api/v1/stations", 421, Host="evil.example:80") == {"error": "this host is not served"}
    for host in ("localhost", "127.0.0.1:8080", "[::1]:80"):
        assert one.get("/api/v1/stations", Host=host) == []


def test_off_loopback_a_token_is_a_must(build_dir, tmp_path):
    done = subprocess.run([build_dir / "bin/wsm-collector", "--http", "0.0.0.0:0", "--socket", tmp_path / "s"],
                          capture_output=True, text=True, timeout=30, check=False)
    assert done.returncode == 1 and "a token file is needed" in done.stderr


def test_who_has_no_token_is_refused_and_a_browser_keeps_it_as_a_cookie(serve, tmp_path):
    (tmp_path / "token").write_text(TOKEN + "\n")
    one = serve("--token-file", tmp_path / "token", http="0.0.0.0:0")
    assert one.get("/api/v1/stations", 401) == {"error": "a token is needed"}
    assert one.get("/api/v1/stations", 401, Authorization=f"Bearer {TOKEN}x") == {"error": "a token is needed"}
    assert one.get("/api/v1/stations", 401, Authorization="Bearer ") == {"error": "a token is needed"}
    assert one.get("/api/v1/stations", Authorization=f"Bearer {TOKEN}") == []
    assert one.ask("/?token=wrong")[0] == 401
    status, headers, _ = one.ask(f"/?token={TOKEN}")
    assert (status, headers["Location"]) == (303, "/")
    cookie = headers["Set-Cookie"]
    assert "HttpOnly" in cookie and "SameSite=Strict" in cookie
    assert one.get("/api/v1/stations", Cookie=cookie.split(";")[0]) == []


@pytest.mark.parametrize("text", ["", "short", "with a blank in it, long enough", "line-feed-free-but-ümlaut"])
def test_a_file_without_a_token_is_refused(build_dir, tmp_path, text):
    (tmp_path / "token").write_text(text)
    done = subprocess.run([build_dir / "bin/wsm-collector", "--http", "127.0.0.1:0", "--token-file", tmp_path / "token",
                           "--socket", tmp_path / "s"], capture_output=True, text=True, timeout=30, check=False)
    assert done.returncode == 1 and "is no token" in done.stderr


def test_the_pages_files_are_served_and_nothing_beside_them(serve, tmp_path):
    web = tmp_path / "web"
    (web / "lib").mkdir(parents=True)
    (web / "index.html").write_text("<!doctype html>")
    (web / "lib/page.js").write_text("1")
    (web / ".hidden").write_text("secret")
    (tmp_path / "secret").write_text("secret")
    one = serve("--web", web)
    status, headers, body = one.ask("/")
    assert (status, headers["Content-Type"], body) == (200, "text/html; charset=utf-8", b"<!doctype html>")
    assert one.ask("/lib/page.js")[1]["Content-Type"] == "text/javascript; charset=utf-8"
    for path in ("/../secret", "/%2e%2e/secret", "/lib/..%2f..%2fsecret", "/.hidden", "/lib", "/lib/", "//secret", "/none",
                 "/lib//page.js"):
        assert one.ask(path)[0] in (400, 404), path


def test_the_page_is_that_beside_the_program(serve):
    one = serve()
    web = pathlib.Path(__file__).resolve().parents[2] / "collector/web"
    for path, name, kind in (("/", "index.html", "text/html"), ("/main.js", "main.js", "text/javascript"), ("/base.css", "base.css", "text/css")):
        status, headers, body = one.ask(path)
        assert (status, headers["Content-Type"], body) == (200, f"{kind}; charset=utf-8", (web / name).read_bytes())
        assert headers["Content-Security-Policy"].startswith("default-src 'self';"), "neither scripts in the page nor other hosts"


def test_requests_and_connections_are_bounded(serve):
    one = serve()
    try:
        status, _, _ = one.ask("/api/v1/stations?x=" + "x" * 60000)
    except (ConnectionResetError, BrokenPipeError):
        status = 413  # it need not read a body to its end that is too long
    assert status in (400, 413, 414, 431)
    many = [socket.create_connection(("127.0.0.1", int(one.port)), PATIENCE) for _ in range(80)]
    try:
        refused = 0
        for peer in many:
            try:
                peer.sendall(b"GET /api/v1/status HTTP/1.1\r\nHost: localhost\r\n\r\n")
                refused += peer.recv(16) == b""
            except (ConnectionResetError, BrokenPipeError):
                refused += 1
        assert 16 <= refused < 80
    finally:
        for peer in many:
            peer.close()

    def answered():
        try:
            return one.get("/api/v1/status")
        except ConnectionError:
            return None
    assert wait(answered, "an answer")["reports"] == 0


def test_more_streams_than_may_be_are_refused(serve):
    one = serve()
    streams = [http.client.HTTPConnection("127.0.0.1", int(one.port), timeout=PATIENCE) for _ in range(33)]
    statuses = []
    for stream in streams:
        stream.request("GET", "/api/v1/events")
        statuses.append(stream.getresponse().status)
    assert statuses == [200] * 32 + [503]
    for stream in streams:
        stream.close()


def test_a_stream_that_is_not_read_is_cut_off_and_keeps_nobody_waiting(serve):
    one = serve()
    slow = socket.create_connection(("127.0.0.1", int(one.port)), PATIENCE)
    slow.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 65536)
    slow.sendall(b"GET /api/v1/events HTTP/1.1\r\nHost: localhost\r\n\r\n")
    assert slow.recv(12) == b"HTTP/1.1 200"
    for number in range(8000):
        one.send(told(number % 50, 3, NOON, number))
    wait(lambda: one.get("/api/v1/status")["reports"] == 8000, "the reports")
    taken = wait(lambda: [out for out in one.get("/api/v1/status")["outputs"] if out["name"] == "live" and out["waiting"] == 0],
                 "the view")
    assert taken[0]["taken"] + taken[0]["dropped"] == 8000
    # Now it reads what was on its way, and then the end of the stream, which would not come if it were still served.
    text = bytearray()
    try:
        while not text.endswith(b"0\r\n\r\n") and (some := slow.recv(1 << 20)):
            text += some
    except ConnectionResetError:
        pass  # it did not read for so long that not even the end was sent
    assert text.count(b"event: updated") < 7000
    slow.close()


def test_names_are_shown_unless_they_are_not_to_be(serve, tmp_path):
    (tmp_path / "names").write_text(f"{mac(1)} Anna\n")
    for options, name in ((), "Anna"), (("--drop-names",), ""):
        one = serve("--names", tmp_path / "names", *options)
        one.send(told(1, 1, NOON))
        assert one.stations(1)[0]["name"] == name
        assert one.program.stop() == 0


def test_an_output_that_blocks_loses_its_own_oldest_and_no_other_waits(start, build_dir, serve, tmp_path):
    serve().program.stop()  # or it is skipped
    os.mkfifo(tmp_path / "blocked.out")
    reader = os.open(tmp_path / "blocked.out", os.O_RDONLY | os.O_NONBLOCK)
    one = Served.__new__(Served)
    one.path = tmp_path / "socket"
    one.program = start([build_dir / "bin/wsm-collector", "--json", "--queue", "1000", "--socket", one.path, "--http", "127.0.0.1:0",
                         "--store", f"sqlite:{tmp_path}/store", "--commit", "0", "--sample", "0"], name="blocked")
    one.program.wait_for_socket(one.path)
    one.port = re.search(r"http: port (\d+)", one.program.err.read_text())[1]

    def outputs():
        return {out["name"]: out for out in one.get("/api/v1/status")["outputs"]}
    sent = 6000
    for number in range(sent):
        one.send(told(1 + number % 50, 3, NOON, number))
        if number % 500 == 499:  # with so short a queue a slow machine may cut off the others, too
            # What has not been read yet is in no queue, and would come at once.
            wait(lambda: one.get("/api/v1/status")["reports"] == number + 1, "its reading")
            wait(lambda: outputs()["store"]["waiting"] == outputs()["live"]["waiting"] == 0, "the others")
    wait(lambda: one.get("/api/v1/status")["reports"] == sent, "the reports")
    now_are = outputs()
    for name in ("live", "store"):
        assert (now_are[name]["taken"], now_are[name]["dropped"]) == (sent, 0)
    assert now_are["print"]["waiting"] == 1000
    lost = now_are["print"]["dropped"]
    assert lost == sent - 1000 - now_are["print"]["taken"] > 0
    one.program.process.send_signal(signal.SIGTERM)
    os.set_blocking(reader, True)
    with open(reader, "rb") as printed:
        numbers = [json.loads(line)["oltime"] for line in printed]
    assert one.program.wait_for_end() == 0
    assert numbers == sorted(numbers) and numbers[-1000:] == list(range(sent - 1000, sent)) and len(numbers) == sent - lost
    assert f"print: {lost} messages dropped" in one.program.err.read_text()


def metric(text, name, **labels):
    """The value of a line with these labels."""
    for line in text.splitlines():
        found = re.fullmatch(r"(\w+)(?:\{(.*)\})? (\S+)", line)
        if found and found[1] == name:
            have = dict(re.findall(r'(\w+)="((?:[^"\\]|\\.)*)"', found[2] or ""))
            if all(have.get(key) == value for key, value in labels.items()):
                return float(found[3])
    return None


def scrape(one):
    status, headers, body = one.ask("/metrics", port=one.metrics_port or one.port)
    assert status == 200 and headers["Content-Type"].startswith("text/plain; version=0.0.4")
    return body.decode()


def eventful(one):
    # The departure is the last event: a client that has it has all of them.
    one.send(told(1, 1, NOON, ssid='Caf\xe9 "A"\\'), told(2, 3, NOON, 60, wifi_up=7, wifi_down=9, floornoise=-95, utilization=12),
             told(3, 1, NOON), told(4, 9, NOON), b"short", told(3, 2, NOON, 60, reason="OW_STA_TIMEOUT", reason_code=300))
    return wait(lambda: metric(text := scrape(one), "wsm_changes_total", kind="left") == 1 and text, "the departure")


def test_metrics_tell_what_was_counted(serve):
    one = serve("--metrics", "127.0.0.1:0", "--grace", "0", http=None)
    text = eventful(one)
    ap = "02:54:4b:00:00:01"
    assert metric(text, "wsm_collector_reports_total") == 5
    assert metric(text, "wsm_collector_refused_total", cause="size") == 1
    assert metric(text, "wsm_collector_refused_total", cause="impossible") == 1
    assert metric(text, "wsm_stations", ap=ap, radio="0", ssid="Lobby") == 1
    assert metric(text, "wsm_departures_total", ap=ap, reason="OW_STA_TIMEOUT", code="300", ended_by="silence") == 1
    assert metric(text, "wsm_bytes_total", ap=ap, direction="down") == 9
    assert metric(text, "wsm_radio_noise_dbm", ap=ap, radio="0") == -95
    assert metric(text, "wsm_collector_output_dropped_total", output="live") == 0
    assert "wsm_station_" not in text
    assert one.ask("/api/v1/stations", port=one.metrics_port)[0] == 404


def test_the_metrics_name_stations_only_when_asked_for(serve):
    one = serve("--metrics-stations", "1", "--grace", "0", "--metrics", "127.0.0.1:0")
    text = eventful(one)
    assert metric(text, "wsm_station_bytes", mac=mac(2), direction="down") == 9
    assert metric(text, "wsm_station_signal_dbm", mac=mac(1)) is None


@pytest.mark.skipif(not shutil.which("promtool"), reason="promtool is not installed (package prometheus)")
def test_promtool_has_no_complaint(serve):
    one = serve("--metrics-stations", "10", "--grace", "0", "--metrics", "127.0.0.1:0")
    done = subprocess.run(["promtool", "check", "metrics"], input=eventful(one), capture_output=True, text=True, timeout=60,
                          check=False)
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")


@pytest.mark.skipif(not shutil.which("promtool"), reason="promtool is not installed (package prometheus)")
def test_promtool_accepts_the_alert_rules():
    done = subprocess.run(["promtool", "check", "rules", PROMETHEUS / "wsmd.rules.yml"], capture_output=True, text=True, timeout=60,
                          check=False)
    assert done.returncode == 0 and "8 rules found" in done.stdout, done.stdout + done.stderr


def test_rules_and_dashboard_ask_for_metrics_that_there_are(serve):
    one = serve("--metrics", "127.0.0.1:0", "--grace", "0")
    there = set(re.findall(r"^# TYPE (\w+)", eventful(one), re.M))
    texts = (PROMETHEUS / "wsmd.rules.yml").read_text(), (PROMETHEUS / "wsmd-dashboard.json").read_text()
    asked = set(re.findall(r"\bwsm_\w+", "".join(texts)))
    assert len(asked) >= 8 and asked <= there
    assert len(json.loads(texts[1])["panels"]) == 10
