"""The documents show what the programs print, and their commands are tried."""

import pathlib
import re
import shutil
import subprocess
import sys

import formats
import pytest

from wsmlab import examples

ROOT = pathlib.Path(__file__).resolve().parents[2]
EXAMPLES = ROOT / "docs/examples"
MAC = "02:00:00:00:00:01"


def test_every_example_in_the_documents_is_as_the_programs_print_it(lab):
    documented = examples.in_documents()
    assert len(documented) >= 18
    for (path, command, text), printed in zip(documented, examples.produce(lab, documented), strict=True):
        assert printed.strip(), command
        assert examples.shape(text) == examples.shape(printed), f"{path.name}: {command}"


def test_the_tables_of_members_are_those_of_the_schema():
    tables = 0
    for path in examples.DOCS.glob("*.md"):
        text = path.read_text(encoding="utf-8")
        assert examples.member_tables(text) == text, f"{path.name}: write it anew with wsmlab.examples"
        tables += text.count("<!-- members: ")
    assert tables >= 2


def documented_reasons():
    text = (ROOT / "docs/bus-api.md").read_text(encoding="utf-8").split("### Reasons")[1].split("\n## ")[0]
    return [(int(code), name) for code, name in re.findall(r"^\| (\d+) \| (\w+) \|", text, re.MULTILINE)]


def test_the_documented_reasons_are_those_that_the_daemon_gives(running_lab):
    reasons = [*documented_reasons(), (1, "OW_STA_SUCCESS"), (314, "OW_STA_SUCCESS")]
    assert len(reasons) == 56
    for code, _ in reasons:
        running_lab.apsim(f"assoc mac={MAC} ifname=ath0 radio=0")
        running_lab.apsim(f"disassoc mac={MAC} reason={code}")

    def departures():
        return [report for report in running_lab.reports() if report["log_type"] == 2]
    running_lab.wait(lambda: len(departures()) == len(reasons), 30, "a report of each departure")
    assert [(report["reason_code"], report["reason"]) for report in departures()] == reasons


def test_the_consumer_of_reports_says_who_comes_roams_and_leaves(running_lab):
    lab = running_lab
    lab.apsim(f"assoc mac={MAC} ifname=ath0 radio=0 rssi=-48")
    lab.wait_for_report(log_type=1)
    lab.apsim(f"roam mac={MAC} ifname=ath1 radio=1")
    lab.wait_for_report(log_type=4)
    lab.apsim(f"disassoc mac={MAC} reason=307")
    lab.wait_for_report(log_type=2)
    said = lab.run([sys.executable, "-c", (EXAMPLES / "presence.py").read_text(encoding="utf-8")],
                   stdin=lab.collector.out.bytes()).stdout.splitlines()
    texts = [line.split(" ", 1)[1] for line in said]
    assert texts[0] == f"{MAC} came to 'Lobby' on ath0, -48 dBm"
    assert f"{MAC} leaves ath0 for another radio" in texts
    assert re.fullmatch(rf"{MAC} left: OW_STA_DEAUTH_RECV, after \d+ s", texts[-1])


def test_the_consumer_of_reports_has_no_time_for_those_of_a_raw_file(build_dir):
    image = formats.report_image(mac=MAC, status=1, log_type=1, ssid="Lobby", ifname="ath0", rssi=-48)
    report = subprocess.run([build_dir / "bin/wsm-collector", "--json", "-"], input=image, capture_output=True, timeout=60, check=True)
    said = subprocess.run([sys.executable, EXAMPLES / "presence.py"], input=report.stdout, capture_output=True, timeout=60, check=True)
    assert said.stdout.decode() == f"? {MAC} came to 'Lobby' on ath0, -48 dBm\n"


def test_the_consumer_of_notifications_says_who_leaves_and_why(running_lab):
    lab = running_lab
    monitor = lab.start("monitor", ["ubus", "-m", "subscribe", "monitor"])
    lab.wait(lambda: lab.bus("list") and True, 10, "the bus")
    consumer = lab.start("consumer", ["sh", "-c", (EXAMPLES / "departures.sh").read_text(encoding="utf-8")])

    def come_and_go():
        # Before the consumer has subscribed it would miss the notification.
        lab.apsim(f'assoc mac={MAC} ifname=ath0 radio=0 ssid="x\\",\\"mac\\":\\"me"')
        lab.apsim(f"disassoc mac={MAC} reason=308")
        return consumer.lines()
    lines = lab.wait(come_and_go, 20, "a line of the consumer")
    assert lines[0] == f"{MAC} left ath0: OW_STA_DISASSO_RECV"
    monitor.stop()


def transcript(text, command):
    """What a block of lab.md that begins with this command shows as printed."""
    return next(block.split("\n", 1) for block in re.findall(r"```\n\$ (.*?)```", text, re.DOTALL) if block.startswith(command))


def test_the_simulators_commands_in_the_labs_page_are_answered_as_shown(running_lab):
    command, shown = transcript((ROOT / "docs/lab.md").read_text(encoding="utf-8"), "printf 'assoc")
    assert running_lab.run(["sh", "-c", command]).stdout == shown


def test_the_collectors_line_in_the_labs_page_is_as_it_prints_it(lab):
    command, shown = transcript((ROOT / "docs/lab.md").read_text(encoding="utf-8"), "wsm-collector")
    lab.start_ubusd()
    lab.start_apsim()
    collector = lab.start("wsm-collector", ["sh", "-c", command])
    lab.wait(lambda: (lab.files / "sta_server_domain").is_socket(), 10, "the collector's socket")
    lab.start_daemon()
    lab.wait_for_family()
    lab.apsim(f"assoc mac={MAC} ifname=ath0 radio=0 rssi=-48")
    lab.wait(lambda: examples.shape(collector.text()).startswith(examples.shape(shown)), 10, "the line as in the page")


def test_the_calls_of_the_daemons_page_are_answered(running_lab):
    page = (ROOT / "docs/man/wsmd.8").read_text(encoding="utf-8")
    calls = [line.replace(r"\(dq", '"') for line in re.findall(r'^\.BI "(ubus call .*)"$', page, re.MULTILINE)]
    assert len(calls) == 4
    for call in calls:
        assert running_lab.run(["sh", "-c", call], check=False).status == 0, call


def test_the_commands_for_debian_are_those_of_the_page():
    page = (ROOT / "docs/on-your-access-point.md").read_text(encoding="utf-8")
    lines = re.findall(r"^ {6}(\S.*)$", (ROOT / "packaging/debian/README.Debian").read_text(encoding="utf-8"), re.MULTILINE)
    assert len(lines) == 5
    assert [line for line in lines if line not in page and line != "wsm"] == []


def manual_example(page):
    """The commands of a manual page's examples, as one types them."""
    examples = (ROOT / f"docs/man/{page}").read_text(encoding="utf-8").split(".SH EXAMPLES\n")[1]
    text = "".join(re.findall(r"^\.RS\n(.*?)^\.RE$", examples, re.DOTALL | re.MULTILINE))
    return text.replace(r"\(aq", "'").replace(r"\-", "-").replace(r"\e", "\\").splitlines()


def test_the_examples_of_the_simulators_page_make_a_client_come_and_go(running_lab):
    comes, goes = manual_example("apsim.1")
    assert running_lab.run(["sh", "-c", comes]).stdout.startswith("ok ")
    assert running_lab.wait_for_report(mac=MAC, log_type=1)["rssi"] == -48
    assert running_lab.run(["sh", "-c", goes]).stdout.startswith("ok ")
    assert running_lab.wait_for_report(mac=MAC, log_type=2)["reason_code"] == 307


def test_the_example_of_the_collectors_page_tells_who_comes(lab):
    (command,) = manual_example("wsm-collector.1")
    lab.start_ubusd()
    lab.start_apsim()
    consumer = lab.start("consumer", ["sh", "-c", command])
    lab.wait(lambda: (lab.files / "sta_server_domain").is_socket(), 10, "the collector's socket")
    lab.start_daemon()
    lab.wait_for_family()
    lab.apsim(f"assoc mac={MAC} ifname=ath0 radio=0 rssi=-48")
    lab.wait(lambda: consumer.lines() == [f"{MAC}\t-48"], 10, "the line of who came")


@pytest.mark.skipif(not shutil.which("mosquitto", path="/usr/sbin:/usr/bin"), reason="mosquitto is not installed")
def test_the_example_of_the_fleets_page_publishes_an_hour_of_a_small_fleet(lab):
    if not (lab.build_dir / "bin/wsm-fleet-sim").exists():
        pytest.skip("built without wsm-fleet-sim")
    (command,) = manual_example("wsm-fleet-sim.1")
    (lab.files / "mosquitto.conf").write_text("listener 1883 127.0.0.1\nallow_anonymous true\nuser root\n")  # the lab has no other user
    broker = lab.start("mosquitto", ["mosquitto", "-c", "/tmp/mosquitto.conf"])
    lab.wait(lambda: " running" in broker.text(), 10, "the broker")
    count, _ = lab.run(["sh", "-c", command], timeout=120).stdout.split(" ", 1)
    assert int(count) > 5 * 20 * 60


COMMANDS = re.compile(r"^(\$ |(ubus|uci|wsm-[a-z-]+|rabbitmqctl|opkg|apt-get|cmake|cpack|systemctl|python3|\./(demo|test)|bench/\w+) )",
                      re.MULTILINE)
SECTION = re.compile(r"^\.SH (?P<name>[^\n]*)\n(?P<text>.*?)(?=^\.SH |\Z)", re.DOTALL | re.MULTILINE)
FENCE = re.compile(r"(?P<marker><!-- [^\n]* -->\n)?```(?P<language>\w*)\n(?P<text>.*?)```", re.DOTALL)
MARKER = re.compile(r"(?:tried: (?P<tests>\w+(?:, \w+)*)|example: .*|needs (?:a device|a release|a person|a fleet|a quiet machine))")


def check_marker(marker, text):
    """`marker` says which tests try the commands of `text`, or why none does."""
    found = MARKER.fullmatch(marker)
    assert found, f"no test is named for:\n{text}"
    tests = "\n".join(file.read_text(encoding="utf-8") for file in (ROOT / "tests").rglob("*.py"))
    for test in (found["tests"] or "").split(", "):
        assert not test or f"def {test}(" in tests, f"there is no {test}"


@pytest.mark.parametrize("path", sorted((ROOT / "docs/man").iterdir()), ids=lambda path: path.name)
def test_every_example_of_a_manual_page_names_its_test_or_what_it_needs(path):
    for section in SECTION.finditer(path.read_text(encoding="utf-8")):
        if section["name"] == "EXAMPLES" or '.BI "ubus call' in section["text"]:
            first = section["text"].split("\n", 1)[0]
            check_marker(first.removeprefix(r'.\" '), section["text"])


def pages():
    """Every page of this tree, but not of folders in which it is built."""
    folders = [path for path in ROOT.iterdir() if path.is_dir() and not path.name.startswith((".", "build"))]
    return [*sorted(ROOT.glob("*.md")), *sorted(path for folder in folders for path in folder.rglob("*.md"))]


@pytest.mark.parametrize("path", pages(), ids=lambda path: str(path.relative_to(ROOT)))
def test_every_block_of_commands_names_its_test_or_what_it_needs(path):
    for fence in FENCE.finditer(path.read_text(encoding="utf-8")):
        if fence["language"] in ("sh", "bash", "console") or COMMANDS.search(fence["text"]):
            check_marker((fence["marker"] or "").removeprefix("<!-- ").removesuffix(" -->\n"), fence["text"])
