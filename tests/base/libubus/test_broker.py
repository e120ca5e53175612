"""The broker's answers to requests that no recording holds, one rule per test."""

import os
import signal
import socket
import stat
import subprocess

import pytest
from ubus_wire import (A_ACTIVE, A_DATA, A_METHOD, A_NO_REPLY, A_OBJID, A_OBJPATH, A_OBJTYPE, A_SIGNATURE, A_STATUS,
                       A_SUBSCRIBERS, A_TARGET, ADD_OBJECT, AS_ROOT, DATA, INVOKE, LOOKUP, MONITOR, NOTIFY, PATIENCE, PING,
                       REMOVE_OBJECT, STATUS, SUBSCRIBE, UNSUBSCRIBE, Connection, attr, children, i32, int32, message,
                       readable, string, table, text, wait_until)

UNKNOWN = 0x12345678


@pytest.fixture
def owner(broker):
    """Has the object `obj`."""
    connection = broker.connect()
    connection.obj = connection.add_object("obj", "ping")
    return connection


@pytest.fixture
def other(broker):
    """Has an anonymous object."""
    connection = broker.connect()
    connection.obj = connection.add_object()
    return connection


def status_of(connection, kind, *attrs, peer=0):
    return connection.ask(kind, *attrs, peer=peer)[1]


# ---- lookup


@pytest.mark.parametrize("pattern, found, status", [
    (None, ["a", "ab", "b"], 0),
    ("*", ["a", "ab", "b"], 0),
    ("a", ["a"], 0),
    ("a*", ["a", "ab"], 0),
    ("ab*", ["ab"], 0),
    ("abc*", [], 4),
    ("c", [], 4),
    ("a*b", [], 4),
    ("", [], 2),
])
def test_lookup_finds_by_path_or_beginning_in_order(broker, pattern, found, status):
    one = broker.connect()
    for path in ("b", "ab", "a"):
        one.add_object(path, "m")
    paths, got = broker.connect().lookup(pattern)
    assert (list(paths), got) == (found, status)


def test_lookup_of_everything_on_an_empty_bus_succeeds_and_of_a_star_does_not(broker):
    one = broker.connect()
    one.add_object()
    assert one.lookup() == ({}, 0)
    assert one.lookup("*") == ({}, 4)


def test_object_without_type_is_found_but_not_shown(broker):
    one = broker.connect()
    assert status_of(one, ADD_OBJECT, text(A_OBJPATH, "hidden")) == 0
    assert one.lookup("hidden") == ({}, 0)
    assert one.lookup("hid*") == ({}, 0)
    assert status_of(one, ADD_OBJECT, text(A_OBJPATH, "hidden")) == 2


# ---- objects


def test_empty_path_can_be_registered_once(broker):
    one = broker.connect()
    assert one.add_object("", "m")
    assert status_of(one, ADD_OBJECT, text(A_OBJPATH, "")) == 2
    assert list(one.lookup()[0]) == [""]


def test_type_is_shared_across_clients_until_its_last_object_goes(broker):
    one, two = broker.connect(), broker.connect()
    data, _ = one.ask(ADD_OBJECT, text(A_OBJPATH, "one"), attr(A_SIGNATURE, table("m")))
    first, shared = data[0].number(A_OBJID), data[0].number(A_OBJTYPE)
    data, status = two.ask(ADD_OBJECT, text(A_OBJPATH, "two"), i32(A_OBJTYPE, shared), attr(A_SIGNATURE, table("x")))
    assert status == 0 and A_OBJTYPE in data[0].attrs  # the signature came too, but the number counts
    second = data[0].number(A_OBJID)
    data, _ = one.ask(REMOVE_OBJECT, i32(A_OBJID, first))
    assert A_OBJTYPE not in data[0].attrs
    data, _ = two.ask(LOOKUP, text(A_OBJPATH, "two"))
    assert data[0].number(A_OBJTYPE) == shared and data[0].attrs[A_SIGNATURE] == table("m")
    data, _ = two.ask(REMOVE_OBJECT, i32(A_OBJID, second))
    assert data[0].number(A_OBJTYPE) == shared


@pytest.mark.parametrize("signature", [b"\x01\0\0\x08abcd", b"\x85\0\0\x08\0\0\0\0", b"\x82\0\0\x08\0\x09m\0"],
                         ids=["plain attribute", "no name", "name beyond the end"])
def test_signature_that_is_not_named_fields_makes_no_type(broker, signature):
    one = broker.connect()
    data, status = one.ask(ADD_OBJECT, text(A_OBJPATH, "odd"), attr(A_SIGNATURE, signature))
    assert status == 0 and A_OBJTYPE not in data[0].attrs
    assert one.lookup("odd") == ({}, 0)


def test_remove_is_refused_for_what_is_not_the_clients_own(owner, other):
    assert status_of(other, REMOVE_OBJECT) == 2
    assert status_of(other, REMOVE_OBJECT, i32(A_OBJID, UNKNOWN)) == 4
    assert status_of(other, REMOVE_OBJECT, i32(A_OBJID, owner.obj)) == 6
    for system in (1, 2, 3):
        assert status_of(other, REMOVE_OBJECT, i32(A_OBJID, system)) == 6


def test_attribute_of_the_wrong_size_counts_as_absent(owner):
    assert status_of(owner, REMOVE_OBJECT, attr(A_OBJID, b"\0\0\0")) == 2
    assert status_of(owner, LOOKUP, attr(A_OBJPATH, b"obj")) == 0  # without its final zero it is no path: all objects are listed
    assert status_of(owner, INVOKE, i32(A_OBJID, owner.obj), attr(A_METHOD, b"")) == 2


def test_last_of_several_equal_attributes_counts(owner):
    assert status_of(owner, REMOVE_OBJECT, i32(A_OBJID, UNKNOWN), i32(A_OBJID, owner.obj)) == 0


# ---- calls


def test_call_of_an_unknown_object_or_without_method_is_refused(owner):
    assert status_of(owner, INVOKE, i32(A_OBJID, UNKNOWN), text(A_METHOD, "m")) == 4
    assert status_of(owner, INVOKE, i32(A_OBJID, owner.obj)) == 2
    assert status_of(owner, INVOKE, text(A_METHOD, "m")) == 2


def test_call_without_arguments_attribute_is_forwarded_without(owner, other):
    other.send(message(INVOKE, 7, 1, i32(A_OBJID, owner.obj), text(A_METHOD, "m"), text(12, "liar"), i32(14, 1)))
    call = owner.receive()
    assert (call.type, call.seq, call.peer) == (INVOKE, 7, other.id)
    assert list(call.attrs) == [A_OBJID, A_METHOD, 12, 13]
    assert call.attrs[12] == b"root\0"


def test_answers_may_come_in_any_order_and_reach_only_the_caller(owner, other, broker):
    third = broker.connect()
    for seq in (5, 6):
        other.send(message(INVOKE, seq, 0, i32(A_OBJID, owner.obj), text(A_METHOD, "m")))
        assert owner.receive().seq == seq
    for seq in (6, 5):
        owner.send(message(STATUS, seq, other.id, i32(A_STATUS, 40 + seq), i32(A_OBJID, owner.obj)))
        answer = other.receive()
        assert (answer.seq, answer.peer, answer.status) == (seq, owner.obj, 40 + seq)
    assert third.is_served()


def test_answer_is_forwarded_byte_for_byte_but_for_the_peer(owner, other):
    rest = i32(A_STATUS, 0) + i32(A_OBJID, owner.obj) + attr(30, b"extra")
    owner.send(message(STATUS, 9, other.id, rest, version=3))
    assert other.receive().raw == message(STATUS, 9, owner.obj, rest, version=3)


@pytest.mark.parametrize("kind, attrs", [
    (STATUS, lambda owner, other: [i32(A_STATUS, 0)]),
    (STATUS, lambda owner, other: [i32(A_OBJID, owner.obj)]),
    (STATUS, lambda owner, other: [i32(A_STATUS, 0), i32(A_OBJID, UNKNOWN)]),
    (STATUS, lambda owner, other: [i32(A_STATUS, 0), i32(A_OBJID, other.obj)]),
    (DATA, lambda owner, other: [i32(A_OBJID, owner.obj)]),
    (DATA, lambda owner, other: [attr(A_DATA, b"")]),
], ids=["no object", "no status", "unknown object", "foreign object", "no data", "data without object"])
def test_answer_that_makes_no_sense_is_dropped(owner, other, kind, attrs):
    owner.send(message(kind, 1, other.id, *attrs(owner, other)))
    assert owner.is_served() and other.is_served()


def test_answer_to_somebody_who_left_is_dropped(owner, broker):
    gone = broker.connect()
    number = gone.id
    gone.close()
    owner.send(message(STATUS, 1, number, i32(A_STATUS, 0), i32(A_OBJID, owner.obj)))
    assert owner.is_served()


def test_nobody_is_told_when_a_callee_leaves_with_a_call_open(owner, other):
    other.send(message(INVOKE, 1, 0, i32(A_OBJID, owner.obj), text(A_METHOD, "m")))
    owner.receive()
    owner.close()
    assert other.is_served()


# ---- subscriptions


def test_subscribe_statuses(owner, other):
    own = owner.add_object()
    assert status_of(other, SUBSCRIBE, i32(A_OBJID, other.obj)) == 2
    assert status_of(other, SUBSCRIBE, i32(A_TARGET, owner.obj)) == 2
    assert other.subscribe(UNKNOWN, owner.obj) == 4
    assert other.subscribe(owner.obj, owner.obj) == 2
    assert other.subscribe(other.obj, UNKNOWN) == 4
    assert other.subscribe(other.obj, 1) == 4
    assert owner.subscribe(own, owner.obj) == 2
    assert other.subscribe(other.obj, owner.obj) == 0


def test_unsubscribe_statuses(owner, other):
    own = owner.add_object()

    def unsubscribe(who, subscriber, target):
        return status_of(who, UNSUBSCRIBE, i32(A_OBJID, subscriber), i32(A_TARGET, target))

    assert status_of(other, UNSUBSCRIBE, i32(A_OBJID, other.obj)) == 2
    assert unsubscribe(other, UNKNOWN, owner.obj) == 4
    assert unsubscribe(other, owner.obj, owner.obj) == 2
    assert unsubscribe(other, other.obj, UNKNOWN) == 4
    assert unsubscribe(other, other.obj, 3) == 4
    assert unsubscribe(owner, own, owner.obj) == 4
    assert unsubscribe(other, other.obj, owner.obj) == 4


def test_owner_is_told_of_the_first_and_the_last_subscriber_only(owner, other):
    for _ in range(2):
        assert other.subscribe(other.obj, owner.obj) == 0
    for _ in range(2):
        assert status_of(other, UNSUBSCRIBE, i32(A_OBJID, other.obj), i32(A_TARGET, owner.obj)) == 0
    for seq, active in ((1, 1), (2, 0)):
        got = owner.receive()
        assert (got.type, got.seq, got.peer, got.attrs[A_ACTIVE]) == (NOTIFY, seq, 0, bytes([active]))
    assert owner.is_served()


def test_double_subscription_is_notified_twice_newest_first(owner, other, broker):
    third = broker.connect()
    third.obj = third.add_object()
    for who in (other, third, other):
        assert who.subscribe(who.obj, owner.obj) == 0
    owner.receive()
    owner.send(message(NOTIFY, 5, owner.obj, i32(A_OBJID, owner.obj), text(A_METHOD, "n"), attr(A_DATA, b"")))
    answer = owner.receive()
    assert (answer.seq, answer.peer, answer.status) == (5, owner.obj, 0)
    listed = [payload for _, payload in children(answer.attrs[A_SUBSCRIBERS])]
    assert listed == [n.obj.to_bytes(4, "big") for n in (other, third, other)]
    assert [other.receive().type, other.receive().type, third.receive().type] == [INVOKE] * 3


def test_notify_statuses_come_even_if_no_reply_is_wanted(owner, other):
    quiet = attr(A_NO_REPLY, b"\1")
    assert status_of(owner, NOTIFY, i32(A_OBJID, owner.obj), quiet) == 2
    assert status_of(owner, NOTIFY, text(A_METHOD, "n"), quiet) == 2
    assert status_of(owner, NOTIFY, i32(A_OBJID, UNKNOWN), text(A_METHOD, "n"), quiet) == 4
    assert status_of(other, NOTIFY, i32(A_OBJID, owner.obj), text(A_METHOD, "n"), quiet) == 6


def test_death_of_a_watched_object_is_told_newest_subscription_first(owner, other):
    second = other.add_object()
    assert other.subscribe(other.obj, owner.obj) == 0
    assert other.subscribe(second, owner.obj) == 0
    owner.close()
    for subscriber in (second, other.obj):
        got = other.receive()
        assert (got.type, got.seq, got.peer) == (UNSUBSCRIBE, 1, 0)
        assert (got.number(A_OBJID), got.number(A_TARGET)) == (subscriber, owner.obj)


# ---- events


def register(connection, *fields):
    return status_of(connection, INVOKE, i32(A_OBJID, 1), text(A_METHOD, "register"), attr(A_DATA, b"".join(fields)))


def test_register_statuses(owner, other):
    assert register(other, int32("object", other.obj)) == 2
    assert register(other, string("pattern", "x")) == 2
    assert status_of(other, INVOKE, i32(A_OBJID, 1), text(A_METHOD, "register")) == 2
    assert register(other, int32("object", 3), string("pattern", "x")) == 6
    assert register(other, int32("object", UNKNOWN), string("pattern", "x")) == 4
    assert register(other, int32("object", owner.obj), string("pattern", "x")) == 6
    assert register(other, int32("object", other.obj), string("pattern", "")) == 6
    assert register(other, int32("object", other.obj), string("pattern", "x")) == 0


def test_send_statuses(other):
    def send(*fields):
        return status_of(other, INVOKE, i32(A_OBJID, 1), text(A_METHOD, "send"), attr(A_DATA, b"".join(fields)))

    assert send(string("id", "x")) == 2
    assert send(table("data")) == 2
    assert send(string("id", "x"), string("data", "no table")) == 2
    assert send(string("id", "ubus.x"), table("data")) == 6
    assert send(string("id", ""), table("data")) == 0


def test_event_reaches_each_object_once_by_patterns_but_not_the_sender(broker, other):
    one = broker.connect()
    late, _ = one.listen("ip_change")
    early, _ = one.listen("ip_*")
    for pattern in ("*", "ip_change"):
        assert register(one, int32("object", early), string("pattern", pattern)) == 0
    assert register(other, int32("object", other.obj), string("pattern", "*")) == 0
    assert other.send_event("ip_change", int32("n", 1)) == 0
    got = [one.receive(), one.receive()]
    assert [g.number(A_OBJID) for g in got] == [early, late]
    assert [(g.type, g.seq, g.peer) for g in got] == [(INVOKE, 1, 0), (INVOKE, 2, 0)]
    assert list(got[0].attrs) == [A_OBJID, A_METHOD, A_DATA]
    assert one.is_served() and other.is_served()


def test_star_inside_a_pattern_is_an_ordinary_character(broker, other):
    one = broker.connect()
    one.listen("a*b")
    assert other.send_event("axb") == 0
    assert other.send_event("a*b") == 0
    assert one.receive().attrs[A_METHOD] == b"a*b\0"
    assert one.is_served()


def test_removing_the_object_ends_all_its_patterns(broker, other):
    one = broker.connect()
    own, _ = one.listen("a")
    assert register(one, int32("object", own), string("pattern", "b*")) == 0
    assert status_of(one, REMOVE_OBJECT, i32(A_OBJID, own)) == 0
    assert other.send_event("a") == 0 and other.send_event("b") == 0
    assert one.is_served()


def test_object_events_come_to_the_owner_too_and_before_the_answer(broker):
    one = broker.connect()
    one.listen("ubus.object.*")
    one.seq += 1
    one.send(message(ADD_OBJECT, one.seq, 0, text(A_OBJPATH, "me"), attr(A_SIGNATURE, table("m"))))
    event = one.receive()
    assert (event.type, event.attrs[A_METHOD]) == (INVOKE, b"ubus.object.add\0")
    data, status = one.answers(one.seq)
    assert status == 0
    assert event.attrs[A_DATA] == int32("id", data[0].number(A_OBJID)) + string("path", "me")


# ---- descriptors


def send_with_fds(connection, data, *fds):
    socket.send_fds(connection.sock, [data], fds)


def receive_with_fds(connection):
    head, fds, _, _ = socket.recv_fds(connection.sock, 12, 4)
    return head, fds


def test_descriptor_goes_with_the_call_and_back_with_the_status(owner, other):
    inner, outer = os.pipe()
    send_with_fds(other, message(INVOKE, 1, 0, i32(A_OBJID, owner.obj), text(A_METHOD, "m")), outer)
    os.close(outer)
    head, fds = receive_with_fds(owner)
    owner.receive_bytes(int.from_bytes(head[9:12], "big") - 4)
    assert len(fds) == 1
    send_with_fds(owner, message(STATUS, 1, other.id, i32(A_STATUS, 0), i32(A_OBJID, owner.obj)), fds[0])
    os.close(fds[0])
    head, fds = receive_with_fds(other)
    assert len(fds) == 1
    os.write(fds[0], b"through")
    os.close(fds[0])
    assert os.read(inner, 100) == b"through" and os.read(inner, 100) == b""  # no other process holds the other end open
    os.close(inner)


@pytest.mark.parametrize("kind", [DATA, LOOKUP, ADD_OBJECT])
def test_descriptor_with_another_message_is_closed(owner, kind):
    inner, outer = os.pipe()
    send_with_fds(owner, message(kind, 1, 0), outer)
    os.close(outer)
    assert os.read(inner, 1) == b""
    os.close(inner)


def test_second_descriptor_and_one_in_mid_message_are_closed(owner, other):
    inner, outer = os.pipe()
    call = message(INVOKE, 1, 0, i32(A_OBJID, owner.obj), text(A_METHOD, "m"))
    other.send(call[:5])
    assert owner.is_served()  # so that the rest is read separately
    send_with_fds(other, call[5:], outer, outer)
    os.close(outer)
    assert owner.receive().type == INVOKE
    assert os.read(inner, 1) == b""
    os.close(inner)


def test_descriptor_goes_with_its_own_message(owner, other, broker):
    inner, outer = os.pipe()
    broker.process.send_signal(signal.SIGSTOP)  # so that both are there when it reads
    other.send(message(PING, 1, 0, text(A_OBJPATH, "abc")))
    send_with_fds(other, message(INVOKE, 2, 0, i32(A_OBJID, owner.obj), text(A_METHOD, "m")), outer)
    os.close(outer)
    broker.process.send_signal(signal.SIGCONT)
    head, fds = receive_with_fds(owner)
    owner.receive_bytes(int.from_bytes(head[9:12], "big") - 4)
    assert len(fds) == 1
    os.write(fds[0], b"through")
    os.close(fds[0])
    assert os.read(inner, 100) == b"through" and os.read(inner, 100) == b""
    os.close(inner)
    assert [other.receive().type for _ in range(2)] == [DATA, STATUS]  # the ping's


# ---- monitor


def test_monitor_sees_messages_of_all_others_until_it_stops(broker):
    watcher, one = broker.connect(), broker.connect()
    add = [i32(A_OBJID, 3), text(A_METHOD, "add")]
    watcher.send(message(INVOKE, 1, 3, *add))
    copy, status = watcher.receive(), watcher.receive()
    assert (copy.type, copy.seq, copy.peer) == (MONITOR, 1, 0)
    assert list(copy.attrs) == [0, 1, 3, 4, 2, 5]
    assert (copy.number(0), copy.number(1), copy.number(3), copy.number(4)) == (watcher.id, 3, 1, STATUS)
    assert copy.attrs[2] == b"\1" and copy.attrs[5] == i32(A_STATUS, 0)
    assert status.status == 0
    assert one.is_served()
    kinds = [watcher.receive() for _ in range(3)]
    assert [(k.number(4), k.attrs[2]) for k in kinds] == [(3, b"\0"), (2, b"\1"), (1, b"\1")]
    assert [k.number(0) for k in kinds] == [one.id] * 3
    watcher.send(message(INVOKE, 2, 3, i32(A_OBJID, 3), text(A_METHOD, "remove")))
    assert watcher.receive().type == MONITOR
    assert watcher.receive().status == 0
    assert one.is_served() and watcher.is_served()


# ---- the program


def test_socket_is_for_everybody_and_goes_with_the_broker(broker):
    mode = os.stat(broker.path).st_mode
    assert stat.S_ISSOCK(mode) and stat.S_IMODE(mode) == 0o666
    assert broker.stop() == 0
    assert not os.path.exists(broker.path)


def test_whatever_is_at_the_path_makes_room_and_a_signal_at_once_is_not_lost(build_dir, tmp_path):
    path = tmp_path / "ubus.sock"
    for _ in range(20):
        path.write_text("in the way")
        process = subprocess.Popen([*AS_ROOT, build_dir / "bin" / "ubusd", "-s", path])
        wait_until(path.is_socket, "the broker has its socket", pause=0)
        process.terminate()
        assert process.wait(PATIENCE) == 0


@pytest.mark.parametrize("path, reason", [("/nonexistent/dir/sock", "No such file or directory"),
                                          ("/" + 200 * "x", "File name too long")])
def test_socket_that_cannot_be_made_is_an_error(build_dir, path, reason):
    done = subprocess.run([build_dir / "bin" / "ubusd", "-s", path], capture_output=True, text=True, timeout=PATIENCE,
                          check=False)
    assert (done.returncode, done.stdout, done.stderr) == (255, "", f"usock: {reason}\n")


def test_unknown_option_prints_the_usage(build_dir):
    done = subprocess.run([build_dir / "bin" / "ubusd", "-x"], capture_output=True, text=True, timeout=PATIENCE,
                          check=False)
    assert done.returncode == 1 and "Usage: " in done.stderr


def test_greeting_is_one_message_with_an_id_above_the_reserved_ones(broker):
    ids = [broker.connect() for _ in range(50)]
    assert all(c.id >= 1024 and c.hello.raw == message(0, 0, c.id) for c in ids)
    assert len({c.id for c in ids}) == 50
    assert not any(readable(c.sock) for c in ids)
    assert isinstance(ids[0], Connection)
