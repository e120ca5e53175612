"""The collector's page in a real browser. Each test of collector/cases.js is one here."""

SUITE = "collector"


def test_page(browser, case):
    browser.run(SUITE, case)
