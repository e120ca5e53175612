"""The object sta on the bus: its methods, its replies, and a bus that starts late, goes away, or never comes."""

import pytest

from wsmlab import BusError

A, B = "02:00:00:00:00:0a", "02:00:00:00:00:0b"


def get(lab, **question):
    return lab.bus("call", "sta", "get", question)


@pytest.fixture
def two_stations(running_lab):
    """A on radio 0 and B on radio 1, both associated."""
    running_lab.apsim(f"assoc mac={A} ifname=ath0 radio=0")
    running_lab.apsim(f"assoc mac={B} ifname=ath1 radio=1")
    running_lab.wait_for_report(mac=B, log_type=1)
    return running_lab


def test_the_object_shows_its_methods_with_their_arguments(running_lab):
    lines = running_lab.run(["ubus", "-v", "list", "sta"]).stdout.splitlines()
    assert lines[0].startswith("'sta' @")
    assert lines[1:] == [
        '\t"get":{"get_all_sta_status":"String","get_all_tk_sta_status":"String","get_sta_mac":"String",'
        '"get_sta_count":"String","get_wlan_sta_info":"String"}',
        '\t"set":{"set_update_log_period":"Integer"}',
        '\t"delete":{"mac":"String","radio":"Integer"}']


# --- get ---

def test_an_empty_table_is_an_empty_list(running_lab):
    assert get(running_lab, get_all_sta_status="online") == {"online_list": [], "count": "0"}


@pytest.mark.parametrize("word", ["all", "Online", "online ", ""])
def test_any_other_word_than_online_gives_only_a_count_of_0(two_stations, word):
    assert get(two_stations, get_all_sta_status=word) == {"count": "0"}


@pytest.mark.parametrize("question", [{}, {"get_sta_count": "normal_sta"}, {"get_sta_mac": A},
                                      {"get_all_tk_sta_status": "online"}, {"get_all_sta_status": 1},
                                      {"get_all_sta_status": None}, {"get_all_sta_status": ["online"]}])
def test_without_its_first_argument_get_fails_and_says_nothing(running_lab, question):
    with pytest.raises(BusError) as failure:
        get(running_lab, **question)
    assert failure.value.status == 255
    running_lab.wait_for_log("sta_ubus_get_info_methods param:NULL")


def test_the_count_is_a_text_in_the_list_and_a_number_in_the_count_reply(two_stations):
    assert get(two_stations, get_all_sta_status="online")["count"] == "2"
    assert get(two_stations, get_all_sta_status="x", get_sta_count="normal_sta") == {"count": 2}


def test_repeaters_are_counted_apart(two_stations):
    two_stations.apsim('assoc mac=02:00:00:00:00:0c ifname=ath0 radio=0 ssid="@Talvik-Repeater"')
    two_stations.wait_for_report(mac="02:00:00:00:00:0c", log_type=1)
    counts = {which: get(two_stations, get_all_sta_status="x", get_sta_count=which)["count"]
              for which in ("normal_sta", "repeater_sta", "all", "")}
    assert counts == {"normal_sta": 2, "repeater_sta": 1, "all": 3, "": 3}


def test_a_count_does_not_look_at_the_address(two_stations):
    assert get(two_stations, get_all_sta_status="x", get_sta_count="all", get_sta_mac=A) == {"count": 2}


def test_the_list_can_be_asked_for_one_station_in_the_tables_spelling(two_stations):
    def macs(mac):
        reply = get(two_stations, get_all_sta_status="online", get_sta_mac=mac)
        return [station["mac"] for station in reply["online_list"]]
    assert macs(A) == [A]
    assert macs(A.upper()) == []
    assert macs("") == [A, B]


def test_a_filter_of_another_type_is_no_filter(two_stations):
    assert get(two_stations, get_all_sta_status="online", get_sta_mac=5)["count"] == "2"


def test_stainfo_lists_what_the_driver_says_in_texts(two_stations):
    two_stations.apsim("assoc mac=02:00:00:00:00:0c ifname=ath0 radio=0")
    two_stations.wait_for_report(mac="02:00:00:00:00:0c", log_type=1)
    before = len(two_stations.driver_requests())
    reply = get(two_stations, get_all_sta_status="online", get_wlan_sta_info="stainfo")
    asked = [(request["cmd"], request["ifname"]) for request in two_stations.driver_requests()[before:]]
    assert reply["count"] == "3"
    assert [station["mac"] for station in reply["online_list"]] == [A, "02:00:00:00:00:0c", B]
    for station in reply["online_list"]:
        assert list(station) == ["mac", "ssid", "ssid_ifname", "channel", "rxrate", "txrate", "rssi", "maxRate",
                                 "oltime", "utilization_cnt", "floornoise_cnt", "psm"]
        assert all(isinstance(value, str) for value in station.values())
        assert station["maxRate"].endswith("M") and len(station["rssi"].split(",")) == 4
    # One count and one table for each radio; the timers may have asked in between.
    for radio in ("ath0", "ath1"):
        assert (5, radio) in asked and (1, radio) in asked


def test_stainfo_of_one_station_gives_that_station(two_stations):
    reply = get(two_stations, get_all_sta_status="online", get_wlan_sta_info="stainfo", get_sta_mac=B)
    assert [station["mac"] for station in reply["online_list"]] == [B] and reply["count"] == "1"
    reply = get(two_stations, get_all_sta_status="online", get_wlan_sta_info="stainfo", get_sta_mac="02:00:00:00:00:0f")
    assert reply == {"online_list": [], "count": "0"}


def test_a_driver_that_fails_leaves_the_list_whole(two_stations):
    two_stations.apsim("fail cmd=5")
    assert get(two_stations, get_all_sta_status="online")["count"] == "2"
    nothing = {"online_list": [], "count": "0"}
    assert get(two_stations, get_all_sta_status="online", get_wlan_sta_info="stainfo") == nothing
    two_stations.apsim("fail off")
    assert get(two_stations, get_all_sta_status="online", get_wlan_sta_info="stainfo")["count"] == "2"


@pytest.mark.parametrize("lie", ["num n=1", "num n=2000", "num n=4294967295", "count ifname=ath0 n=7"])
def test_a_driver_that_lies_about_its_table_does_no_harm(two_stations, lie):
    two_stations.apsim(lie)
    assert get(two_stations, get_all_sta_status="online")["count"] == "2"
    get(two_stations, get_all_sta_status="online", get_wlan_sta_info="stainfo")
    assert two_stations.daemon.running


def test_a_station_on_a_third_radio_is_listed_without_driver_figures(running_lab, driver):
    driver.associate(radio_id=2, ifname="ath2")
    running_lab.wait_for_report(log_type=1)
    assert get(running_lab, get_all_sta_status="online")["online_list"][0]["radio_id"] == 2
    running_lab.wait_for_log("radio is inexistence ")


# --- set ---

def test_set_changes_the_period_and_reports_at_once(running_lab):
    before = running_lab.logged("update period:")
    assert running_lab.bus("call", "sta", "set", {"set_update_log_period": 30}) is None
    assert running_lab.logged("update time=30") == 1
    assert running_lab.logged("update period:30 s") == running_lab.logged("update period:") - before == 1


@pytest.mark.parametrize("message", [{}, {"set_update_log_period": "30"}, {"set_update_log_period": 1 << 40},
                                     {"set_update_log_period": True}, {"other": 1}])
def test_set_without_a_number_does_nothing(running_lab, message):
    assert running_lab.bus("call", "sta", "set", message) is None
    assert running_lab.logged("update time=") == 0


@pytest.mark.parametrize("period", [0, -1, 2147483647])
def test_an_odd_period_is_taken_as_it_is_and_the_bus_still_answers(open_lab, period):
    lab = open_lab(config={"debug": None})  # a period of 0 would fill the log
    lab.start_ubusd()
    lab.daemon = lab.start("wsmd", ["wsmd"])
    lab.run(["ubus", "-t", "20", "wait_for", "sta"])
    lab.bus("call", "sta", "set", {"set_update_log_period": period})
    assert lab.logged(f"update time={period}") == 1
    assert get(lab, get_all_sta_status="x") == {"count": "0"}
    lab.bus("call", "sta", "set", {"set_update_log_period": 60})
    assert lab.logged("update time=60") == 1


def test_every_online_station_is_reported_each_period_with_fresh_figures(two_stations):
    two_stations.wait(lambda: {station["status"] for station in two_stations.online().values()} == {1}, 15,
                      "both stations on line")
    # Their early single reports are over before the period report is asked for.
    two_stations.wait(lambda: sum(report["log_type"] == 3 for report in two_stations.reports()) >= 2, 15,
                      "the early reports")
    two_stations.apsim(f"set mac={A} rx_rate=10 tx_rate=20")
    watch = two_stations.watch_bus().subscribe()
    two_stations.bus("call", "sta", "set", {"set_update_log_period": 60})
    report = two_stations.wait_for_report(mac=A, log_type=3, flow_rateup=10240, flow_ratedown=20480)
    assert report["status"] == 1
    watch.wait_for_notification(mac=A, log_type=3, flowup_rate_cnt=10240)
    watch.wait_for_notification(mac=B, log_type=3)


# --- delete ---

def test_delete_asks_the_driver_to_drop_the_station_and_leaves_the_table_alone(two_stations):
    before = len([request for request in two_stations.driver_requests() if request["cmd"] == 4])
    assert two_stations.bus("call", "sta", "delete", {"mac": B, "radio": 1}) is None
    requests = [request for request in two_stations.driver_requests() if request["cmd"] == 4][before:]
    assert [(request["size"], request["ifname"]) for request in requests] == [(24, "ath1")]
    # The driver drops it and says so: then it is gone.
    two_stations.wait_for_report(mac=B, log_type=2)
    assert list(two_stations.online()) == [A]


@pytest.mark.parametrize("message", [{"mac": A, "radio": 1}, {"mac": "02:00:00:00:00:0f", "radio": 0},
                                     {"mac": A.upper(), "radio": 0}])
def test_delete_on_another_radio_or_of_an_unknown_station_asks_nothing(two_stations, message):
    assert two_stations.bus("call", "sta", "delete", message) is None
    assert two_stations.logged("sta can't find or radio doesn't match") == 1
    assert all(request["cmd"] != 4 for request in two_stations.driver_requests())


@pytest.mark.parametrize("message", [{}, {"mac": A}, {"radio": 0}, {"mac": A, "radio": "0"}, {"mac": 1, "radio": 0}])
def test_delete_without_both_arguments_does_nothing(two_stations, message):
    assert two_stations.bus("call", "sta", "delete", message) is None
    assert two_stations.logged("sta_ubus_delete_info_methods mac:") == 0
    assert all(request["cmd"] != 4 for request in two_stations.driver_requests())


def test_an_unknown_method_is_refused(running_lab):
    with pytest.raises(BusError) as failure:
        running_lab.bus("call", "sta", "nothing")
    assert failure.value.status == 3


# --- a bus that is not there ---

def test_a_bus_that_comes_late_is_joined_within_two_seconds(lab):
    lab.start_apsim()
    lab.start_collector()
    lab.start_daemon()
    lab.wait_for_family()
    lab.apsim(f"assoc mac={A} ifname=ath0 radio=0")
    lab.wait_for_report(mac=A, log_type=1)  # reports need no bus
    lab.start_ubusd()
    lab.run(["ubus", "-t", "5", "wait_for", "sta"])
    assert list(lab.online()) == [A]
    assert lab.logged("Run in function sta_ubus_object_connect!") >= 2
    lab.wait(lambda: any("debug" in name for name in lab.bus("list")), 5, "the log library's own object")


def test_a_bus_that_goes_away_ends_no_report_or_the_daemon_cleanly(running_lab):
    broker = next(process for process in running_lab.space.processes if process.name == "ubusd")
    broker.kill()
    running_lab.apsim(f"assoc mac={A} ifname=ath0 radio=0")
    running_lab.wait(lambda: any(report["mac"] == A for report in running_lab.reports())
                     or not running_lab.daemon.running, 10, "the report, or the daemon's end")
    assert running_lab.daemon.status in (None, 1)


def test_a_call_while_the_table_is_large_is_answered_whole(running_lab):
    running_lab.apsim("burst n=200")
    running_lab.wait(lambda: len(running_lab.online()) == 200, 30, "200 stations in the list")
    assert get(running_lab, get_all_sta_status="online")["count"] == "200"
    assert sorted(running_lab.online()) == sorted(station["mac"] for station in running_lab.stations())
