"""Checks what the programs print against docs/schema/wsmd.schema.json."""

import json
import pathlib

import jsonschema
import pytest

from wsmlab import members
from wsmlab.examples import in_documents

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
    lab.wait(lambda: any('"left"' in line for line in lab.told.lines()), 10, "the departure to be told")
    return lab, watch


def test_the_schema_is_one():
    jsonschema.Draft202012Validator.check_schema(SCHEMA)


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
    assert {"joined", "changed", "roamed", "left"} >= {kind for line in lab.told.lines() for kind in json.loads(line)} >= {"left"}
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


@pytest.mark.parametrize("kind", [kind for kind in SCHEMA["$defs"] if kind.endswith("request") and ("sta" in kind.split()[0] or kind.startswith("wsmd"))])
def test_a_documented_call_has_the_arguments_of_the_schema(kind):
    words = kind.split()[:-1]
    if words == ["sta", "period"]:
        return
    calls = [command for _, command, _ in in_documents()] + [line[2:] for _, _, text in in_documents()
                                                              for line in text.splitlines() if line.startswith("$ ")]
    asked = [call.split("'")[1] for call in calls if call.startswith(f"ubus call {' '.join(words)} '") and "2>" not in call]
    assert asked, f"docs have no example of {kind}"
    for text in asked:
        check(json.loads(text), kind)
