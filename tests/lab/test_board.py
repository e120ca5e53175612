"""What the live view shows and what its keys do, without a terminal."""

import pathlib

import pytest

from wsmlab.board import LINGER_S, STREAM, Answer, Board, Notice, Said
from wsmlab.cells import cells
from wsmlab.columns import COLUMNS, GAP, columns_for
from wsmlab.happenings import Happening

HOSTILE = "\x1b[2J日本\n\u202e" + "e\u0336" * 30


class Clock:
    def __init__(self):
        self.now = 1000.0

    def __call__(self):
        return self.now


def record(number, **members):
    """A station as the daemon lists it."""
    return {"ssid": "Lobby", "mac": f"02:00:00:00:00:{number:02x}", "ip": f"192.168.1.{number}", "name": f"client{number}",
            "power": "45", "status": 1, "oltime": 62, "wifi_up_cnt": 2500, "wifi_down_cnt": 3_400_000,
            "flowup_rate_cnt": 100 * 1024, "flowdown_rate_cnt": 200 * 1024, "radio_id": 0, "channel": 6, "vlanid": 10,
            **members}


def report(mac="02:00:00:00:00:01", log_type=3, at=1.0):
    return Happening(at, "report", f"{log_type} {mac}", {"mac": mac, "log_type": log_type})


def notification(log_type, **members):
    return Happening(1.0, "notify", f"{log_type}", {"notify_sta_status": "1", "log_type": log_type, **members})


@pytest.fixture
def clock():
    return Clock()


@pytest.fixture
def board(clock):
    """With three stations online."""
    made = Board(clock=clock)
    made.take(Answer([record(1, name="carla", power="20"), record(2, name="Anna", power="50"),
                      record(3, name="ben", power="35", ip="10.0.0.9")], period=60))
    return made


def text(line):
    return "".join(part for _, part in line)


def lines(board, width=80, height=24):
    return [text(line) for line in board.page(width, height)]


def names(board):
    return [station.record["name"] for station in board.shown()]


def press(board, *keys):
    """The wishes that resulted from the keys."""
    return [wish for wish in map(board.key, keys) if wish]


# --- the page ---

@pytest.mark.parametrize("mode", [[], ["?"], ["enter"], ["d"], ["/", "x"], ["l", "7"], ["p"]])
def test_every_line_of_every_size_has_exactly_its_cells(board, mode):
    board.take(Answer([record(number, name=HOSTILE, ssid=HOSTILE, ip=HOSTILE, wifi_up_cnt=2**63, oltime=2**31,
                              channel=2**31, flowdown_rate_cnt=2**31) for number in range(40)]))
    for _ in range(30):
        board.take(Happening(123456.7, "report", HOSTILE, {"log_type": 2}))
    board.take(Notice(HOSTILE))
    board.page(80, 24)
    press(board, *mode)
    for width in (*range(1, 100), 160, 300):
        for height in (0, 1, 2, 3, 5, 8, 24, 50):
            page = lines(board, width, height)
            assert len(page) == height
            assert {cells(line) for line in page} <= {width}


def test_80_columns_have_address_and_signal_and_name():
    assert list(columns_for(80)) == ["mac", "name", "ip", "signal", "rate", "time", "state"]


def test_160_columns_have_all():
    assert list(columns_for(160)) == list(COLUMNS)


@pytest.mark.parametrize("width", range(1, 300))
def test_columns_never_take_more_than_there_is_and_more_room_loses_none(width):
    widths = columns_for(width)
    assert sum(widths.values()) + GAP * max(0, len(widths) - 1) <= width
    assert set(widths) <= set(columns_for(width + 1))


def test_a_station_has_its_line(board):
    page = lines(board, 160)
    assert page[1].split() == ["MAC▲", "name", "IP", "SSID", "VLAN", "radio", "signal", "dBm", "trend", "Mb/s", "up",
                               "Mb/s", "up", "down", "time", "state"]
    assert page[2].split() == ["02:00:00:00:00:01", "carla", "192.168.1.1", "Lobby", "10", "0", "ch6", "██···", "-75",
                               "▃", "100", "200", "2.5", "kB", "3.4", "MB", "1:02", "online"]


def test_the_header_counts_stations_and_reports(board, clock):
    board.take(Answer([record(1), record(2, status=2)], period=30))
    for _ in range(5):
        board.take(report())
    assert lines(board)[0].split() == "1 of 2 online period 30 s 0.5 reports/s bus ok".split()
    clock.now += 11
    assert "0.0 reports/s" in lines(board)[0]


def test_the_header_says_how_long_it_lasts(clock):
    assert "1:05 left" in lines(Board(until=clock.now + 65, clock=clock))[0]


def test_a_bus_without_an_answer_is_told_and_the_stations_stay(board):
    board.take(Answer([], "no answer (4)"))
    page = lines(board)
    assert "bus no answer (4)" in page[0]
    assert "carla" in page[2]
    assert "period 60 s" in page[0]


def test_the_newest_of_the_stream_is_at_its_end(board):
    for number in range(STREAM + 50):
        board.take(report(at=float(number)))
    assert lines(board)[-2].split()[0] == f"{STREAM + 49}.0"
    assert len(board.stream) == STREAM


def test_a_higher_terminal_shows_more_stations_and_more_stream(board):
    board.take(Answer([record(number) for number in range(60)]))
    for number in range(60):
        board.take(report())

    def shown(height):
        page = lines(board, 80, height)
        return sum("client" in line for line in page), sum(" report " in line for line in page)
    assert shown(24) == (12, 8)
    assert shown(50) == (27, 19)
    assert shown(8)[0] >= 2


def test_few_stations_leave_the_room_to_the_stream(board):
    for _ in range(60):
        board.take(report())
    assert sum(" report " in line for line in lines(board)) == 24 - 2 - 1 - 3 - 1


# --- stations that come and go ---

def test_the_signal_of_each_answer_is_in_the_trend(board):
    for power in ("5", "35", "65"):
        board.take(Answer([record(1, power=power)]))
    assert list(board.stations["02:00:00:00:00:01"].signals) == [-75, -90, -60, -30]
    assert "▃▁▅█" in lines(board, 160)[2]


@pytest.mark.parametrize("power", ["", "x", None])
def test_without_a_signal_there_is_neither_bar_nor_trend(clock, power):
    board = Board(clock=clock)
    members = record(1)
    members.pop("power")
    board.take(Answer([members if power is None else {**members, "power": power}]))
    assert not any(sign in lines(board)[2] for sign in "█·▁")


def test_a_station_that_has_left_is_shown_as_such_for_a_while(board, clock):
    board.take(Answer([record(2)]))
    assert lines(board)[2].endswith("left   ")
    assert "1 of 1 online" in lines(board)[0]
    clock.now += LINGER_S
    board.take(Answer([record(2)]))
    assert names(board) == ["client2"]


def test_the_trend_goes_on_in_a_roam_and_restarts_after_a_departure(board):
    station = board.stations["02:00:00:00:00:01"]
    board.take(notification(1, **record(1)))
    assert list(station.signals) == [-75]
    board.take(notification(2, **record(1)))
    assert station.left is not None
    board.take(notification(1, **record(1)))
    assert station.left is None
    assert not station.signals


def test_notifications_stand_in_for_a_list_that_is_too_long(board):
    board.take(Answer([], "list too long"))
    board.take(notification(1, **record(9, name="new", status=2)))
    assert any("new" in line and "waiting" in line for line in lines(board))
    board.take(notification(2, mac="02:00:00:00:00:09", ssid="Lobby"))
    assert any("new" in line and "left" in line for line in lines(board))


def test_of_a_list_that_is_too_long_only_the_shown_stations_are_fetched(board):
    board.take(Answer([record(number) for number in range(1, 61)]))
    lines(board)
    assert board.visible == [f"02:00:00:00:00:{number:02x}" for number in range(1, 13)]
    board.take(Answer([record(2, name="changed")], "list too long, asked singly"))
    page = lines(board)
    assert page[0].startswith(" 60 stations ")
    assert "changed" in page[3] and "online" in page[4]


def test_a_notification_adds_no_members_to_what_get_gave(board):
    before = set(board.stations["02:00:00:00:00:01"].record)
    board.take(notification(3, **record(1, ip="192.168.1.77", off_reason="")))
    assert set(board.stations["02:00:00:00:00:01"].record) == before
    assert board.stations["02:00:00:00:00:01"].record["ip"] == "192.168.1.77"


def test_other_notifications_change_no_station(board):
    board.take(Happening(1.0, "notify", "", {"request_update_log_period": "1"}))
    assert len(board.stations) == 3


# --- keys ---

def test_s_sorts_by_the_next_column_and_S_the_other_way_round(board):
    assert names(board) == ["carla", "Anna", "ben"]
    press(board, "s")
    assert names(board) == ["Anna", "ben", "carla"]
    assert "name▲" in lines(board)[1]
    press(board, "S")
    assert names(board) == ["carla", "ben", "Anna"]
    assert "name▼" in lines(board)[1]
    press(board, "s", "s")
    assert board.sort_column == "signal"
    assert names(board) == ["carla", "ben", "Anna"]


def test_addresses_are_sorted_as_numbers_and_the_missing_are_last(clock):
    board = Board(clock=clock)
    board.take(Answer([record(1, ip="10.0.0.10"), record(2, ip=""), record(3, ip="10.0.0.9")]))
    board.sort_column = "ip"
    assert [station.record["ip"] for station in board.shown()] == ["10.0.0.9", "10.0.0.10", ""]


@pytest.mark.parametrize("column", [name for name in COLUMNS if COLUMNS[name].order])
def test_a_record_with_nothing_but_its_mac_is_sorted_and_shown(board, column):
    board.take(Answer([{"mac": "02:00:00:00:00:07"}, record(1)]))
    board.sort_column = column
    assert any("02:00:00:00:00:07" in line for line in lines(board, 160))


def test_s_passes_over_columns_that_the_screen_has_no_room_for(board):
    lines(board, 40)
    seen = set()
    for _ in range(20):
        press(board, "s")
        seen.add(board.sort_column)
    assert seen == {name for name in columns_for(40) if COLUMNS[name].order}


def test_the_filter_looks_at_mac_name_ip_and_ssid_while_it_is_typed(board):
    press(board, "/", *"AN")
    assert names(board) == ["Anna"]
    press(board, "backspace", "backspace", *"10.0.0")
    assert names(board) == ["ben"]
    press(board, "enter")
    assert "1 of 3 with '10.0.0'" in "".join(lines(board))
    press(board, "/", *["backspace"] * 9, *"00:02", "enter")
    assert names(board) == ["Anna"]
    press(board, "/", *["backspace"] * 9, *"lobby", "enter")
    assert len(names(board)) == 3


@pytest.mark.parametrize("keys", [("/", "x", "esc"), ("/", "x", "enter", "esc")])
def test_esc_shows_all_stations_again(board, keys):
    press(board, *keys)
    assert len(board.shown()) == 3
    assert board.prompt is None


def test_letters_in_the_filter_are_no_commands(board):
    assert press(board, "/", "q", "d", "p", " ", "?") == []
    assert board.filter == "qdp ?"
    assert not board.paused


def test_while_it_is_paused_nothing_changes_but_the_count(board):
    before = lines(board)
    press(board, "p")
    for _ in range(3):
        board.take(report())
    board.take(Answer([record(4)]))
    assert lines(board)[0].startswith(" PAUSED +3 ")
    assert lines(board)[1:] == before[1:]
    press(board, " ")
    assert "PAUSED" not in lines(board)[0]
    assert len(board.stream) == 3
    assert "02:00:00:00:00:04" in board.stations


def test_a_long_pause_keeps_no_more_than_the_stream(board):
    press(board, "p")
    for _ in range(STREAM + 7):
        board.take(report())
    assert lines(board)[0].startswith(f" PAUSED +{STREAM + 7} ")
    press(board, "p")
    assert len(board.stream) == STREAM


def chosen_line(board):
    return next(text(line) for line in board.page(80, 24) if line[0][0] == "selected")


@pytest.mark.parametrize("keys, name", [([], "carla"), (["down"], "Anna"), (["j", "j"], "ben"), (["j", "j", "j"], "ben"),
                                        (["j", "k"], "carla"), (["up"], "carla"), (["page down"], "ben"), (["end"], "ben"),
                                        (["end", "home"], "carla"), (["end", "page up"], "carla")])
def test_keys_choose_a_station(board, keys, name):
    lines(board)
    press(board, *keys)
    assert name in chosen_line(board)


def test_the_choice_stays_with_its_station_when_the_order_changes(board):
    lines(board)
    press(board, "end", "s", "S")
    assert "ben" in chosen_line(board)


def test_when_the_chosen_one_goes_the_next_is_chosen(board, clock):
    lines(board)
    press(board, "down")
    for _ in range(2):
        board.take(Answer([record(1), record(3, name="ben")]))
        clock.now += LINGER_S
    assert "ben" in chosen_line(board)


def test_the_chosen_one_is_always_on_the_screen(board):
    board.take(Answer([record(number) for number in range(1, 61)]))
    lines(board)
    for key in ["down"] * 70 + ["up"] * 70 + ["page down"] * 3 + ["end", "home"]:
        press(board, key)
        assert board.selected in chosen_line(board)
    assert "1 to 12 of 60" in "".join(lines(board))


def test_kicking_asks_first(board):
    lines(board)
    assert press(board, "d") == []
    assert lines(board)[-1].rstrip() == " Kick 02:00:00:00:00:01 carla? y/n"
    assert press(board, "n") == []
    assert press(board, "d", "enter", "y") == []
    assert press(board, "d", "y") == [("kick", "02:00:00:00:00:01", 0)]


def test_without_a_station_there_is_nobody_to_kick_or_look_at(clock):
    board = Board(clock=clock)
    lines(board)
    assert press(board, "d", "y", "enter", "down", "end", "s") == []
    assert board.mode == "table"


def test_a_station_that_leaves_before_the_answer_is_not_kicked(board, clock):
    lines(board)
    press(board, "d")
    for _ in range(2):
        board.take(Answer([]))
        clock.now += LINGER_S
    assert lines(board)[-1].startswith(" s/S sort")
    assert press(board, "y") == []


@pytest.mark.parametrize("period, key, wanted", [(60, "+", 120), (60, "-", 30), (1, "-", 1), (3600, "+", 86400),
                                                 (45, "+", 60), (45, "-", 30), (-1, "+", 1)])
def test_plus_and_minus_ask_for_the_next_period(board, period, key, wanted):
    board.take(Answer([], period=period))
    assert press(board, key) == [("period", wanted)]


@pytest.mark.parametrize("typed, wishes", [("15", [("period", 15)]), ("1x5", [("period", 15)]), ("", []), ("0", []),
                                           ("86400", [("period", 86400)]), ("86401", []), ("9999999", [])])
def test_a_typed_period_is_checked(board, typed, wishes):
    assert press(board, "l", *typed, "enter") == wishes


def test_esc_sets_no_period(board):
    assert press(board, "l", "5", "esc") == []
    assert board.prompt is None


def test_details_have_every_member_of_the_reply(board):
    lines(board)
    press(board, "end", "enter")
    seen = "\n".join(lines(board))
    for name, value in board.stations["02:00:00:00:00:03"].record.items():
        assert f"{name:<18}{value}" in seen
    press(board, "esc")
    assert "MAC▲" in lines(board)[1]


def test_long_details_can_be_scrolled(board):
    board.take(Answer([{**record(1), **{f"member{number}": number for number in range(90)}}]))
    lines(board)
    press(board, "enter")
    assert "member89 " not in "".join(lines(board))
    press(board, "end")
    assert "member89 " in "".join(lines(board))
    press(board, "home")
    assert " ssid " in "".join(lines(board))


def test_details_of_a_station_that_is_forgotten_give_way_to_the_table(board, clock):
    lines(board)
    press(board, "enter")
    for _ in range(2):
        board.take(Answer([record(2)]))
        clock.now += LINGER_S
    assert "MAC▲" in lines(board)[1]


def test_the_documents_picture_is_of_this_view(board):
    picture = (pathlib.Path(__file__).resolve().parents[2] / "docs/lab.md").read_text(encoding="utf-8").splitlines()
    page = lines(board)
    assert page[1].rstrip() in picture
    assert page[-1].rstrip() in picture


def test_help_fits_into_80_columns_and_any_key_goes_back(board):
    press(board, "?")
    assert not any("…" in line for line in lines(board))
    press(board, "x")
    assert "MAC▲" in lines(board)[1]


def test_q_quits(board):
    assert press(board, "q") == [("quit",)]


def test_what_was_done_is_told_in_the_stream(board):
    board.take(Said(4.0, "you    delete mac=02:00:00:00:00:01 radio=0"))
    assert "    4.0 you    delete mac=02:00:00:00:00:01 radio=0" in [line.rstrip() for line in lines(board)]


def test_a_notice_stands_above_the_stream(board):
    board.take(Notice("as expected"))
    assert any(line.startswith("─ as expected ─") for line in lines(board))
