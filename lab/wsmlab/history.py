"""A week of reports at once, as the access points of a house would have sent them, for a collector's store.

The stations are those of the simulator's population, and some more; the access point of the lab is one of three.
"""

import random
import struct

PERIOD = 300  # seconds between two reports of a station
ACCESS_POINTS = ("02:54:4b:00:00:01", "02:54:4b:00:00:02", "02:54:4b:00:00:03")
LEAST = 30  # stations
NAMES = ("anna ben chiara dario elif farid greta hugo ines jonas kira luca mila nils olga pavel rosa samir tess ugo vera wim yara "
         "zoe").split()
THINGS = ("phone", "laptop", "tablet", "watch", "tv")

ONLINE, OFFLINE, UPDATE, ROAMED = 1, 2, 3, 4
# Code, name, and how often among ten.
REASONS = (((307, "OW_STA_DEAUTH_RECV"), 4), ((308, "OW_STA_DISASSOC_RECV"), 3), ((300, "OW_STA_TIMEOUT"), 3))

# docs/formats.md
_SIZE = 696
_FIELDS = {
    "ssid": (8, "128s"), "ifname": (136, "20s"), "mac": (156, "20s"), "ip": (176, "17s"), "online_ts": (220, "<i"),
    "offline_ts": (228, "<i"), "oltime": (236, "<i"), "flow_rateup": (256, "<i"), "flow_ratedown": (260, "<i"),
    "wifi_up": (264, "<Q"), "wifi_down": (272, "<Q"), "log_type": (296, "<H"), "radio_id": (304, "<i"),
    "reason_code": (308, "<i"), "reason": (312, "52s"), "floornoise": (372, "<i"), "utilization": (376, "<i"),
    "maxRate": (380, "<I"), "version": (384, "8s"), "channel": (392, "<i"), "ap_mac": (397, "23s"), "rssi": (430, "<b"),
}


def image(**fields):
    """A report as the daemon sends it."""
    data = bytearray(_SIZE)
    for name, value in fields.items():
        offset, form = _FIELDS[name]
        struct.pack_into(form, data, offset, value.encode() if isinstance(value, str) else value)
    return bytes(data)


def mac_of(number):
    return f"02:60:00:00:{number >> 8:02x}:{number & 255:02x}"


def name_of(number):
    """A name like those of the population's clients."""
    name = f"{NAMES[number % len(NAMES)]}-{THINGS[number // len(NAMES) % len(THINGS)]}"
    later = number // (len(NAMES) * len(THINGS))
    return f"{name}{later + 1}" if later else name


def _hours_of_presence(number, chance):
    """Stays that begin on one day: hours of begin and end. They depend on the kind of station."""
    if number % 10 == 9:  # one that cannot stay
        hour = chance.uniform(7, 9)
        while hour < 21:
            yield hour, hour + chance.uniform(0.02, 0.2)
            hour += chance.uniform(0.4, 1.4)
    elif number % 7 == 6:  # never carried away
        yield chance.uniform(0.1, 3), 23.9
    elif number % 2:  # comes to work
        first = chance.uniform(7.2, 9.5)
        noon = chance.uniform(11.8, 12.4)
        yield first, noon
        yield noon + chance.uniform(0.5, 1), chance.uniform(16, 18.5)
    else:  # lives here
        yield chance.uniform(16.5, 20), 24 + chance.uniform(6.5, 9)


class _Stay:
    """One stay, as reports of its access points."""

    def __init__(self, number, begin, end, chance):
        self.number, self.begin, self.end, self.chance = number, int(begin), int(end), chance
        self.place = (ACCESS_POINTS[number % 3], number % 2)
        self.association = self.begin
        self.signal = chance.uniform(-72, -44)
        self.up = self.down = 0
        self.heavy = chance.choice((1, 1, 4, 20))

    def _report(self, at, kind, **more):
        ap, radio = self.place
        busy = 0.3 + 0.7 * (8 < at % 86400 / 3600 < 20)
        return at, image(
            mac=mac_of(self.number), log_type=kind, ssid="Lobby Guest" if self.number % 5 == 4 else "Lobby", ifname=f"ath{radio}",
            ip=f"10.60.{self.number // 250}.{self.number % 250 + 2}", online_ts=self.association, oltime=at - self.association,
            rssi=round(self.signal), radio_id=radio, channel=36 if radio else 6, ap_mac=ap + "\n", version="11ax" if radio else "11n",
            maxRate=1200 if radio else 300, floornoise=round(-94 + 3 * busy * self.chance.random()),
            utilization=round(busy * (25 if radio else 55) * self.chance.uniform(0.6, 1.4)),
            flow_rateup=1024 * self.chance.randrange(1, 20 * self.heavy), flow_ratedown=1024 * self.chance.randrange(2, 40 * self.heavy),
            wifi_up=self.up, wifi_down=self.down, **more)

    def reports(self, leaves=True):
        yield self._report(self.begin, ONLINE)
        at = self.begin + PERIOD
        while at < self.end:
            self.signal = min(-38.0, max(-86.0, self.signal + self.chance.gauss(0, 2.5)))
            self.up += self.chance.randrange(200_000 * self.heavy)
            self.down += self.chance.randrange(2_000_000 * self.heavy)
            if self.chance.random() < 0.02:
                yield self._report(at, ROAMED)
                self.place = (self.chance.choice([ap for ap in ACCESS_POINTS if ap != self.place[0]]), self.chance.randrange(2))
                self.association, self.up, self.down = at + 1, 0, 0
                self.signal = self.chance.uniform(-68, -46)
                yield self._report(at + 1, ONLINE)
            else:
                yield self._report(at, UPDATE)
            at += PERIOD
        if not leaves:
            return
        code, reason = self.chance.choices([what for what, _ in REASONS], [weight for _, weight in REASONS])[0]
        yield self._report(self.end, OFFLINE, offline_ts=self.end, reason_code=code, reason=reason)


def reports(days, until, stations, seed=1, leave=True):
    """The images of `days` days up to `until`, seconds since 1970, in the order of their times. All stations have left at the end,
    unless `leave` is false: then open stays stay open."""
    chance = random.Random(seed)
    begin = until - days * 86400
    told = []
    for number in range(1, max(stations, LEAST) + 1):
        for midnight in range(begin // 86400 * 86400 - 86400, until, 86400):
            for first, last in _hours_of_presence(number, chance):
                start, end = max(begin, midnight + first * 3600), min(until, midnight + last * 3600)
                if end - start >= 30 and chance.random() < 0.93:
                    told += _Stay(number, start, end, chance).reports(leave or end < until)
    told.sort(key=lambda one: one[0])
    return [image for _, image in told]
