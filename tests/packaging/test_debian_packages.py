"""The Debian packages: what is in them, and that they install, run and remove cleanly in a fresh root."""

import json
import os
import pathlib
import platform
import re
import shutil
import subprocess
import time
import urllib.error
import urllib.request
import zlib

import pytest

from trees import files_below

RELEASE = platform.freedesktop_os_release().get("VERSION_CODENAME", "")
ROOT_IS_OLD = 30 * 24 * 3600               # seconds
NAMES = ["wsmd-base", "wsmd", "wsm-bridge", "wsmd-tools", "wsm-collector"]


def run(*command, **options):
    done = subprocess.run(command, capture_output=True, text=True, check=False, **options)
    assert done.returncode == 0, f"{command}\n{done.stdout}{done.stderr}"
    return done.stdout


@pytest.fixture(scope="module")
def packages(build_dir, cache, bundled, sanitized, tmp_path_factory):
    """The packages that the build makes: name to path."""
    if shutil.which("dpkg-shlibdeps") is None or shutil.which("fakeroot" if os.geteuid() else "dpkg-deb") is None:
        pytest.skip("no tools for Debian packages")
    if sanitized or not bundled or cache.get("WSMD_LAB") != "ON" or not (build_dir / "bin/wsm-bridge").exists():
        pytest.skip("packages are made of a whole build without sanitizers")
    folder = tmp_path_factory.mktemp("packages")
    run("cpack", "-G", "DEB", "--config", build_dir / "CPackConfig.cmake", "-B", folder)
    made = {path.name.split("_")[0]: path for path in folder.glob("*.deb")}
    assert sorted(made) == sorted(NAMES)
    return made


def field(package, name):
    return run("dpkg-deb", "--field", package, name).strip()


def contents(package, folder):
    run("dpkg-deb", "--extract", package, folder)
    return files_below(folder)


def test_together_they_hold_what_is_installed_and_each_file_once(packages, installed, tmp_path):
    packed = [name for package in NAMES for name in contents(packages[package], tmp_path / package)]
    assert sorted(packed) == [f"usr/{name}" for name in files_below(installed)]


def test_each_depends_on_what_it_needs(packages, cache):
    version = field(packages["wsmd"], "Version")
    depends = {name: field(packages[name], "Depends").split(", ") for name in NAMES}
    for name in NAMES:
        assert any(word.startswith("libc6 ") for word in depends[name])
        assert name in ("wsm-bridge", "wsm-collector") or any(word.startswith("libjson-c5 ") for word in depends[name])
    assert {"iptables", f"wsmd-base (= {version})"} <= set(depends["wsmd"])
    assert f"wsmd-base (= {version})" in depends["wsmd-tools"]
    assert f"wsmd-base (= {version})" in depends["wsm-bridge"]
    assert any(word.startswith("libnl-genl-3-200 ") for word in depends["wsm-bridge"])
    assert all(any(word.startswith("libstdc++6 ") for word in depends[name]) for name in ("wsmd-tools", "wsm-collector"))
    ends = {"libsqlite3-0": "SQLITE", "libmicrohttpd12": "HTTP", "libmosquitto1": "MQTT", "librabbitmq4": "AMQP",
            "libpq5": "POSTGRES", "libssl3": "HASH", "zlib1g": "HTTP"}
    of_collector = {word.split()[0].removesuffix("t64") for word in depends["wsm-collector"]}
    assert of_collector & set(ends) == {name for name, end in ends.items() if cache.get(f"COLLECTOR_{end}_FOUND") == "1"}
    assert not any("libstdc++" in word for word in depends["wsmd"] + depends["wsmd-base"] + depends["wsm-bridge"])


def test_each_says_what_it_is(packages):
    descriptions = {name: field(packages[name], "Description").splitlines() for name in NAMES}
    assert len({lines[0] for lines in descriptions.values()}) == len(NAMES)
    assert all(len(lines) > 1 and len(lines[0]) <= 70 for lines in descriptions.values())
    assert all(field(packages[name], "Maintainer") for name in NAMES)


# --- in a fresh root ---

def mirror():
    """The package mirror of this machine, if it answers."""
    try:
        sites = run("apt-get", "indextargets", "--format", "$(SITE) $(CODENAME)", "Created-By: Packages").splitlines()
    except (AssertionError, FileNotFoundError):
        return None
    for site in sorted({line.split()[0] for line in sites if line.split()[1:] == [RELEASE]}):
        try:
            with urllib.request.urlopen(f"{site}/dists/{RELEASE}/InRelease", timeout=5):
                return site
        except (urllib.error.URLError, OSError, ValueError):
            continue
    return None


@pytest.fixture
def fresh_root(build_dir, tmp_path, packages):
    """A minimal Debian in a folder, with what the packages depend on. It is kept in the build folder as an archive."""
    if os.geteuid() != 0:
        pytest.skip("only root can make a root")
    depends = {word.split()[0] for package in packages.values() for word in field(package, "Depends").split(", ")}
    needed = ",".join(sorted(depends - packages.keys()))
    archive = build_dir / f"{RELEASE}-root-{zlib.crc32(needed.encode()):08x}.tar"
    root = tmp_path / "root"
    if not archive.exists() or time.time() - archive.stat().st_mtime > ROOT_IS_OLD:
        if shutil.which("debootstrap") is None:
            pytest.skip("debootstrap is not installed")
        site = mirror()
        if site is None:
            pytest.skip("no package mirror can be reached")
        # It mounts folders of the root meanwhile, which is nobody else's business.
        run("unshare", "--mount", "debootstrap", "--variant=minbase", f"--include={needed}", RELEASE, root, site)
        new = archive.with_suffix(".new")
        run("tar", "-C", root, "--exclude=./proc/*", "--exclude=./dev/*", "--exclude=./var/cache/apt/archives/*.deb",
            "-cf", new, ".")
        new.replace(archive)
    else:
        root.mkdir()
        run("tar", "-C", root, "-xpf", archive)
    (root / "dev/null").unlink(missing_ok=True)
    run("mknod", "-m", "666", root / "dev/null", "c", "1", "3")
    yield root
    shutil.rmtree(root)


def in_root(root, *command, namespaces=()):
    """Runs a program in the fresh root to its end; processes that it leaves behind end with it."""
    return run("unshare", "--mount", "--pid", *namespaces, "--fork", "--kill-child", "chroot", root, *command,
               env={"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LANG": "C", "DEBIAN_FRONTEND": "noninteractive"}, timeout=120)


def belongings(root):
    """Every file of the root, without those of package management, its caches and the lists of accounts."""
    kept = ("var/lib/dpkg/", "var/cache/", "var/log/", "etc/ld.so.cache", "etc/group-", "etc/gshadow-", "etc/passwd-", "etc/shadow-", "dev/", "proc/")
    return [name for name in files_below(root) if not name.startswith(kept)]


def accounts(root):
    return [(root / "etc" / name).read_text(encoding="utf-8") for name in ("group", "passwd")]


def look_at_the_collector_s_user_and_settings(root):
    assert "\nwsm-collector:x:" in accounts(root)[1]
    settings = root / "etc/wsm-collector.conf"
    assert settings.stat().st_mode & 0o777 == 0o640
    assert in_root(root, "stat", "-c", "%U:%G", "/etc/wsm-collector.conf") == "root:wsm-collector\n"
    # As its user it reads them and works, where systemd would have made the folder.
    in_root(root, "install", "-d", "-o", "wsm-collector", "/var/lib/wsm-collector")
    in_root(root, "setpriv", "--reuid=wsm-collector", "--regid=wsm-collector", "--init-groups", "sh", "-c",
            "wsm-collector --config /etc/wsm-collector.conf /dev/null")
    assert (root / "var/lib/wsm-collector/stations.db").exists()


def look_at_it_running(root):
    shutil.copy(pathlib.Path(__file__).with_name("fresh_root.sh"), root / "run")
    answer, report, size, end = in_root(root, "/run/fresh_root.sh", namespaces=["--net"]).splitlines()
    stations = {station["mac"] for station in json.loads(answer)["online_list"]}
    assert json.loads(report)["mac"] in stations
    assert size == "65536"
    assert end == "daemon ended with 1"


def run_the_devices_own_checks(root, feed):
    shutil.copytree(feed / "files/etc", root / "etc", dirs_exist_ok=True)
    shutil.copy(feed / "test.sh", root / "run")
    for package in ("wsmd", "wsm-bridge", "libdebug-open", "libwas-open", "wsmd-tools", "wsm-collector"):
        in_root(root, "sh", "/run/test.sh", package, "0.1.0", namespaces=["--net"])


def test_in_a_fresh_root_they_install_run_and_leave_nothing_behind(fresh_root, packages, feed):
    root = fresh_root
    before, accounts_before = belongings(root), accounts(root)
    for name in NAMES:
        shutil.copy(packages[name], root / "var/cache")
    in_root(root, "dpkg", "--install", *(f"/var/cache/{packages[name].name}" for name in NAMES))
    assert "\nwsmd:x:" in accounts(root)[0]
    assert re.search(r"^wsm-bridge:x:\d+:\d+::/nonexistent:/usr/sbin/nologin$", accounts(root)[1], re.M)
    look_at_the_collector_s_user_and_settings(root)

    look_at_it_running(root)
    run_the_devices_own_checks(root, feed)

    in_root(root, "dpkg", "--purge", *reversed(NAMES))
    left = set(belongings(root)) - set(before)
    ours = {f"etc/{name}" for name in files_below(feed / "files/etc")} | {
        f"etc/config/{name}" for name in ("debug", "sysinfo", "system", "wifiinfo", "wireless")} | {  # made by the checks
        "run/fresh_root.sh", "run/test.sh", "tmp/.sta_file_lockpath", "tmp/sta.log"}
    assert left - ours == set()
    assert accounts(root) == accounts_before
