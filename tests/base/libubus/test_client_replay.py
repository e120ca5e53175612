"""The clients' half of recorded conversations: given the recorded messages of the broker, they send the recorded ones byte
for byte. Each connection is played alone, against a broker that only knows the recording."""

import socket
import subprocess

import pytest
import ubus_golden
from ubus_wire import PATIENCE, Connection, Peer

RESULT = object()  # here the client has to be done with its command, before the broker goes on

STA = {3: "add sta sta"}
CHANGE = '{"mac":"02:00:00:00:00:01","before_ip":"0.0.0.0","changed_ip":"192.0.2.7"}'

# Scenario, connection -> what the client is: a command line of `ubus`, or a program that does the given things when
# the recording comes to these lines; and its exit status, or the results.
CLIENTS = {
    ("hello", 1): ({}, []),
    ("add_object", 1): (STA, [0]),
    ("list_v", 1): (STA, [0]),
    ("list_v", 2): (["-v", "list"], 0),
    ("list_v", 3): (["list", "sta"], 0),
    ("list_v", 4): (["list", "s*"], 0),
    ("lookup_missing", 1): (STA, [0]),
    ("lookup_missing", 2): (["list", "nope"], 4),
    ("lookup_missing", 3): (["call", "nope", "get"], 4),
    ("lookup_missing", 4): (["list", "no*"], 4),
    ("lookup_missing", 5): (["list", ""], 2),
    ("call_data_reply", 1): (STA, [0]),
    ("call_data_reply", 2): (["call", "sta", "get", '{"get_all_sta_status":"1"}'], 0),
    ("call_data_reply", 3): (["call", "sta", "get", '{"get_all_sta_status":"1","get_sta_count":"1"}'], 0),
    ("call_status_only", 1): (STA, [0]),
    ("call_status_only", 2): (["call", "sta", "set", '{"set_update_log_period":30}'], 0),
    ("call_status_only", 3): (["call", "sta", "delete", '{"mac":"02:00:00:00:00:01","radio":1}'], 0),
    ("call_unknown_method", 1): (STA, [0]),
    ("call_unknown_method", 2): (["call", "sta", "nosuch", '{"a":1}'], 253),
    ("call_invalid_argument", 1): (STA, [0]),
    ("call_invalid_argument", 2): (["call", "sta", "delete", '{"radio":1}'], 254),
    ("call_invalid_argument", 3): (["call", "sta", "set", '{"set_update_log_period":"30"}'], 254),
    ("call_handler_minus1", 1): (STA, [0]),
    ("call_handler_minus1", 2): (["call", "sta", "get"], 1),
    ("notify_no_subscriber", 1): ({**STA, 6: 'notify sta notify -1 {"notify_sta_status":"1"}',
                                   7: 'notify sta notify 1000 {"notify_sta_status":"1"}',
                                   9: "notify sta notify 0"}, [0, 0, 0, 0]),
    ("notify_one_subscriber", 1): (
        {**STA, 17: 'notify sta notify -1 {"notify_sta_status":"1","mac":"02:00:00:00:00:01"}',
         19: 'notify sta notify 1000 {"notify_sta_status":"1"}'}, [0, 0, 0]),
    ("notify_one_subscriber", 2): ({8: "watch sta"}, [0]),
    ("notify_two_subscribers", 1): ({**STA, 27: 'notify sta notify -1 {"k":"v"}',
                                     30: 'notify sta notify 1000 {"k":"v"}'}, [0, 0, 0]),
    ("notify_two_subscribers", 2): ({8: "watch sta"}, [0]),
    ("notify_two_subscribers", 3): ({19: "watch sta"}, [0]),
    ("subscribe_unsubscribe", 1): (STA, [0]),
    ("subscribe_unsubscribe", 2): ({8: "watch sta", 17: "unwatch sta", 23: "unwatch sta", 28: "watch sta",
                                    34: "unregister"}, [0, 0, 4, 0, 0]),
    ("subscribed_object_dies", 1): (STA, [0]),
    ("subscribed_object_dies", 2): ({8: "watch sta", 17: "listen ubus.object.*", 33: "watch sta"}, [0, 0, 0]),
    ("subscribed_object_dies", 3): ({28: "add sta sta"}, [0]),
    ("event_broadcast", 1): ({3: "listen ip_change", 29: 'send ip_change {"own":1}', 35: "unlisten"}, [0, 0, 0]),
    ("event_broadcast", 2): ({10: "listen ip_*"}, [0]),
    ("event_broadcast", 3): ({17: "send ip_change " + CHANGE, 23: "send ip_other", 27: 'send dev_mode {"value":"ROUTER"}',
                              33: "send ubus.denied", 38: 'send ip_change {"after":1}'}, [0, 0, 0, 6, 0]),
    ("object_remove", 1): ({**STA, 24: "remove sta", 31: "remove sta", 33: "add sta sta"}, [0, 0, 4, 0]),
    ("object_remove", 2): ({8: "watch sta"}, [0]),
    ("object_remove", 3): ({19: "listen ubus.object.*"}, [0]),
    ("sync_call_while_called", 1): (STA, [0]),
    ("sync_call_while_called", 2): (
        {8: "add oa toolbox", 11: "lookup sta", 21: 'call ob slow 0 {"n":400}',
         39: 'call ob relay 0 {"path":"oa","method":"echo","timeout":300}'}, [0, 0, 0, 0]),
    ("sync_call_while_called", 3): ({26: 'call oa echo 0 {"x":1}'}, [0]),
    ("sync_call_while_called", 4): ({18: "add ob toolbox"}, [0]),
    ("large_message", 1): ({3: "add srv toolbox"}, [0]),
    ("large_message", 2): ({8: "fill srv echo 1048512", 17: 'call srv big 0 {"n":1048548}',
                            26: "fill srv echo 1048552"}, [0, 0, 2]),
    ("type_reuse", 1): ({3: "add m1 ping", 6: "add m2 ping", 20: "remove m1", 23: "remove m2"}, [0, 0, 0, 0]),
    ("type_reuse", 2): ({11: "add m1 ping"}, [2]),
    ("type_reuse", 3): (["list", "m*"], 0),
    ("timeout_late_reply", 1): ({3: "add srv toolbox"}, [0]),
    ("timeout_late_reply", 2): ({8: 'call srv slow 150 {"n":400}', 15: RESULT, 17: 'call srv echo 0 {"after":true}',
                                 26: 'call srv slow 50 {"n":5000}', 32: RESULT}, [7, 0, 7]),
    ("auto_subscribe", 1): ({3: "add auto1 ping", 6: "add auto2 ping", 9: "add other ping", 33: "add auto3 ping",
                             41: "remove auto1"}, [0, 0, 0, 0, 0]),
    ("auto_subscribe", 2): ({14: "auto auto"}, [0]),
}


def test_every_recorded_client_is_played():
    recorded = {(name, line.conn) for name in ubus_golden.NAMES for line in ubus_golden.read(name)}
    assert recorded - CLIENTS.keys() == {("raw_edge_cases", 1)}  # made by hand, no program of ours sends that
    assert CLIENTS.keys() <= recorded


class Recording:
    """Plays the broker of one connection."""

    def __init__(self, name, conn, path):
        self.lines = [line for line in ubus_golden.read(name) if line.conn == conn]
        self.listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.listener.bind(path)
        self.listener.listen()
        self.listener.settimeout(PATIENCE)

    def play(self, before=lambda line: None):
        connection = None
        for line in self.lines:
            before(line)
            if line.event == "connect":
                connection = Connection(self.listener.accept()[0], greeted=False)
            elif line.event == "close":
                break
            elif line.from_client:
                assert connection.receive().raw == line.data, line
            else:
                connection.send(line.data)
        return connection


@pytest.mark.parametrize("name, conn", CLIENTS, ids=lambda value: str(value))
def test_client_speaks_as_recorded(build_dir, tmp_path, name, conn):
    path = str(tmp_path / "ubus.sock")
    part, expected = CLIENTS[name, conn]
    broker = Recording(name, conn, path)
    if isinstance(part, list):
        client = subprocess.Popen([build_dir / "bin" / "ubus", "-s", path, *part], stdout=subprocess.DEVNULL,
                                  stderr=subprocess.DEVNULL)
        broker.play().expect_close()
        assert client.wait(PATIENCE) == expected
        return

    peer = Peer(build_dir, path)
    results = []

    def tell(line):
        step = part.get(line.n)
        if step is RESULT:
            results.append(peer.result())
        elif step:
            peer.tell(step)

    connection = broker.play(tell)
    while len(results) < len(expected):
        results.append(peer.result())
    assert results == expected
    peer.done()
    connection.expect_close()
