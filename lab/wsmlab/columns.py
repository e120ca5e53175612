"""The columns of the live view: which fit a terminal's width, and their content."""

import ipaddress

from .cells import cells, clean, duration, fit, signal_bar, sparkline
from .happenings import amount

GAP = 1     # cells between columns
TREND = 60  # signals that are remembered for each station
_STATES = {1: "online", 2: "waiting"}


class Column:
    """`text`: of a Station and the column's width; `order`: what it is sorted by, None when it is not; `least` and
    `most`: cells, with room for the sort mark after the heading."""

    def __init__(self, heading, least, text, order=None, *, most=None, right=False, style=None):
        assert order is None or least > cells(heading)
        self.heading, self.least, self.most = heading, least, most or least
        self.text, self.order, self.right, self._style = text, order, right, style

    def cell(self, station, width):
        return fit(self.text(station, width), width, right=self.right)

    def style(self, station):
        return self._style and self._style(station)


def _number(name):
    return lambda station: station.number(name)


def _megabits(name):
    return lambda station, _: f"{station.number(name) // 1024}"  # the daemon counts kbit/s


def _bytes(name):
    return lambda station, _: amount(station.number(name))


def _signal(station, _):
    return f"{signal_bar(station.dbm)} {station.dbm:4}" if station.dbm is not None else ""


def _signal_style(station):
    if station.dbm is None:
        return None
    return "good" if station.dbm >= -60 else "fair" if station.dbm >= -75 else "poor"


def _radio(station, _):
    return f"{station.number('radio_id')} ch{station.number('channel')}"


def _ip(station):
    try:
        return 0, int(ipaddress.ip_address(station.record.get("ip", "")))
    except ValueError:
        return 1, 0  # without an address: after the others


def _text_order(name):
    return lambda station: (station.text(name) in ("", "-"), station.text(name).casefold())


def _state(station, _):
    return "left" if station.left else _STATES.get(station.record.get("status"), "?")


# In their order on the screen.
COLUMNS = {
    "mac": Column("MAC", 17, lambda station, _: clean(station.mac), lambda station: station.mac),
    "name": Column("name", 12, lambda station, _: station.text("name"), _text_order("name"), most=24),
    "ip": Column("IP", 15, lambda station, _: station.text("ip"), _ip),
    "ssid": Column("SSID", 10, lambda station, _: station.text("ssid"), _text_order("ssid"), most=32),
    "vlan": Column("VLAN", 5, lambda station, _: f"{station.number('vlanid')}", _number("vlanid"), right=True),
    "radio": Column("radio", 7, _radio, lambda station: (station.number("radio_id"), station.number("channel"))),
    "signal": Column("signal dBm", 11, _signal, lambda station: -200 if station.dbm is None else station.dbm,
                     style=_signal_style),
    "trend": Column("trend", 6, lambda station, width: sparkline(station.signals, width), most=TREND,
                    style=_signal_style),
    "rate_up": Column("Mb/s up", 8, _megabits("flowup_rate_cnt"), _number("flowup_rate_cnt"), right=True),
    "rate": Column("Mb/s", 5, _megabits("flowdown_rate_cnt"), _number("flowdown_rate_cnt"), right=True),
    "up": Column("up", 8, _bytes("wifi_up_cnt"), _number("wifi_up_cnt"), right=True),
    "down": Column("down", 8, _bytes("wifi_down_cnt"), _number("wifi_down_cnt"), right=True),
    "time": Column("time", 7, lambda station, _: duration(station.number("oltime")), _number("oltime"), right=True),
    "state": Column("state", 7, _state, lambda station: _state(station, 0)),
}
# The order in which columns get space, and then extra space.
_PRIORITY = ("mac", "name", "signal", "ip", "state", "time", "rate", "radio", "trend", "ssid", "down", "up", "rate_up",
             "vlan")
_GROWING = (("trend", 12), ("name", 16), ("ssid", 16), ("trend", 30), ("name", 24), ("ssid", 32), ("trend", TREND))


def columns_for(width):
    """Names and widths of the columns that this width has room for, in their order on the screen."""
    widths, left = {}, width + GAP
    for name in _PRIORITY:
        if COLUMNS[name].least + GAP > left:
            break
        widths[name] = COLUMNS[name].least
        left -= COLUMNS[name].least + GAP
    for name, most in _GROWING:
        if name in widths:
            more = max(0, min(left, most - widths[name]))
            widths[name] += more
            left -= more
    return {name: widths[name] for name in COLUMNS if name in widths}


def heading_line(widths, sorted_by, reverse):
    """One (style, text) pair for each column; an arrow is on the one that the stations are sorted by."""
    line = []
    for name, width in widths.items():
        column, arrow = COLUMNS[name], ""
        if name == sorted_by:
            arrow = "▼" if reverse else "▲"
        heading = column.heading[:width - cells(arrow)] + arrow
        line.append(("sorted" if arrow else "heading", fit(heading, width, right=column.right)))
        line.append(("heading", " " * GAP))
    return line[:-1]


def station_line(station, widths, base=None):
    """One (style, text) pair for each column of a station. With `base` the whole line has that style."""
    line = []
    for name, width in widths.items():
        line.append((base or COLUMNS[name].style(station), COLUMNS[name].cell(station, width)))
        line.append((base, " " * GAP))
    return line[:-1]
