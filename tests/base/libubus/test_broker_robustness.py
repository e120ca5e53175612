"""Clients that misbehave, leave, or do not read: only they themselves lose something by it."""

import os
import random
import resource
import socket
import struct

import pytest
from ubus_wire import (A_DATA, A_METHOD, A_NO_REPLY, A_OBJID, A_OBJPATH, A_SIGNATURE, ADD_OBJECT, DATA, HEADER,
                       HELLO, INVOKE, LIMIT, LOOKUP, NOTIFY, PATIENCE, PING, STATUS, Broker, Connection, attr, i32, message,
                       readable, string, table, text, wait_until)

QUEUE = LIMIT  # bytes that wait for one client at most


@pytest.fixture
def bystander(broker):
    """A client that does nothing wrong, and must be served whatever the others do."""
    connection = broker.connect()
    yield connection
    assert connection.is_served()
    assert broker.connect().is_served()


RESERVED, RESIDENT = 0, 1  # columns of statm


def memory(broker, kind=RESIDENT):
    """Bytes of the broker; 0 with the address sanitizer, which keeps what is freed and finds leaks itself."""
    with open(f"/proc/{broker.process.pid}/exe", "rb") as program:
        if b"__asan_init" in program.read():
            return 0
    with open(f"/proc/{broker.process.pid}/statm", encoding="ascii") as statm:
        return int(statm.read().split()[kind]) * resource.getpagesize()


def descriptors(broker):
    return len(os.listdir(f"/proc/{broker.process.pid}/fd"))


# ---- frames


@pytest.mark.parametrize("root", [0, 1, 2, 3, LIMIT + 1, LIMIT + 4, 0xFFFFFF])
def test_impossible_length_ends_the_connection(broker, bystander, root):
    one = broker.connect()
    one.send(struct.pack(">BBHII", 0, PING, 1, 0, root))
    one.expect_close()


def test_garbage_ends_the_connection_or_is_answered(broker, bystander):
    for seed in range(100):
        one = broker.connect()
        try:
            one.send(random.Random(seed).randbytes(4096))
            one.sock.shutdown(socket.SHUT_WR)
            while one.sock.recv(65536):
                pass
        except ConnectionError:
            pass


def test_damaged_requests_do_no_harm(broker, bystander):
    """Each message type with arguments that are right, then with some bytes changed."""
    dice = random.Random(1)
    one = broker.connect()
    obj = one.add_object("obj", "m")
    for kind in range(1, 11):
        for _ in range(100):
            body = bytearray(i32(A_OBJID, obj) + text(A_OBJPATH, "path") + text(A_METHOD, "m") + i32(8, obj) +
                             attr(A_SIGNATURE, table("m")) + attr(A_DATA, string("id", "x") + table("data")))
            for _ in range(dice.randrange(4)):
                body[dice.randrange(len(body))] = dice.randrange(256)
            other = broker.connect()
            other.send(message(kind, 1, obj, bytes(body)))
            assert other.is_alive()
            other.close()


def test_longest_message_is_served(broker):
    one = broker.connect()
    filler = attr(A_DATA, bytes(LIMIT - 8))
    one.send(message(PING, 1, 0, filler))
    assert one.receive().raw == message(DATA, 1, 0, filler)
    assert one.receive().status == 0


def test_bytes_may_come_one_by_one_and_messages_together(broker, bystander):
    one = broker.connect()
    ping = message(PING, 1, 0, text(A_OBJPATH, "abc"))
    for byte in ping:
        one.send(bytes([byte]))
        assert bystander.is_served()
    assert (one.receive().type, one.receive().status) == (DATA, 0)
    one.send(ping * 3)
    for _ in range(3):
        assert (one.receive().type, one.receive().status) == (DATA, 0)


@pytest.mark.parametrize("size", [1, HEADER - 1, HEADER, HEADER + 1])
def test_half_a_message_keeps_nobody_waiting_and_can_be_left(broker, bystander, size):
    one = broker.connect()
    ping = message(PING, 1, 0, text(A_OBJPATH, "abc"))
    one.send(ping[:size])
    assert bystander.is_served()
    one.send(ping[size:])
    assert (one.receive().type, one.receive().status) == (DATA, 0)
    one.send(ping[:size])
    one.close()


def test_announced_length_costs_nothing_until_the_bytes_come(broker, bystander):
    assert bystander.is_served()
    before = memory(broker, RESERVED)
    waiting = [broker.connect() for _ in range(100)]
    for one in waiting:
        one.send(message(PING, 1, 0, attr(A_DATA, bytes(LIMIT - 8)))[:4000])
    assert bystander.is_served()
    assert memory(broker, RESERVED) - before < 10 * LIMIT  # and not a hundred times the limit


def test_clients_that_rest_cost_the_broker_little(broker, bystander):
    assert bystander.lookup() == ({}, 0)
    before = memory(broker)
    resting = [broker.connect() for _ in range(200)]
    for one in resting:
        assert one.lookup() == ({}, 0)
    assert memory(broker) - before < 200 * 1500


def test_half_a_message_behind_a_large_one_does_not_hold_its_memory(broker, bystander):
    assert bystander.is_served()
    before = memory(broker)
    waiting = [broker.connect() for _ in range(30)]
    filler = message(PING, 1, 0, attr(A_DATA, bytes(LIMIT - 8)))
    for one in waiting:
        one.send(filler + filler[:11])
        assert one.receive().raw[HEADER:] == filler[HEADER:]
        assert one.receive().status == 0
    assert memory(broker) - before < 8 * LIMIT


# ---- leaving


def test_requests_sent_right_before_leaving_are_handled(broker, bystander):
    for i in range(100):
        listener = broker.connect()
        listener.listen("bye")
        leaving = broker.connect()
        for _ in range(5):
            leaving.send(message(INVOKE, i, 1, i32(A_OBJID, 1), text(A_METHOD, "send"),
                                 attr(A_DATA, string("id", "bye") + table("data"))))
        leaving.close()
        assert [listener.receive().type for _ in range(5)] == [INVOKE] * 5


def test_client_that_only_stops_sending_gets_its_answers(broker, bystander):
    one = broker.connect()
    filler = attr(A_DATA, bytes(300000))
    for seq in range(3):
        one.send(message(PING, seq, 0, filler))
    one.sock.shutdown(socket.SHUT_WR)
    for seq in range(3):
        assert one.receive().raw == message(DATA, seq, 0, filler)
        assert one.receive().status == 0
    one.expect_close()


def test_objects_go_with_a_client_that_stops_sending(broker, bystander):
    one = broker.connect()
    one.add_object("leaving", "m")
    own, _ = bystander.listen("ubus.object.remove")
    one.sock.shutdown(socket.SHUT_WR)
    event = bystander.receive()
    assert (event.number(A_OBJID), event.attrs[A_METHOD]) == (own, b"ubus.object.remove\0")
    assert bystander.lookup("leaving") == ({}, 4)


def test_clients_that_come_and_go_leave_nothing_behind(broker, bystander):
    def visit():
        one, two = broker.connect(), broker.connect()
        watched = one.add_object("visitor", "m")
        own, _ = two.listen("*")
        assert two.subscribe(own, watched) == 0
        one.close()
        two.close()

    for _ in range(50):
        visit()
    wait_until(lambda: bystander.lookup() == ({}, 0), "the objects have gone")
    before, open_files = memory(broker), descriptors(broker)
    for _ in range(500):
        visit()
        wait_until(lambda: bystander.lookup() == ({}, 0), "the objects have gone", pause=0)
    assert memory(broker) - before < LIMIT
    assert descriptors(broker) <= open_files


# ---- not reading


def fill(broker, listener, count, size):
    """Sends `count` numbered events that nobody reads yet; they carry `size` bytes each."""
    sender = broker.connect()
    for i in range(count):
        assert sender.send_event("fill", string("i", str(i)), string("pad", size * "x")) == 0
    return sender


def messages_for(slow, bystander):
    """Reads what the broker has for a client, until it serves another client and has no more for this one."""
    while True:
        for _ in range(3):
            if readable(slow.sock):
                break
            assert bystander.is_served()
        else:
            return
        yield slow.receive()


def number_of(event):
    """The number that `fill` gave an event."""
    data = event.attrs[A_DATA]
    return int(data[8:data.index(b"\0", 8)])


def test_client_that_does_not_read_loses_only_the_messages_beyond_its_queue(broker, bystander):
    slow = broker.connect()
    slow.listen("*")
    before = memory(broker)
    sender = fill(broker, slow, 100, 65000)
    assert memory(broker) - before < 3 * QUEUE
    got = [number_of(event) for event in messages_for(slow, bystander)]
    assert got == list(range(len(got)))  # in order, the gap is at the end
    assert QUEUE // 65200 <= len(got) < 40
    assert sender.send_event("more") == 0
    assert slow.receive().attrs[A_METHOD] == b"more\0"


def test_small_messages_are_limited_as_well(broker, bystander):
    slow = broker.connect()
    slow.listen("*")
    before = memory(broker)
    fill(broker, slow, 40000, 1)
    assert memory(broker) - before < 8 * QUEUE
    got = [number_of(event) for event in messages_for(slow, bystander)]
    assert got == list(range(len(got)))
    assert 1000 < len(got) < 40000


def test_listing_is_complete_however_slowly_it_is_read(broker, bystander):
    many = 1500
    owner = broker.connect()
    paths = [f"object-{i:05}-{1000 * 'x'}" for i in range(many)]
    for path in paths:
        owner.add_object(path, "m")
    slow = broker.connect()
    slow.send(message(LOOKUP, 1, 0) + message(PING, 2, 0) + message(LOOKUP, 3, 0))
    assert bystander.is_served()
    answers = {1: [], 2: [], 3: []}
    while len(answers[3]) <= many:
        got = slow.receive()
        answers[got.seq].append(got.status if got.type == STATUS else got.attrs.get(A_OBJPATH, b"")[:-1].decode())
    assert answers[1] == [*paths, 0] and answers[3] == [*paths, 0]
    assert answers[2] == ["", 0]


def test_objects_may_go_while_a_listing_waits(broker, bystander):
    owner = broker.connect()
    paths = [f"object-{i:03}-{5000 * 'x'}" for i in range(300)]
    for path in paths:
        owner.add_object(path, "m")
    slow = broker.connect()
    slow.send(message(LOOKUP, 1, 0))
    owner.close()
    wait_until(lambda: bystander.lookup("object*") == ({}, 4), "the objects have gone")
    data, status = slow.answers(1)
    assert status == 0
    found = [d.attrs[A_OBJPATH][:-1].decode() for d in data]
    assert found == paths[:len(found)] and 0 < len(found) < len(paths)


def test_endless_listings_stop_the_reading_and_cost_little(broker, bystander):
    owner = broker.connect()
    owner.add_object(1000000 * "p", "m")
    slow = broker.connect()
    before = memory(broker)
    request = message(LOOKUP, 2, 0, text(A_OBJPATH, "none"))
    slow.sock.setblocking(False)
    slow.send_some(message(LOOKUP, 1, 0))
    count = slow.send_some(50000 * request) // len(request)
    assert bystander.is_served()
    assert 1000 < count < 50000  # more than a hundred wait, and the broker does not take them all
    assert memory(broker) - before < 4 * QUEUE
    slow.sock.settimeout(PATIENCE)
    assert [slow.receive().type, slow.receive().type] == [DATA, STATUS]
    for _ in range(count):
        got = slow.receive()
        assert (got.seq, got.status) == (2, 4)


def test_descriptors_that_wait_are_limited(broker, bystander):
    slow = broker.connect()
    target = slow.add_object("slow", "m")
    caller = broker.connect()
    fill_up = message(INVOKE, 1, 0, i32(A_OBJID, target), text(A_METHOD, "m"), attr(A_DATA, bytes(500000)))
    caller.send(fill_up)
    before = descriptors(broker)
    inner, outer = os.pipe()
    call = message(INVOKE, 2, 0, i32(A_OBJID, target), text(A_METHOD, "m"))
    for _ in range(100):
        socket.send_fds(caller.sock, [call], [outer])
        assert caller.is_served()
    assert descriptors(broker) - before <= 16
    slow.close()
    os.close(outer)
    assert os.read(inner, 1) == b""
    os.close(inner)


# ---- too large after the broker has added to it


def call_of(size):
    """A call's arguments, so that the message has a root of `size` bytes."""
    return attr(A_DATA, bytes(size - len(i32(A_OBJID, 0) + text(A_METHOD, "m")) - 8))


def test_call_that_fits_only_before_it_is_forwarded_is_refused(broker, bystander):
    owner, caller = broker.connect(), broker.connect()
    obj = owner.add_object("obj", "m")
    added = 24  # user and group, both root
    caller.send(message(INVOKE, 1, 0, i32(A_OBJID, obj), text(A_METHOD, "m"), call_of(LIMIT - added)))
    assert owner.receive().root == LIMIT
    assert caller.ask(INVOKE, i32(A_OBJID, obj), text(A_METHOD, "m"), call_of(LIMIT - added + 4))[1] == 2
    assert owner.is_served()


def test_notification_that_fits_only_before_it_is_forwarded_is_refused(broker, bystander):
    owner = broker.connect()
    obj = owner.add_object("obj", "m")
    own = bystander.add_object()
    assert bystander.subscribe(own, obj) == 0
    owner.receive()
    for quiet in ([], [attr(A_NO_REPLY, b"\1")]):
        room = len(b"".join(quiet))
        assert owner.ask(NOTIFY, i32(A_OBJID, obj), text(A_METHOD, "m"), call_of(LIMIT - room), *quiet)[1] == 2


def test_object_whose_description_would_not_fit_is_refused(broker, bystander):
    one = broker.connect()
    for path, status in ((LIMIT - 300, 0), (LIMIT - 100, 2)):
        signature = attr(A_SIGNATURE, table("m"))
        assert one.ask(ADD_OBJECT, text(A_OBJPATH, path * "p"), signature)[1] == status
    assert len(bystander.lookup("p*")[0]) == 1


def test_monitor_gets_the_largest_message_without_its_content(broker, bystander):
    watcher, one = broker.connect(), broker.connect()
    watcher.send(message(INVOKE, 1, 3, i32(A_OBJID, 3), text(A_METHOD, "add")))
    watcher.receive()
    assert watcher.receive().status == 0
    one.send(message(PING, 1, 0, attr(A_DATA, bytes(LIMIT - 8))))
    copy = watcher.receive()
    assert (copy.number(0), copy.number(4), copy.attrs[5]) == (one.id, PING, b"")


# ---- many


def test_clients_beyond_the_descriptor_limit_are_turned_away(build_dir, tmp_path):
    bus = Broker(build_dir / "bin" / "ubusd", tmp_path)
    resource.prlimit(bus.process.pid, resource.RLIMIT_NOFILE, (32, 32))
    inside, outside = [], 0
    for _ in range(60):
        sock = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        sock.connect(bus.path)
        one = Connection(sock, greeted=False)
        try:
            assert one.receive().type == HELLO
            inside.append(one)
        except (EOFError, ConnectionResetError):
            outside += 1
    assert outside > 20 and len(inside) > 10
    assert all(one.is_served() for one in inside)
    for one in inside:
        one.close()
    wait_until(lambda: descriptors(bus) < 16, "their descriptors are free")
    assert bus.connect().is_served()
    bus.done()


def test_thousand_objects_calls_and_subscribers(broker, bystander):
    owner, watcher = broker.connect(), broker.connect()
    objects = [owner.add_object(f"o{i}", "m") for i in range(1000)]
    own = watcher.add_object()
    for obj in objects:
        assert watcher.subscribe(own, obj) == 0
    for obj in objects:
        assert owner.receive().number(A_OBJID) == obj
    assert len(bystander.lookup("o*")[0]) == 1000
    owner.close()
    gone = {watcher.receive().number(8) for _ in objects}
    assert gone == set(objects)


def test_answers_of_a_flooding_client_do_not_delay_others(broker, bystander):
    flooder = broker.connect()
    flooder.sock.setblocking(False)
    pings = message(PING, 1, 0) * 100000
    sent = 0
    for _ in range(50):
        sent += flooder.send_some(pings[sent:])
        assert bystander.is_served()
    assert sent > 100000
