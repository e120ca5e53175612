"""Writes the seeds of the bus fuzz targets: python3 make_seeds.py. Their names say what they are about."""

import pathlib
import struct
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parents[1] / "base" / "libubus"))
from ubus_wire import (A_ACTIVE, A_DATA, A_METHOD, A_NO_REPLY, A_OBJID, A_OBJPATH, A_OBJTYPE, A_SIGNATURE, A_STATUS,
                       A_SUBSCRIBERS, A_TARGET, ADD_OBJECT, DATA, INVOKE, LOOKUP, MONITOR, NOTIFY, PING, REMOVE_OBJECT,
                       STATUS, SUBSCRIBE, UNSUBSCRIBE, attr, i32, int32, message, string, table, text)

MESSAGE, BYTES, READ, RENEW = range(4)
FIRST = 1024  # the first id that is given out


def step(conn, kind, msg_type=0, peer=FIRST, content=b"", seq=0):
    return struct.pack(">BBHH", conn | kind << 2 | seq << 4, msg_type, peer - FIRST, len(content)) + content


def say(conn, msg_type, *attrs, seq=1, peer=FIRST):
    return step(conn, MESSAGE, msg_type, peer, b"".join(attrs), seq)


def event_call(method, *fields):
    return [i32(A_OBJID, 1), text(A_METHOD, method), attr(A_DATA, b"".join(fields))]


METHODS = attr(A_SIGNATURE, table("m", int32("arg", 3)) + table("n") + table("hidden"))
# Connections 0 to 3 have the ids FIRST to FIRST + 3; objects and types are numbered on from there, in one count.
OBJ = FIRST + 5  # the type is made first
ADD = say(0, ADD_OBJECT, text(A_OBJPATH, "a"), METHODS)
SUBSCRIBER = OBJ + 1
WATCH = say(1, ADD_OBJECT) + say(1, SUBSCRIBE, i32(A_OBJID, SUBSCRIBER), i32(A_TARGET, OBJ))
LISTEN = say(1, ADD_OBJECT) + say(1, INVOKE, *event_call("register", int32("object", SUBSCRIBER),
                                                        string("pattern", "e*")))
SEND = say(2, INVOKE, *event_call("send", string("id", "e"), table("data", int32("n", 1))))
MONITORING = say(2, INVOKE, i32(A_OBJID, 3), text(A_METHOD, "add"), attr(A_DATA, b""))

BROKER = {
    "ping": say(0, PING, text(A_OBJPATH, "x")),
    "add-lookup-remove": ADD + say(1, LOOKUP) + say(1, LOOKUP, text(A_OBJPATH, "a*")) +
    say(3, LOOKUP) + say(0, REMOVE_OBJECT, i32(A_OBJID, OBJ)),
    "type-shared": ADD + say(0, ADD_OBJECT, text(A_OBJPATH, "b"), i32(A_OBJTYPE, OBJ - 1)) +
    say(0, REMOVE_OBJECT, i32(A_OBJID, OBJ)),
    "call-and-answer": ADD + say(1, INVOKE, i32(A_OBJID, OBJ), text(A_METHOD, "m"), attr(A_DATA, b"")) +
    say(0, DATA, i32(A_OBJID, OBJ), attr(A_DATA, int32("n", 1)), peer=FIRST + 1) +
    say(0, STATUS, i32(A_STATUS, 0), i32(A_OBJID, OBJ), peer=FIRST + 1),
    "call-by-user": ADD + say(3, INVOKE, i32(A_OBJID, OBJ), text(A_METHOD, "hidden")) +
    say(3, INVOKE, i32(A_OBJID, OBJ), text(A_METHOD, "m")),
    "watch-notify-leave": ADD + WATCH + say(0, NOTIFY, i32(A_OBJID, OBJ), text(A_METHOD, "n"), attr(A_DATA, b"")) +
    say(1, STATUS, i32(A_STATUS, 0), i32(A_OBJID, SUBSCRIBER)) + step(0, RENEW),
    "notify-no-reply": ADD + WATCH + say(0, NOTIFY, i32(A_OBJID, OBJ), text(A_METHOD, "n"), attr(A_NO_REPLY, b"\1")) +
    say(1, UNSUBSCRIBE, i32(A_OBJID, SUBSCRIBER), i32(A_TARGET, OBJ)),
    "listen-send": ADD + LISTEN + SEND + step(1, READ) + SEND + step(1, RENEW),
    "user-publishes": say(3, ADD_OBJECT, text(A_OBJPATH, "ux"), METHODS) + say(3, ADD_OBJECT, text(A_OBJPATH, "x"), METHODS),
    "monitor": MONITORING + ADD + WATCH + step(2, READ) + step(2, RENEW),
    "rules-query": ADD + say(0, INVOKE, i32(A_OBJID, 2), text(A_METHOD, "query")),
    "impossible-length": step(0, BYTES, content=message(PING, 1, 0)[:8] + b"\0\0\0\3"),
    "half-a-message": step(0, BYTES, content=message(PING, 1, 0, text(A_OBJPATH, "abc"))[:14]) +
    step(0, BYTES, content=message(PING, 1, 0, text(A_OBJPATH, "abc"))[14:]) + step(0, BYTES, content=b"\0") +
    step(0, RENEW),
    "signature-cut": say(0, ADD_OBJECT, text(A_OBJPATH, "a"), attr(A_SIGNATURE, table("m")[:-1] + b"\xff")),
}

ENTRY = [text(A_OBJPATH, "auto"), i32(A_OBJID, FIRST + 9), i32(A_OBJTYPE, FIRST + 10), METHODS]
READ_NOW = step(0, READ)


def invoke(obj, method, *more):
    return say(0, INVOKE, i32(A_OBJID, obj), text(A_METHOD, method), text(12, "root"), text(13, "root"),
               attr(A_DATA, int32("n", 1)), *more)


CLIENT = {
    "call-answered": say(0, DATA, i32(A_OBJID, FIRST), attr(A_DATA, int32("n", 1)), seq=8) +
    say(0, DATA, i32(A_OBJID, FIRST), attr(A_DATA, int32("n", 2)), seq=8) +
    say(0, STATUS, i32(A_STATUS, 0), i32(A_OBJID, FIRST), seq=8) +
    say(0, STATUS, i32(A_STATUS, 0), i32(A_OBJID, FIRST), seq=10) + READ_NOW,
    "notification-answered": say(0, STATUS, i32(A_OBJID, FIRST), attr(A_SUBSCRIBERS, i32(0, FIRST + 7) + i32(0, FIRST + 8)),
                                 i32(A_STATUS, 0), seq=9) +
    say(0, DATA, i32(A_OBJID, FIRST + 7), attr(A_DATA, b""), seq=9, peer=FIRST + 7) +
    say(0, STATUS, i32(A_STATUS, 1), i32(A_OBJID, FIRST + 7), seq=9, peer=FIRST + 7) +
    say(0, STATUS, i32(A_STATUS, 2), i32(A_OBJID, FIRST + 8), seq=9, peer=FIRST + 8) + READ_NOW,
    "called": invoke(FIRST, "plain") + invoke(FIRST, "unknown") + invoke(FIRST + 50, "plain") + READ_NOW,
    "called-deferred": invoke(FIRST, "data") + invoke(FIRST, "complete") + READ_NOW,
    "called-nested": invoke(FIRST, "nested") + invoke(FIRST, "plain") + READ_NOW,
    "notified": invoke(FIRST + 1, "n", attr(A_NO_REPLY, b"\1")) + invoke(FIRST + 1, "n") + READ_NOW,
    "event": invoke(FIRST + 3, "some.event") + READ_NOW,
    "object-added": say(0, INVOKE, i32(A_OBJID, FIRST + 2), text(A_METHOD, "ubus.object.add"),
                        attr(A_DATA, int32("id", FIRST + 9) + string("path", "bnot"))) + READ_NOW,
    "target-gone": say(0, UNSUBSCRIBE, i32(A_OBJID, FIRST + 1), i32(A_TARGET, FIRST + 9)) + READ_NOW,
    "subscribers-changed": say(0, NOTIFY, i32(A_OBJID, FIRST), attr(A_ACTIVE, b"\1")) +
    say(0, NOTIFY, i32(A_OBJID, FIRST), attr(A_ACTIVE, b"\0")) + READ_NOW,
    "lookup-entries": say(0, DATA, *ENTRY, seq=8) + say(0, STATUS, i32(A_STATUS, 0), seq=8) + READ_NOW,
    "monitored": say(0, MONITOR, i32(0, FIRST), i32(1, 0), i32(3, 1), i32(4, PING), attr(2, b"\0"), attr(5, b"")) + READ_NOW,
    "flushed": step(0, RENEW) + invoke(FIRST, "plain") + READ_NOW,
    "impossible-length": step(0, BYTES, content=message(STATUS, 8, FIRST)[:8] + b"\0\x10\0\1") + READ_NOW,
    "half-a-message": step(0, BYTES, content=message(STATUS, 8, FIRST, i32(A_STATUS, 0))[:15]) + READ_NOW +
    step(0, BYTES, content=message(STATUS, 8, FIRST, i32(A_STATUS, 0))[15:]) + READ_NOW,
    "another-version": step(0, BYTES, content=message(STATUS, 8, FIRST, i32(A_STATUS, 0), version=1)) + READ_NOW,
}

for target, seeds in (("fuzz_ubus_broker", BROKER), ("fuzz_ubus_client", CLIENT)):
    folder = HERE.parent / "corpus" / target
    folder.mkdir(parents=True, exist_ok=True)
    for name, data in seeds.items():
        (folder / name).write_bytes(data)
