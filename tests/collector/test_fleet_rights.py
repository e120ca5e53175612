"""The broker's configuration for a fleet, as packaged: each access point has a certificate and may publish only its own reports."""

import json
import os
import pathlib
import re
import shutil
import subprocess
import time

import pytest

from brokers import Publisher, free_port, needs_mosquitto, subscribed
from certificates import certificate
from images import mac, told
from programs import wait

pytestmark = needs_mosquitto
NOW = int(time.time()) - 1000
CONFIGURATION = pathlib.Path(__file__).resolve().parents[2] / "packaging/fleet"
ONE, OTHER = "02:54:4b:00:00:01", "02:54:4b:00:00:02"


@pytest.fixture
def port(start, tmp_path, with_mqtt):  # pylint: disable=unused-argument
    """The port of a broker with the packaged configuration, except for its paths."""
    if shutil.which("openssl") is None:
        pytest.skip("openssl is not installed")
    for name, common_name in (("ca", "fleet"), ("server", "broker"), ("collector", "wsm-collector"), ("one", ONE), ("other", OTHER)):
        certificate(tmp_path, name, common_name)
    number = free_port()
    text = (CONFIGURATION / "mosquitto.conf").read_text()
    text = text.replace("/etc/mosquitto/certs/", f"{tmp_path}/").replace("/var/lib/mosquitto/", f"{tmp_path}/")
    text = text.replace("/etc/mosquitto/wsmd.acl", str(tmp_path / "wsmd.acl"))
    (tmp_path / "wsmd.acl").write_text((CONFIGURATION / "mosquitto.acl").read_text())
    (tmp_path / "wsmd.acl").chmod(0o700)
    (tmp_path / "mosquitto.conf").write_text(re.sub(r"^listener .*", f"listener {number} 127.0.0.1\n{'user root' if os.geteuid() == 0 else ''}", text, flags=re.M))
    broker = start(["/usr/sbin/mosquitto", "-c", tmp_path / "mosquitto.conf"])
    wait(lambda: broker.process.poll() is not None or " running" in broker.err.read_text(), "the broker")
    assert broker.process.poll() is None, broker.err.read_text()
    return number


def with_certificate(option, folder, name):
    return [f"--{option}-ca", folder / "ca.crt", f"--{option}-cert", folder / f"{name}.crt", f"--{option}-key", folder / f"{name}.key"]


def test_an_access_point_speaks_for_itself_alone(port, start, build_dir, tmp_path):
    collector = start([build_dir / "bin/wsm-collector", "--json", "--subscribe", f"mqtts://127.0.0.1:{port}/wsm/+",
                       *with_certificate("subscribe", tmp_path, "collector")], name="collector")
    subscribed(collector)

    def published(name, prefix, *reports):
        folder = tmp_path / f"{name}-{prefix[-1]}"
        folder.mkdir()
        one = Publisher(start, build_dir, folder, f"mqtts://127.0.0.1:{port}/wsm/{prefix}", *with_certificate("publish", tmp_path, name))
        one.send(*reports)
        assert one.program.stop() == 0, one.program.err.read_text()
        assert "dropped" not in one.program.err.read_text(), "the broker has taken all of it"
    # The reports are of access point ONE. The other one sends them under the first one's name, which the broker refuses, and
    # under its own name, where the collector refuses them.
    published("other", ONE, told(7, 1, NOW))
    published("other", OTHER, told(8, 1, NOW))
    published("one", ONE, told(1, 1, NOW))
    wait(lambda: any("\"mac\"" in line for line in collector.lines()), "the report")
    told_of = [json.loads(line).get("mac") for line in collector.lines()]
    assert told_of == [None, mac(1)], "what the other one said of itself was set aside"
    assert collector.stop() == 3
    assert f"not of the access point that its topic names: wsm/{OTHER}/report/{ONE}" in collector.err.read_text()
