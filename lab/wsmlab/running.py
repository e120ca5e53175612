"""The labs of ./demo that run now, so that another terminal can enter the newest.

Each writes one file, wsmd-demo-PID in the folder for temporary files: JSON with `init` (the lab's first process, as this
machine counts), `user` (whether it has a user namespace of its own) and `environment`. Another user's file is ignored.
"""

import contextlib
import json
import os
import pathlib
import stat
import tempfile

from .space import LabError

SHELL = ["/bin/bash", "--norc", "-i"]
_PREFIX = "wsmd-demo-"


def _folder():
    return pathlib.Path(tempfile.gettempdir())


@contextlib.contextmanager
def announced(lab):
    """Entered while `lab`, which is open, may be visited."""
    file = _folder() / f"{_PREFIX}{os.getpid()}"
    file.unlink(missing_ok=True)  # of an earlier process of this number
    with open(os.open(file, os.O_WRONLY | os.O_CREAT | os.O_EXCL, 0o600), "w", encoding="utf-8") as out:
        json.dump({"init": lab.space.init_pid, "user": lab.space.has_user_namespace,
                   "environment": lab.space.environment}, out)
    try:
        yield
    finally:
        file.unlink(missing_ok=True)


def newest():
    """What the newest lab that still runs has written; LabError when none does."""
    found = []
    for file in _folder().glob(f"{_PREFIX}*"):
        with contextlib.suppress(OSError, ValueError):
            status = file.lstat()
            if stat.S_ISREG(status.st_mode) and status.st_uid == os.getuid():
                found.append((status.st_mtime, file.name.removeprefix(_PREFIX), json.loads(file.read_text())))
    for _, pid, lab in sorted(found, key=lambda one: one[0], reverse=True):
        if pathlib.Path(f"/proc/{pid}").exists():
            return lab
    raise LabError("no demo runs: start ./demo in another terminal first")


def enter(command=None):
    """Replaces this process by `command`, or a shell, in the newest lab."""
    lab = newest()
    namespaces = ["--mount", "--net", "--pid", *(["--user", "--preserve-credentials"] if lab["user"] else [])]
    kept = {name: os.environ[name] for name in ("TERM", "COLUMNS", "LINES") if name in os.environ}
    path = f"{lab['environment']['PATH']}:{os.environ.get('PATH', '')}"
    words = ["nsenter", f"--target={lab['init']}", *namespaces, "--wd=/", "--", *(command or SHELL)]
    try:
        os.execvpe("nsenter", words, {**kept, "PS1": r"lab:\w\$ ", **lab["environment"], "PATH": path})
    except FileNotFoundError as error:
        raise LabError("nsenter is missing: it is in the package util-linux") from error
