"""Every scenario of the lab, and the reader of their format."""

import pathlib
import re

import pytest

from wsmlab.scenario import Failed, Player, Scenario, ScenarioError, matches

ROOT = pathlib.Path(__file__).resolve().parents[2]
SCENARIOS = sorted((ROOT / "lab/scenarios").glob("*.scn"))


def documentation(section):
    """A section of docs/lab.md."""
    text = (ROOT / "docs/lab.md").read_text(encoding="utf-8")
    return text.split(f"\n## {section}\n")[1].split("\n## ")[0]


@pytest.mark.parametrize("path", SCENARIOS, ids=lambda path: path.stem)
def test_the_scenario_comes_out_as_expected(lab, path):
    Scenario.read(path).play(lab)


def test_an_expectation_that_is_not_met_fails_with_what_came_instead(lab):
    scenario = Scenario.parse("""
        0s driver assoc mac=02:00:00:00:00:01 ifname=ath0 radio=0
        1s -> report log_type=2 mac=02:00:00:00:00:01
    """, "wrong.scn")
    with pytest.raises(Failed, match=r"(?s)wrong.scn:3: .*-> report log_type=2 .*came: log_type=1 mac=02:0"):
        scenario.play(lab)


def test_what_must_never_come_fails_when_it_did(lab):
    scenario = Scenario.parse("""
        0s driver assoc mac=02:00:00:00:00:01 ifname=ath0 radio=0
        1s -> notify mac=02:00:00:00:00:01
        1s -> never report log_type=1
    """, "wrong.scn")
    with pytest.raises(Failed, match="wrong.scn:4: .*it did"):
        scenario.play(lab)


def test_an_unexpected_event_fails_an_expectation_of_nothing_else(lab):
    scenario = Scenario.parse("""
        0s driver assoc mac=02:00:00:00:00:01 ifname=ath0 radio=0
        0s driver assoc mac=02:00:00:00:00:02 ifname=ath0 radio=0
        2s -> report log_type=1 mac=02:00:00:00:00:01
        +0s -> no other report log_type=2
        +2s -> no other report log_type=1
    """, "wrong.scn")
    with pytest.raises(Failed, match=r"(?s)wrong.scn:6: .*: 1 came\n  came: .*mac=02:00:00:00:00:02"):
        scenario.play(lab)


@pytest.mark.parametrize("expectation, came", [
    ("stations 2 mac=02:*", "stations=1\n  came: mac=02:00:00:00:00:01"),
    ("bus sta get get_all_sta_status=online get_sta_count=all gives count=7", "count=1"),
    ("event ip_change mac=02:99", "nothing")], ids=["stations", "bus", "event"])
def test_an_expectation_that_is_not_met_says_what_came(lab, expectation, came):
    scenario = Scenario.parse(f"0s driver assoc mac=02:00:00:00:00:01\n+1s -> report log_type=1\n+1s -> {expectation}")
    with pytest.raises(Failed) as failed:
        scenario.play(lab)
    assert f"  came: {came}" in str(failed.value)


def test_a_number_of_stations_that_is_not_met_says_how_many_there_are(lab):
    scenario = Scenario.parse("0s driver burst n=6\n+1s -> report x6 log_type=1\n+1s -> stations 3 ssid=*")
    with pytest.raises(Failed, match=r"came: stations=6\n  came: ssid="):
        scenario.play(lab)


def test_a_text_in_a_file_may_look_like_a_comparison():
    assert Scenario.parse("0s -> file /tmp/x has lnes=3").lines


def test_the_clock_moves_only_where_the_scenario_has_one(lab):
    with pytest.raises(ScenarioError, match="needs a line `lab clock`"):
        Scenario.parse("0s clock +5m").play(lab)


def test_a_line_that_is_done_says_when(lab):
    scenario = Scenario.parse("0s driver assoc mac=02:00:00:00:00:01\n100s -> report log_type=1")
    scenario.play(lab)
    assert 0 <= scenario.lines[1].done < 100
    assert str(scenario.lines[1]).startswith(f"{scenario.lines[1].done:6.1f} s  -> report")


def test_a_command_that_the_driver_refuses_fails_with_its_line(lab):
    with pytest.raises(Failed, match="scenario:1: .*unknown command"):
        Scenario.parse("0s driver dance").play(lab)


@pytest.mark.parametrize("text, fault", [
    ("driver assoc", "a time like 5s"), ("5 driver assoc", "a time like 5s"), ("s driver x", "a time like 5s"),
    ("2s driver x\n1s driver y", "scenario:2: 1s is before"), ("0s dance", "expected one of station, driver, bus"),
    ("0s -> dance", "expected one of report, notify"), ("0s", "not nothing"), ("0s driver mac=$who", "no name 'who'"),
    ("0s driver 'x", "No closing quotation"), ("lab music on", "unknown option of the lab: music"),
    ("0s -> never dance", "expected one of report"), ("0s -> no other dance", "expected one of report, notify, event"),
    ("lab stations anna\n0s station come anna", "station come NAME 0 or 1"),
    ("lab stations anna\n0s station come anna 2", "station come NAME 0 or 1"),
    ("lab stations anna\n0s station leave anna 1", "station leave NAME$"),
    ("lab stations anna\n0s station dance anna", "station and one of come, roam"),
    ("lab stations anna\n0s station", "station and one of come, roam"),
    ("0s station come anna 1", "a line `lab stations anna` is missing"),
    ("0s -> report log_tpye=1", "report has no member 'log_tpye'; it has FCAP, "),
    ("0s -> never notify log_typ=1", "notify has no member 'log_typ'"),
    ("0s -> stations 1 satus=1", "stations has no member 'satus'"), ("0s -> never stations 1 chanel=6", "has no member 'chanel'"),
    ("0s -> bus sta get x=y gives cuont=1", "sta get has no member 'cuont'; it has count, online_list"),
    ("0s -> never bus wsmd station mac=x gives chanel=6", "wsmd station has no member 'chanel'"),
    ("0s -> ended daemon staus=1", "ended has no member 'staus'; it has status"),
    ("0s -> file /tmp/x lnes=3", "file has no member 'lnes'; it has lines, size"),
    ("0s kill dameon", "which program. One of daemon, "), ("0s -> runs", "which program. One of daemon, ")])
def test_a_line_that_cannot_be_read_is_named(text, fault):
    with pytest.raises(ScenarioError, match=fault):
        Scenario.parse(text)


def test_times_add_up_and_names_are_filled_in():
    scenario = Scenario.parse("# A title\n# more\nlet who 02:01\n1m30s driver x mac=$who\n+0.5s -> log $who # remark\n")
    assert scenario.title == "A title"
    assert [(line.at, line.expects, line.words) for line in scenario.lines] == [
        (90, False, ["driver", "x", "mac=02:01"]), (90.5, True, ["log", "02:01"])]


@pytest.mark.parametrize("lines, is_for_any", [
    ("lab stations anna\n0s station come anna 0\n1s kill daemon\n1s start daemon", True),
    ("0s nothing", False),
    ("lab stations anna\nlab driver --tick 0\n0s station come anna 0", False),
    ("lab stations anna\n0s station come anna 0\n0s driver announce", False),
    ("lab stations anna\n0s station come anna 0\n0s stop driver", False)])
def test_a_scenario_that_speaks_of_stations_alone_is_for_any_driver(lines, is_for_any):
    assert Scenario.parse(lines).is_for_any_driver is is_for_any


def test_figures_that_the_daemon_does_not_have_fail_an_expectation_of_them(lab):
    scenario = Scenario.parse("""
        lab driver --tick 0
        lab stations anna
        0s station come anna 0
        +10s -> stations 1 status=1
        +0s driver set mac=$anna rx_bytes=0 tx_bytes=1
        +1s -> figures
    """, "wrong.scn")
    with pytest.raises(Failed, match=r"(?s)wrong.scn:7: .*: not met\n  came: mac=02:00:00:00:c1:01 driver=\(0, 1\)"):
        scenario.play(lab)


@pytest.mark.parametrize("relation, wanted, fits", [("=", "5", True), ("=", "5*", True), ("=", "6", False),
                                                    (">", "4", True), (">", "5", False), ("<", "5.5", True)])
def test_members_are_compared(relation, wanted, fits):
    assert matches({"n": 5}, [("n", relation, wanted)]) is fits
    assert matches({}, [("n", relation, wanted)]) is False


def test_the_documented_scenario_comes_out_as_expected(lab):
    scenario = Scenario.parse(documentation("Scenarios").split("```")[1])
    assert scenario.title == "A client comes and goes."
    scenario.play(lab)


def test_every_deed_and_expectation_is_documented_and_no_other():
    deeds, expectations = documentation("Scenarios").split("| expectation |")
    expectations = expectations.replace("`no other ", "`")

    def verbs(rows):
        return {verb for row in rows.splitlines() if row.startswith("| `")
                for verb in re.findall(r"`(\w+)[^`]*`", row.split("|")[1])}
    assert verbs(deeds) == set(Player.ACTIONS)
    assert verbs(expectations) == set(Player.EXPECTATIONS)


def test_the_documented_program_runs(build_dir, capsys):
    program = documentation("Using it").split("```python\n")[1].split("```")[0]
    exec(compile(program.replace('"build"', repr(str(build_dir))), "docs/lab.md", "exec"), {})
    assert capsys.readouterr().out == "Lobby -48\n{'count': 1}\n-A POSTROUTING -j POSTROUTING-incoming\n"
