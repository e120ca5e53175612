"""Checks what the programs print against docs/schema/wsmd.schema.json."""

import json
import subprocess

import formats
import jsonschema
import pytest

from wsmlab import examples, members

SCHEMA = json.loads(members.SCHEMA.read_text(encoding="utf-8"))
MAC = "02:00:00:00:00:01"


def check(message, kind):
    jsonschema.Draft202012Validator({"$ref": f"#/$defs/{kind}", "$defs": SCHEMA["$defs"]}).validate(message)


@pytest.fixture
def lived(running_lab):
    """A lab in which a station came, got its address, roamed and left, and all messages about it."""
    lab = running_lab
    watch = lab.watch_bus().subscribe()
    lab.told = lab.start("subscriber", ["ubus", "-S", "subscribe", "wsmd"])

    def other_comes_and_goes():
        lab.apsim("assoc mac=02:00:00:00:00:99 ifname=ath0 radio=0")
        lab.apsim("disassoc mac=02:00:00:00:00:99 reason=307")
        return lab.told.lines()
    lab.wait(other_comes_and_goes, 10, "the subscription to wsmd")
    lab.apsim(f"lease mac={MAC} ip=192.168.10.50 name=phone")
    lab.apsim(f"assoc mac={MAC} ifname=ath0 radio=0")
    lab.wait_for_report(mac=MAC, log_type=3)
    watch.wait_for_event("ip_change", mac=MAC)
    lab.listed = lab.bus("call", "sta", "get", {"get_all_sta_status": "online"})
    lab.entries = lab.bus("call", "sta", "get", {"get_all_sta_status": "online", "get_wlan_sta_info": "stainfo"})
    lab.page = lab.bus("call", "wsmd", "stations")
    lab.one = lab.bus("call", "wsmd", "station", {"mac": MAC})
    lab.apsim(f"roam mac={MAC} ifname=ath1 radio=1")
    lab.wait_for_report(mac=MAC, log_type=1)
    lab.apsim(f"disassoc mac={MAC} reason=307")
    lab.wait_for_report(mac=MAC, log_type=2)
    watch.wait_for_notification(mac=MAC, log_type=2)
    lab.wait(lambda: any('"left"' in line and MAC in line for line in lab.told.lines()), 10, "the departure to be told")
    return lab, watch


def test_the_schema_is_one():
    jsonschema.Draft202012Validator.check_schema(SCHEMA)


def members_in(part, path="$defs"):
    """Every member of an object in the schema, at any depth: (path, its schema)."""
    if isinstance(part, list):
        part = dict(enumerate(part))
    if isinstance(part, dict):
        for name, member in part.get("properties", {}).items():
            yield f"{path}/{name}", member
        for name, inner in part.items():
            yield from members_in(inner, f"{path}/{name}")


def test_every_member_in_the_schema_has_a_description():
    described = {name for name, part in (SCHEMA["$defs"] | SCHEMA["$defs"]["members"]).items() if part.get("description")}
    assert [path for path, member in members_in(SCHEMA["$defs"])
            if not member.get("description") and member.get("$ref", "").rsplit("/", 1)[-1] not in described] == []


def test_every_message_of_a_station_s_life_is_as_the_schema_says(lived):
    lab, watch = lived
    assert {report["log_type"] for report in lab.reports()} == {1, 2, 3, 4}
    for report in lab.reports():
        check(report, "report")
    assert {notification["log_type"] for notification in watch.notifications} >= {1, 2}
    for notification in watch.notifications:
        check(notification, "sta notification")
    for name, event in watch.events:
        check(event, name)
    check(lab.listed["online_list"][0], "station")
    check(lab.entries["online_list"][0], "driver_entry")
    for answer in (lab.listed, lab.entries, {"count": 3}):
        check(answer, "sta get answer")
    check(lab.bus("call", "sta.debug", "get"), "sta.debug get answer")
    check(lab.page, "wsmd stations answer")
    check(lab.bus("call", "wsmd", "departed"), "wsmd departed answer")
    check(lab.bus("call", "wsmd", "health"), "wsmd health answer")
    for line in lab.told.lines():
        for kind, message in json.loads(line).items():
            check(message, f"wsmd {kind}")
    told = [json.loads(line) for line in lab.told.lines() if MAC in line]
    assert {kind for message in told for kind in message} == {"joined", "changed", "roamed", "left"}
    check(lab.one, "wsmd station")
    assert list(lab.one) == [name for name in SCHEMA["$defs"]["wsmd station"]["properties"] if name in lab.one]


def test_a_real_message_has_all_members_of_the_schema_in_its_order(lived):
    lab, watch = lived
    properties = {kind: list(SCHEMA["$defs"][kind]["properties"]) for kind in ("report", "station", "sta notification")}
    assert list(lab.reports()[0]) == properties["report"]
    assert list(lab.listed["online_list"][0]) == properties["station"]
    assert list(watch.notifications[0]) == properties["sta notification"]


@pytest.mark.parametrize("kind, wrong", [("report", {"log_type": 1}), ("sta delete request", {"mac": MAC}),
                                         ("sta set request", {"set_update_log_period": "60"}),
                                         ("sta.debug set request", {"level": 8}), ("ip_change", {"mac": MAC, "new": 1})])
def test_a_message_that_is_not_as_the_schema_says_is_refused(kind, wrong):
    with pytest.raises(jsonschema.ValidationError):
        check(wrong, kind)


def test_a_report_of_a_raw_file_is_as_the_schema_says(build_dir):
    image = formats.report_image(mac=MAC, status=1, log_type=1)
    done = subprocess.run([build_dir / "bin/wsm-collector", "--json", "-"], input=image, capture_output=True, timeout=60, check=True)
    report = json.loads(done.stdout)
    check(report, "report")
    assert report["received"] is None


def documented_turns():
    """Every command of the documents' examples with what it printed."""
    for _, command, text in examples.in_documents():
        yield from examples.turns(text) if command == "conversation" else [(command, text)]


def documented_messages():
    """Every message of the documents' examples, with the name of its kind in the schema."""
    for command, printed in documented_turns():
        words = command.split("'")[0].split()
        given = json.loads(command.split("'")[1]) if words[:1] == ["ubus"] and "'" in command else {}
        if words[:2] == ["ubus", "send"]:
            yield words[2], given
        elif words[:2] == ["ubus", "listen"]:
            yield words[2], json.loads(printed)[words[2]]
        elif words[:2] == ["ubus", "subscribe"]:
            (kind, message), = json.loads(printed).items()
            yield NOTIFICATIONS.get(" ".join(words[2:]), f"wsmd {kind}"), message
        elif words[:2] == ["ubus", "call"]:
            method = " ".join(words[2:4])
            refused = printed.startswith("{") and "error" in json.loads(printed)
            if given and not refused:
                yield f"{method} request", given
            if printed.startswith("{"):
                answer = "wsmd refusal" if refused else method if method == "wsmd station" else f"{method} answer"
                yield answer, json.loads(printed)


NOTIFICATIONS = {"sta": "sta notification", "sta # period": "sta period request", "dhcpmon.client.notify": "dhcpmon notification"}
# Parts of other messages; and reports, which do not pass on the bus.
NOT_ALONE = {"members", "station", "driver_entry", "dhcpmon client entry", "wsmd departure", "report"}


def test_every_message_of_the_documents_is_as_the_schema_says():
    kinds = set()
    for kind, message in documented_messages():
        check(message, kind)
        kinds.add(kind)
        if kind == "dhcpmon notification":  # JSON in a text
            check(json.loads(message["data"]), "dhcpmon client answer")
    assert set(SCHEMA["$defs"]) - kinds == NOT_ALONE
