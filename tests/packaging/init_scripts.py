"""Runs the init scripts of a device with stand-ins for its init library."""

import subprocess

STUBS = "tests/packaging/openwrt"


def run_init(tree, feed, call, tmp_path, wireless="/etc/config", capability_text="{}", service="wsmd"):
    """The calls of the init library that a function of the script makes, as lists of words."""
    capability = tmp_path / "tk_device/tk_device.json"
    if capability_text is not None:
        capability.parent.mkdir(exist_ok=True)
        capability.write_text(capability_text)
    script = (f'. "{tree / STUBS}/procd.sh"; . "{feed}/files/etc/init.d/{service}"; '
              f'CAPABILITY_FILE="{capability}"; WIRELESS_FOLDER="{wireless}"; {call}')
    done = subprocess.run(["sh", "-c", script], check=False, capture_output=True, text=True)
    assert done.stderr == ""
    return [line.split() for line in done.stdout.splitlines()]
