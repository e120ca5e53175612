"""The driver's event, the driver's tables and the collector's report, written out by hand.

The programs have these layouts in headers of their own. Nothing here is taken from them, so that a wrong number there is
found.
"""

import struct

FAMILY = "TK_STA"
CONTROLLER = 16  # generic netlink controller

# field: (offset, struct format) in the event, which is 464 bytes long
EVENT = {
    "assoc": (0, "<I"), "mac": (4, "6s"), "ssid": (10, "130s"), "time_stamp": (140, "<I"), "radio_id": (144, "<i"),
    "ifname": (154, "20s"), "off_reason_code": (176, "<i"), "time_delay": (180, "<i"), "floornoise": (188, "<i"),
    "utilization": (192, "<i"), "maxRate": (196, "<I"), "version": (200, "8s"), "sta_rxrate": (208, "<i"),
    "sta_txrate": (212, "<i"), "sta_rxbyte": (216, "<Q"), "sta_txbyte": (224, "<Q"), "channel": (232, "<i"),
    "is_reassoc": (236, "<b"), "rssi": (237, "<b"), "roam_enable": (238, "<B"), "repeater": (239, "<B"),
    "txper": (240, "<I"), "rxper": (244, "<I"), "supportSTBC": (248, "<B"), "supportSGI": (249, "<B"),
    "maxMCS": (250, "<B"), "maxBW": (251, "<B"), "FCAP": (252, "<B"), "fromDS": (253, "<B"), "toDS": (254, "<B"),
    "cost_assoc_req": (256, "<I"), "cost_auth_req": (260, "<I"), "cost_msg2": (264, "<I"), "cost_msg4": (268, "<I"),
    "onesecrxbyte": (272, "<I"), "onesectxbyte": (276, "<I"), "txBcast": (280, "<Q"), "txMcast": (288, "<Q"),
    "txPkt": (296, "<Q"), "ap_auth_req": (304, "32s"), "ap_assoc_req": (336, "32s"), "key_start": (368, "32s"),
    "key_msg2": (400, "32s"), "key_end": (432, "32s"),
}
EVENT_SIZE = 464

# field: (offset, struct format) in the report, which is 696 bytes long
REPORT = {
    "ssid": (8, "128s"), "ifname": (136, "20s"), "mac": (156, "20s"), "ip": (176, "17s"), "power": (193, "11s"),
    "status": (208, "<H"), "online_ts": (220, "<i"), "offline_ts": (228, "<i"), "oltime": (236, "<i"),
    "flow_rateup": (256, "<i"), "flow_ratedown": (260, "<i"), "wifi_up": (264, "<Q"), "wifi_down": (272, "<Q"),
    "uplink_up": (280, "<Q"), "uplink_down": (288, "<Q"), "log_type": (296, "<H"), "restored": (298, "<B"),
    "no_backup": (299, "<B"), "third_flag": (300, "<B"), "radio_id": (304, "<i"), "reason_code": (308, "<i"),
    "reason": (312, "52s"), "time_delay": (364, "<i"), "pkt_loserate": (368, "<i"), "floornoise": (372, "<i"),
    "utilization": (376, "<i"), "maxRate": (380, "<I"), "version": (384, "8s"), "channel": (392, "<i"),
    "is_reassoc": (396, "<b"), "ap_mac": (397, "23s"), "vlanid": (420, "<i"), "load_uptime": (424, "<i"),
    "roam_enable": (428, "<B"), "repeater_type": (429, "<b"), "rssi": (430, "<b"), "before_ip": (431, "17s"),
    "single_log_up_cnt": (452, "<b"), "wlanid": (456, "<i"), "txper": (460, "<I"), "rxper": (464, "<I"),
    "txPkt": (468, "<I"), "txBcast": (472, "<I"), "txMcast": (476, "<I"), "supportSTBC": (480, "<i"),
    "supportSGI": (484, "<i"), "maxMCS": (488, "<i"), "maxBW": (492, "<i"), "FCAP": (496, "<i"), "fromDS": (500, "<i"),
    "toDS": (504, "<i"), "cost_assoc_req": (508, "<I"), "cost_auth_req": (512, "<I"), "cost_msg2": (516, "<I"),
    "cost_msg4": (520, "<I"), "onesecrxbyte": (524, "<I"), "onesectxbyte": (528, "<I"), "ap_auth_req": (532, "32s"),
    "ap_assoc_req": (564, "32s"), "key_start": (596, "32s"), "key_msg2": (628, "32s"), "key_end": (660, "32s"),
}
REPORT_SIZE = 696
# Memory references and padding: zero in every report.
REPORT_ZERO = [(0, 8), (204, 208), (210, 212), (301, 304), (453, 456), (692, 696)]


def mac_bytes(text):
    return bytes.fromhex(text.replace(":", ""))


def event(**fields):
    """The driver's event; texts are given as str or bytes, the MAC as colon text."""
    data = bytearray(EVENT_SIZE)
    for name, value in fields.items():
        offset, form = EVENT[name]
        if name == "mac":
            value = mac_bytes(value)
        elif isinstance(value, str):
            value = value.encode()
        struct.pack_into(form, data, offset, value)
    return bytes(data)


def attribute(kind, payload):
    """One netlink attribute, padded to four bytes."""
    return struct.pack("=HH", 4 + len(payload), kind) + payload + bytes(-len(payload) % 4)


def message(kind, cmd, attributes, length=None):
    """One generic netlink message; `length` is a wrong length for its header."""
    body = struct.pack("=BBH", cmd, 1, 0) + attributes
    return struct.pack("=IHHII", 16 + len(body) if length is None else length, kind, 0, 0, 0) + body


def event_message(family, **fields):
    return message(family, 2, attribute(1, event(**fields)))


def announcement(identifier, name=FAMILY, cmd=1):
    """The controller's announcement of a family: name first, then identifier."""
    return message(CONTROLLER, cmd,
                   attribute(2, name.encode() + b"\0") + attribute(1, struct.pack("=H", identifier)))


def report_image(**fields):
    """A report with these fields; texts as str or bytes."""
    data = bytearray(REPORT_SIZE)
    for name, value in fields.items():
        offset, form = REPORT[name]
        struct.pack_into(form, data, offset, value.encode() if isinstance(value, str) else value)
    return bytes(data)


def report_fields(image):
    """The report's fields by name; texts end at their first zero byte and stay bytes if they are not ASCII."""
    assert len(image) == REPORT_SIZE
    fields = {}
    for name, (offset, form) in REPORT.items():
        (value,) = struct.unpack_from(form, image, offset)
        if isinstance(value, bytes):
            value = value.split(b"\0")[0].decode("ascii", "backslashreplace")
        fields[name] = value
    return fields
