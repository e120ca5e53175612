"""The test as the driver: it sends the daemon netlink messages of its own making."""

from formats import announcement, event_message

FAMILY_ID = 2001  # the kernel gives its own families the numbers 16 to 1023
MAC = "02:00:5e:10:00:ab"

ASSOCIATION = dict(
    assoc=1, mac=MAC, ssid="Lobby", time_stamp=1700000000, radio_id=0, ifname="ath0", off_reason_code=309, time_delay=7,
    floornoise=-93, utilization=128, maxRate=866, version="1.2.3.4", sta_rxrate=100, sta_txrate=200, sta_rxbyte=5,
    sta_txbyte=6, channel=36, is_reassoc=1, rssi=-40, roam_enable=1, repeater=0, txper=11, rxper=12, supportSTBC=1,
    supportSGI=255, maxMCS=9, maxBW=80, FCAP=3, fromDS=1, toDS=2, cost_assoc_req=21, cost_auth_req=22, cost_msg2=23,
    cost_msg4=24, onesecrxbyte=25, onesectxbyte=26, txBcast=31, txMcast=32, txPkt=33, ap_auth_req="auth",
    ap_assoc_req="assoc", key_start="start", key_msg2="msg2", key_end="end")


class Driver:
    """Announces the family under FAMILY_ID to a running daemon, and sends the messages that the test wants."""

    def __init__(self, lab):
        self.lab = lab
        before = lab.logged("Creat a new g_sta.")
        self.send(announcement(FAMILY_ID))
        lab.wait_for_log("Creat a new g_sta.", before + 1)

    def send(self, datagram):
        self.lab.apsim(f"raw hex={datagram.hex()}")

    def associate(self, mac=MAC, **fields):
        self.send(event_message(FAMILY_ID, **{**ASSOCIATION, "mac": mac, **fields}))

    def disassociate(self, mac=MAC, **fields):
        self.associate(mac, **{"assoc": 0, **fields})
