"""The size of wsm-bridge: a small access point has to hold it in its flash and in its memory."""

import subprocess

import pytest

# Bytes of text, as `size` counts it. The GCC that comes with Debian 12 makes 55,900, 37,200 and 65,000 of it.
BOUNDS = {"Advanced Micro Devices X86-64": 65536, "ARM": 40960, "MIPS R3000": 65536}


def test_the_text_of_the_bridge_is_small(build_dir, sanitized):
    bridge = build_dir / "bin/wsm-bridge"
    if sanitized or not bridge.exists():
        pytest.skip("there is no bridge as it is shipped")
    header = subprocess.run(["readelf", "-h", bridge], capture_output=True, text=True, check=True).stdout
    machine = next(line.partition(":")[2].strip() for line in header.splitlines() if line.strip().startswith("Machine:"))
    if machine not in BOUNDS:
        pytest.skip(f"no bound is known for {machine}")
    sizes = subprocess.run(["size", bridge], capture_output=True, text=True, check=True).stdout
    text = int(sizes.splitlines()[1].split()[0])
    assert text < BOUNDS[machine], (
        f"{text} bytes of text on {machine}, and {BOUNDS[machine]} is the bound. Look for what grew: `nm -S --size-sort -C "
        f"{bridge}` lists the functions. Mostly it is an algorithm of the C++ library that was inlined several times, a template "
        "with several types, or code that can be shared. Raise the bound only if the new code is worth the flash of a small device.")
