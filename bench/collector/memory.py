"""Private memory of the collector with its store and its HTTP interface."""

import http.client
import json
import pathlib
import re
import socket
import struct
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tests/system"))
import formats  # noqa: E402  pylint: disable=wrong-import-position

DAYS, VISITS = 30, 2  # of each station: visits a day, each of three reports


def image(number, kind, since, after):
    fields = {"mac": f"02:00:00:00:{number >> 8:02x}:{number & 255:02x}", "ip": f"10.0.{number >> 8}.{number & 255}",
              "ssid": "Lobby", "ifname": "ath0", "rssi": -50, "channel": 6, "ap_mac": "02:54:4b:00:00:01\n",
              "log_type": kind, "online_ts": since, "oltime": after, "wifi_up": after * 100, "wifi_down": after * 900,
              "reason": "OW_STA_DEAUTH_RECV" if kind == 2 else "", "reason_code": 307 if kind == 2 else 0}
    if kind == 2:
        fields["offline_ts"] = since + after
    data = bytearray(formats.REPORT_SIZE)
    for name, value in fields.items():
        offset, form = formats.REPORT[name]
        struct.pack_into(form, data, offset, value.encode() if isinstance(value, str) else value)
    return bytes(data)


def month(stations, now):
    for day in range(DAYS, 0, -1):
        for visit in range(VISITS):
            for number in range(stations):
                since = now - day * 86400 + visit * 43200
                yield from (image(number, 1, since, 0), image(number, 3, since, 1800), image(number, 2, since, 3600))


def private_kib_of_collector(build, stations):
    program, now = build / "bin/wsm-collector", int(time.time())
    with tempfile.TemporaryDirectory() as folder:
        folder = pathlib.Path(folder)
        store, path = f"sqlite:{folder}/store", folder / "socket"
        if stations:
            with open(folder / "month", "wb") as file:
                file.writelines(month(stations, now))
            subprocess.run([program, "--quiet", "--store", store, folder / "month"], check=True)
        with open(folder / "err", "w+", encoding="utf-8") as err, \
                subprocess.Popen([program, "--quiet", "--socket", path, "--store", store, "--http", "127.0.0.1:0"], stderr=err) as running:
            try:
                while not path.exists():
                    time.sleep(0.05)
                port = int(re.search(r"http: port (\d+)", (folder / "err").read_text())[1])

                def status():
                    asked = http.client.HTTPConnection("127.0.0.1", port, timeout=30)
                    asked.request("GET", "/api/v1/status")
                    return json.loads(asked.getresponse().read())
                for after in range(0, 300, 60):  # minutes pass quickly here
                    for number in range(stations):
                        with socket.socket(socket.AF_UNIX) as peer:
                            peer.connect(str(path))
                            peer.sendall(image(number, 1 if after == 0 else 3, now, after))
                while status()["reports"] != 5 * stations:
                    time.sleep(0.1)
                time.sleep(2)  # the store's batch
                text = pathlib.Path(f"/proc/{running.pid}/smaps_rollup").read_text(encoding="utf-8")
                return float(sum(int(line.split()[1]) for line in text.splitlines() if line.startswith("Private_")))
            finally:
                running.terminate()
