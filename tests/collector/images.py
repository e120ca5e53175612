"""Reports for the collector's tests, written out by hand."""

import formats

NOON = 1700000000


image = formats.report_image


def mac(number):
    return f"02:00:00:00:{number >> 8:02x}:{number & 255:02x}"


def told(number, kind, since, after=0, **fields):
    """A report of kind 1 to 4 of the station with this number, `after` seconds after its association."""
    clocks = {"online_ts": since, "oltime": after}
    if kind == 2:
        clocks["offline_ts"] = since + after
    return image(**{"mac": mac(number), "log_type": kind, "ssid": "Lobby", "ifname": "ath0", "rssi": -50, "channel": 6,
                    "ap_mac": "02:54:4b:00:00:01\n", **clocks, **fields})


def visit(number, since, seconds, **fields):
    """A stay: online, an update, and gone."""
    return (told(number, 1, since) + told(number, 3, since, seconds // 2, wifi_up=500, wifi_down=5000, ip="10.0.0.7") +
            told(number, 2, since, seconds, **{"wifi_up": 1000, "wifi_down": 10000, "reason": "OW_STA_DEAUTH_RECV",
                                               "reason_code": 307, **fields}))
