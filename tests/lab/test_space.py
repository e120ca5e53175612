"""What a space leaves behind when it has ended."""
import os

from wsmlab.space import Space


def descriptors():
    return len(os.listdir("/proc/self/fd"))


def test_what_a_program_printed_is_read_after_its_space_has_ended():
    with Space(keep=[], files={}, environment={"PATH": os.environ["PATH"]}) as space:
        talker = space.start("talker", ["sh", "-c", "echo to one; echo to the other >&2"], apart=True)
        talker.wait()
    assert (talker.text(), talker.err.text()) == ("to one\n", "to the other\n")
    assert talker.lines() == ["to one"]


def test_a_space_that_has_ended_keeps_no_descriptor():
    before = descriptors()
    with Space(keep=[], files={}, environment={"PATH": os.environ["PATH"]}) as space:
        for name in ("first", "second"):
            space.start(name, ["sleep", "100"], apart=True)
    assert descriptors() == before
