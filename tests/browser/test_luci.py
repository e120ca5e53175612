"""The page "Wireless clients" of LuCI, in a real browser on a stand-in of LuCI. Each test of luci/cases.js is one here."""

import pathlib
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[2]
SUITE = "luci"


def test_wireless_clients(browser, case):
    browser.run(SUITE, case)


def test_the_translations_are_complete_and_in_step_with_the_source():
    subprocess.run([ROOT / "luci/messages", "--check"], check=True)
