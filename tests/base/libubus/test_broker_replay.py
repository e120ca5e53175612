"""The broker's half of recorded conversations: sent the clients' messages, it answers byte for byte."""

import pytest
import ubus_golden


@pytest.mark.parametrize("name", ubus_golden.NAMES)
def test_broker_answers_as_recorded(broker, name):
    ids = ubus_golden.Ids()
    connections = {}
    for line in ubus_golden.read(name):
        if line.event == "connect":
            connections[line.conn] = None  # opened when its greeting is due
        elif line.event == "close" and line.from_client:
            connection = connections[line.conn]
            assert connection.is_served(), f"{line}: something came that is not in the recording"
            connection.close()
        elif line.event == "close":
            connections[line.conn].expect_close()
        elif line.from_client:
            connections[line.conn].send(ids.translate(line))
        elif line.type == "HELLO":
            connections[line.conn] = broker.connect()
            ids.compare(line, connections[line.conn].hello.raw)
        else:
            ids.compare(line, connections[line.conn].receive().raw)
