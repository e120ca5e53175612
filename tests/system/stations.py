"""Helpers with which tests of the daemon make stations and look at them."""

A, B, C = "02:00:00:00:00:0a", "02:00:00:00:00:0b", "02:00:00:00:00:0c"


def write_leases(lab, *entries):
    """As the DHCP server does: the whole file at once."""
    new = lab.files / "dhcp.leases.new"
    new.write_text("".join(f"1700003600 {mac} {address} {name} *\n" for mac, address, name in entries))
    new.replace(lab.files / "dhcp.leases")


def associate(lab, mac, radio=0, **fields):
    extra = "".join(f' {name}="{value}"' for name, value in fields.items())
    lab.apsim(f"assoc mac={mac} ifname=ath{radio} radio={radio}{extra}")
    lab.wait_for_report(mac=mac, log_type=1)


def wait_online(lab, *macs):
    lab.wait(lambda: all(lab.online().get(mac, {}).get("status") == 1 for mac in macs), 15, f"{macs} on line")
    return lab.online()


def backup_lines(lab):
    return (lab.files / "sta_sta.info").read_text().splitlines()
