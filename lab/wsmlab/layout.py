"""The lab's file system: an access point's files at their absolute paths, in a mount namespace of its own.

Runs inside the lab before anything else. The covered folders stay reachable below /mnt.
"""

import ctypes
import os

MS_BIND, MS_REC = 0x1000, 0x4000
SHELF = "/mnt"

_libc = ctypes.CDLL(None, use_errno=True)


def mount(source, target, kind="", flags=0, data=""):
    """mount(2); raises OSError with the target in it."""
    if _libc.mount(source.encode(), target.encode(), kind.encode(), ctypes.c_ulong(flags), data.encode()) != 0:
        number = ctypes.get_errno()
        raise OSError(number, os.strerror(number), target)


def empty(target, mode="755"):
    """Covers `target` with an empty folder."""
    mount("lab", target, "tmpfs", data=f"mode={mode}")


def bind(source, target):
    mount(source, target, flags=MS_BIND | MS_REC)


def cover(target, new):
    """Covers `target` with a folder of links to what it held, so that the folder `new` can be made in it.

    An overlay would work for /etc but not for /proc, which does not allow it; links work for both, and for users other than
    root.
    """
    shelf = SHELF + target
    os.makedirs(shelf, exist_ok=True)
    if target == "/proc":
        mount("proc", shelf, "proc")  # a new one: it shows the processes of the lab's own namespace
    else:
        bind(target, shelf)
    empty(target)
    for name in os.listdir(shelf):
        if target == "/proc" and name.isdigit():
            continue  # comes and goes: see ProcessLinks
        if name == new:
            continue  # this machine has one too
        entry = f"{shelf}/{name}"
        # A relative link is copied unchanged: below /mnt it would point elsewhere.
        relative = target != "/proc" and os.path.islink(entry) and not os.readlink(entry).startswith("/")
        os.symlink(os.readlink(entry) if relative else entry, f"{target}/{name}")


class ProcessLinks:
    """Keeps a link /proc/<pid> for every process that exists or will soon exist.

    Process numbers rise, so links are made ahead of the last one; a link without a process dangles, which reads as
    "no such file", as it should.
    """

    AHEAD = 4096

    def __init__(self):
        self.made = 0

    def extend(self):
        with open(f"{SHELF}/proc/loadavg", encoding="ascii") as file:
            last = int(file.read().split()[-1])
        while self.made < last + self.AHEAD:
            self.made += 1
            os.symlink(f"{SHELF}/proc/{self.made}", f"/proc/{self.made}")


def lay_out(keep, files):
    """Makes the lab's folders. `keep`: folders that must stay visible in their place even under a covered one;
    `files`: the access point's files, path to text."""
    handles = {path: os.open(path, os.O_PATH | os.O_DIRECTORY) for path in keep}
    empty(SHELF)
    for number, handle in enumerate(handles.values()):
        os.mkdir(f"{SHELF}/{number}")
        os.fchdir(handle)
        bind(".", f"{SHELF}/{number}")
        os.close(handle)
    cover("/proc", new="tk_sys")
    cover("/etc", new="config")
    empty("/tmp", mode="1777")
    empty("/run")
    if os.path.realpath("/var/run") != "/run":
        bind("/run", "/var/run")
    for number, path in enumerate(handles):
        if not os.path.isdir(path):
            os.makedirs(path)
            bind(f"{SHELF}/{number}", path)
    os.makedirs("/etc/config")
    for path, text in files.items():
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="utf-8", errors="surrogateescape") as file:
            file.write(text)
