"""What a program might leave behind on the machine."""

import pathlib


def _processes():
    """Every process: its number, when it started (numbers are used again), and its parent's number."""
    for folder in pathlib.Path("/proc").glob("[0-9]*"):
        try:
            fields = (folder / "stat").read_text(errors="replace").rsplit(")", 1)[1].split()
        except OSError:  # it has ended
            continue
        yield int(folder.name), int(fields[19]), int(fields[1])


def processes_below(pid):
    """All that have come from this process: a set for still_running(). The first process of a process namespace is one
    of them, and none lives there without it."""
    found, parents, everyone = set(), {pid}, list(_processes())
    while parents:
        children = {(number, start) for number, start, parent in everyone if parent in parents}
        found |= children
        parents = {number for number, _ in children}
    return found


def still_running(processes):
    return processes & {(number, start) for number, start, _ in _processes()}


def mounts():
    """Where something is mounted, for this process."""
    return {line.split()[4] for line in pathlib.Path("/proc/self/mountinfo").read_text().splitlines()}
