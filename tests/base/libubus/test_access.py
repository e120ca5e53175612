"""What users other than root may do: they reach named objects and events only by the grants of rule files."""

import contextlib
import json
import os
import pathlib
import resource
import signal
import socket
import tempfile

import pytest
from ubus_wire import (A_DATA, A_METHOD, A_OBJID, A_OBJPATH, A_OBJTYPE, A_SIGNATURE, A_STATUS, ADD_OBJECT, INVOKE, LOOKUP,
                       REMOVE_OBJECT, STATUS, Broker, Connection, attr, i32, int32, message, string, table, text)

pytestmark = pytest.mark.skipif(os.geteuid() != 0, reason="only root can be somebody else")

USER, USER_ID = "nobody", 65534
GROUP, GROUP_ID = "nogroup", 65534
MAIL_ID = 8  # group `mail`, of which the user is a member in some tests


@contextlib.contextmanager
def identity(uid, gid, groups=()):
    """Connections that are opened in this block belong to this user."""
    before = os.getgroups()
    os.setgroups(groups)
    os.setegid(gid)
    os.seteuid(uid)
    try:
        yield
    finally:
        os.seteuid(0)
        os.setegid(0)
        os.setgroups(before)


class Bus(Broker):
    """A broker with rule files, in a folder that every user can reach."""

    def __init__(self, build_dir):
        self.folder = tempfile.TemporaryDirectory(prefix="ubus-access-")
        folder = pathlib.Path(self.folder.name)
        folder.chmod(0o755)
        self.rules = folder / "acl.d"
        self.rules.mkdir()
        super().__init__(build_dir / "bin" / "ubusd", folder, "-A", str(self.rules))
        self.root = self.connect()
        self.sequence = self.connect()
        self.sequence.listen("ubus.acl.sequence")

    def connect_as(self, uid=USER_ID, gid=GROUP_ID, groups=()):
        with identity(uid, gid, groups):
            return self.connect()

    def write(self, name, rules, mode=0o644):
        path = self.rules / name
        path.write_text(rules if isinstance(rules, str) else json.dumps(rules), encoding="utf-8")
        path.chmod(mode)
        return path

    def reload(self):
        """Makes the broker read the rules; returns the sequence number that it announces."""
        self.process.send_signal(signal.SIGHUP)
        event = self.sequence.receive()
        assert event.attrs[A_METHOD] == b"ubus.acl.sequence\0"
        return int.from_bytes(event.attrs[A_DATA][-4:], "big")

    def grant(self, **rules):
        """The rules of our user, from now on."""
        self.write("test.json", {"user": USER, **rules})
        self.reload()

    def done(self):
        super().done()
        self.folder.cleanup()


@pytest.fixture
def bus(build_dir):
    broker = Bus(build_dir)
    yield broker
    broker.done()


def status_of(connection, kind, *attrs):
    return connection.ask(kind, *attrs)[1]


def add(connection, path):
    return status_of(connection, ADD_OBJECT, text(A_OBJPATH, path), attr(A_SIGNATURE, table("m")))


def call(connection, obj, method):
    """Calls without reading: the test decides which connection reads what."""
    connection.send(message(INVOKE, 99, obj, i32(A_OBJID, obj), text(A_METHOD, method), attr(A_DATA, b"")))


@pytest.mark.parametrize("uid, gid", [(54321, GROUP_ID), (USER_ID, 54321)])
def test_peer_without_a_name_is_not_even_greeted(bus, uid, gid):
    with identity(uid, gid):
        sock = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        sock.connect(bus.path)
    one = Connection(sock, greeted=False)
    with pytest.raises(EOFError):
        one.receive()
    one.close()


def test_without_rules_a_user_is_refused_all_that_has_a_name(bus):
    target = bus.root.add_object("root.obj", "m")
    one = bus.connect_as()
    own = one.add_object()
    assert add(one, "mine") == 2
    assert one.lookup() == ({}, 0)
    assert one.lookup("root.obj") == ({}, 0)
    assert one.lookup("root.*") == ({}, 0)
    call(one, target, "m")
    assert one.receive().status == 6
    assert one.subscribe(own, target) == 4
    assert one.listen("*")[1] == 6
    assert one.send_event("x") == 6


def test_anonymous_objects_need_no_rule(bus):
    one = bus.connect_as()
    own = one.add_object()
    other = bus.root.add_object()
    call(one, other, "m")
    forwarded = bus.root.receive()
    assert forwarded.attrs[12] == USER.encode() + b"\0" and forwarded.attrs[13] == GROUP.encode() + b"\0"
    bus.root.send(message(STATUS, 99, one.id, i32(A_STATUS, 5), i32(A_OBJID, other)))
    assert one.receive().status == 5
    assert status_of(one, REMOVE_OBJECT, i32(A_OBJID, own)) == 0


def test_anonymous_object_is_watched_only_by_its_owners_user_or_group(bus):
    owner = bus.connect_as()
    target = owner.add_object()
    for uid, gid, status in ((USER_ID, MAIL_ID, 0), (1, GROUP_ID, 0), (1, MAIL_ID, 4), (0, 0, 0)):
        one = bus.connect_as(uid, gid)
        assert one.subscribe(one.add_object(), target) == status


def test_publish(bus):
    bus.grant(publish=["mine", "my.*"])
    one = bus.connect_as()
    assert [add(one, path) for path in ("mine", "my.a", "my.", "my", "mine2")] == [0, 0, 0, 2, 2]


def test_access_shows_and_permits_only_the_granted_methods(bus):
    both = table("get") + table("set")
    for path in ("a", "b", "c"):
        assert status_of(bus.root, ADD_OBJECT, text(A_OBJPATH, path), attr(A_SIGNATURE, both)) == 0
    bare = bus.root.add_object("bare")
    bus.grant(access={"a": {"methods": ["get"]}, "b": {"methods": ["*"]}, "d": {"methods": ["*"]}})
    one = bus.connect_as()
    data, status = one.ask(LOOKUP)
    assert status == 0
    shown = {d.attrs[A_OBJPATH][:-1].decode(): d.attrs[A_SIGNATURE] for d in data}
    assert shown == {"a": table("get"), "b": both, "bare": b""}  # the rules hide only methods, and this one has none
    ids = bus.root.lookup()[0]
    for path, method, permitted in (("a", "get", True), ("a", "set", False), ("b", "set", True), ("c", "get", False),
                                    ("b", "made up", True)):
        call(one, ids[path], method)
        if permitted:
            assert bus.root.receive().attrs[A_METHOD] == method.encode() + b"\0"
        else:
            assert one.receive().status == 6
    assert ids["bare"] == bare


def test_subscribe_listen_and_send(bus):
    target = bus.root.add_object("watched", "m")
    bus.grant(subscribe=["watched"], listen=["ip_*", "exact"], send=["my_*"])
    one = bus.connect_as()
    own = one.add_object()
    assert one.subscribe(own, target) == 0
    assert [one.listen(p)[1] for p in ("ip_change", "ip_*", "exact", "*", "ip*", "other")] == [0, 0, 0, 6, 6, 6]
    assert [one.send_event(e) for e in ("my_event", "my_", "other")] == [0, 0, 6]


def test_group_rules_count_for_the_primary_and_supplementary_groups(bus):
    bus.write("group.json", {"group": "mail", "send": ["x"]})
    bus.reload()
    assert bus.connect_as(USER_ID, MAIL_ID).send_event("x") == 0
    assert bus.connect_as(USER_ID, GROUP_ID, [4, MAIL_ID, 12]).send_event("x") == 0
    assert bus.connect_as(USER_ID, GROUP_ID, [4]).send_event("x") == 6


def test_user_wins_over_group_in_one_file(bus):
    bus.write("both.json", {"user": "daemon", "group": GROUP, "send": ["x"]})
    bus.reload()
    assert bus.connect_as().send_event("x") == 6
    assert bus.connect_as(1, GROUP_ID).send_event("x") == 0


@pytest.mark.parametrize("spoil", [
    lambda path: path.chmod(0o664),
    lambda path: path.chmod(0o646),
    lambda path: path.chmod(0o645),
    lambda path: os.chown(path, USER_ID, 0),
    lambda path: os.chown(path, 0, GROUP_ID),
    lambda path: (path.unlink(), path.mkdir()),
    lambda path: (path.unlink(), os.mkfifo(path)),
    lambda path: path.write_text("{broken", encoding="utf-8"),
    lambda path: path.write_text('{"send":["x"]}', encoding="utf-8"),
    lambda path: path.write_text('{"group":"no such group","send":["x"]}', encoding="utf-8"),
    lambda path: path.rename(path.with_suffix(".conf")),
], ids=["group may write", "world may write", "world may execute", "foreign user", "foreign group", "a folder", "a pipe",
        "no JSON", "no user", "unknown group", "another suffix"])
def test_rule_file_that_cannot_be_trusted_or_read_grants_nothing(bus, spoil):
    bus.write("ok.json", {"user": USER, "send": ["ok"]})
    spoil(bus.write("spoilt.json", {"user": USER, "send": ["x"]}))
    bus.reload()
    one = bus.connect_as()
    assert [one.send_event(e) for e in ("ok", "x")] == [0, 6]


def test_parts_of_a_rule_file_that_make_no_sense_are_left_out(bus):
    bus.grant(send=["x", 7], listen="y", publish=["z"], access={"a": 1, "b": {"methods": [1]}, "c": {}}, subscribe={})
    one = bus.connect_as()
    assert (one.send_event("x"), one.listen("y")[1], add(one, "z")) == (6, 6, 0)


def test_reload_replaces_the_rules_and_counts(bus):
    bus.write("a.json", {"user": USER, "send": ["x"]})
    assert bus.reload() == 1
    one = bus.connect_as()
    assert one.send_event("x") == 0
    bus.write("a.json", {"user": USER, "send": ["y"]})
    assert bus.reload() == 2
    assert [one.send_event(e) for e in ("x", "y")] == [6, 0]


def test_reload_without_any_file_changes_nothing(bus):
    path = bus.write("a.json", {"user": USER, "send": ["x"]})
    assert bus.reload() == 1
    path.unlink()
    bus.process.send_signal(signal.SIGHUP)
    one = bus.connect_as()
    assert one.send_event("x") == 0
    bus.write("b.json", {"user": USER, "send": ["y"]})
    assert bus.reload() == 2


def test_reload_without_descriptors_for_it_changes_nothing(bus):
    bus.write("a.json", {"user": USER, "send": ["x"]})
    assert bus.reload() == 1
    one = bus.connect_as()
    used = {int(fd) for fd in os.listdir(f"/proc/{bus.process.pid}/fd")}
    free = [fd for fd in range(len(used) + 2) if fd not in used]
    soft, hard = resource.prlimit(bus.process.pid, resource.RLIMIT_NOFILE)
    for spare in (0, 1):  # none, and enough for the folder but not for the file
        resource.prlimit(bus.process.pid, resource.RLIMIT_NOFILE, (free[spare], hard))
        bus.process.send_signal(signal.SIGHUP)
        assert bus.root.is_served() and bus.root.is_served()
        assert one.send_event("x") == 0
    resource.prlimit(bus.process.pid, resource.RLIMIT_NOFILE, (soft, hard))
    assert bus.reload() == 2


def query(connection):
    data, status = connection.ask(INVOKE, i32(A_OBJID, 2), text(A_METHOD, "query"))
    assert status == 0 and len(data) == 1 and data[0].number(A_OBJID) == 2
    return data[0].attrs[A_DATA]


def array(name, elements):
    """As a table, but of the array type."""
    data = bytearray(table(name, *elements))
    data[0] = 0x81
    return bytes(data)


def test_owner_can_read_the_sections_for_its_objects(bus):
    assert query(bus.root) == int32("seq", 0) + array("acl", [])
    bus.write("a.json", {"user": USER, "access": {"obj*": {"methods": ["m"], "acl": {"read": ["all"]}}}})
    bus.write("b.json", {"group": "mail", "access": {"other": {"acl": {"x": "y"}}, "obj1": {"acl": {"n": 1}}}})
    bus.reload()
    bus.root.add_object("obj1", "m")
    bus.root.add_object()
    assert query(bus.root) == int32("seq", 1) + array("acl", [
        table("", string("obj", "obj1"), string("user", USER),
              table("acl", array("read", [string("", "all")]))),
        table("", string("obj", "obj1"), string("group", "mail"), table("acl", int32("n", 1)))])
    assert query(bus.connect_as()) == int32("seq", 1) + array("acl", [])


def test_monitor_is_for_user_and_group_root_only(bus):
    for uid, gid, status in ((USER_ID, 0, 6), (0, GROUP_ID, 6)):
        one = bus.connect_as(uid, gid)
        for method in ("add", "remove"):
            call_status = status_of(one, INVOKE, i32(A_OBJID, 3), text(A_METHOD, method))
            assert call_status == status


def test_user_has_a_limit_of_records_and_root_has_not(bus):
    limit = 4096
    one = bus.connect_as()
    ids = [one.add_object() for _ in range(limit)]
    assert status_of(one, ADD_OBJECT) == 6
    assert status_of(one, REMOVE_OBJECT, i32(A_OBJID, ids[0])) == 0
    assert status_of(one, ADD_OBJECT) == 0
    for _ in range(limit + 1):
        bus.root.add_object()


def test_user_has_a_limit_of_bytes_of_types_and_root_has_not(bus):
    third = attr(A_SIGNATURE, table("m", bytes(300000)))
    one = bus.connect_as()
    ids = [one.ask(ADD_OBJECT, third)[0][0] for _ in range(3)]
    assert status_of(one, ADD_OBJECT, third) == 6
    assert status_of(one, ADD_OBJECT, attr(A_SIGNATURE, table("small"))) == 0
    kept = ids[0].number(A_OBJTYPE)
    assert [status_of(one, ADD_OBJECT, i32(A_OBJTYPE, kept)) for _ in range(4)] == [0] * 4  # one type, kept once
    assert status_of(one, REMOVE_OBJECT, i32(A_OBJID, ids[0].number(A_OBJID))) == 0
    assert status_of(one, ADD_OBJECT, third) == 6  # other objects still have that type
    assert status_of(one, REMOVE_OBJECT, i32(A_OBJID, ids[1].number(A_OBJID))) == 0
    assert [status_of(one, ADD_OBJECT, third) for _ in range(2)] == [0, 6]
    assert [status_of(bus.root, ADD_OBJECT, third) for _ in range(5)] == [0] * 5


def test_each_user_of_a_type_is_charged_for_it(bus):
    user = bus.connect_as()
    third = attr(A_SIGNATURE, table("m", bytes(300000)))
    for status in (0, 0, 0, 6):
        maker = bus.connect_as()
        made = maker.ask(ADD_OBJECT, third)[0][0].number(A_OBJTYPE)
        assert status_of(user, ADD_OBJECT, i32(A_OBJTYPE, made)) == status
        maker.close()
