"""Texts from leases, bus messages, driver events and restored lines never run a command nor stop the daemon."""

A = "02:00:00:00:00:0a"
OWNED = "/tmp/owned"
HOSTILE = [f"; touch {OWNED}", f"$(touch {OWNED})", f"`touch {OWNED}`", f"\n touch {OWNED}\n", f"' ; touch {OWNED} ; '",
           f'" ; touch {OWNED} ; "', f"| touch {OWNED} #", f"&& touch {OWNED}", f"\\$(touch {OWNED})",
           "%s%n%s%n", "*", "~", "\x1b[2J", "\u00e9\u4e2d" * 60, "x" * 5000]


def assert_unharmed(lab):
    """Lets a pass, a poll of the files and a report happen, then checks."""
    lab.bus("call", "sta", "set", {"set_update_log_period": 60})
    assert lab.daemon.running
    assert not (lab.files / "owned").exists()
    made = list(lab.root.glob("o:wn:ed*"))  # in the daemon's folder, by what has no room for a path
    for file in made:
        file.unlink()  # that folder is the machine's own
    assert not made
    assert lab.bus("call", "sta", "get", {"get_all_sta_status": "online"})["count"] == str(len(lab.online()))


def stations_on_line(lab, macs):
    for mac in macs:
        lab.apsim(f"assoc mac={mac} ifname=ath0 radio=0")
    lab.wait(lambda: all(lab.online().get(mac, {}).get("status") == 1 for mac in macs), 15, "the stations on line")


def test_host_names_and_addresses_of_the_lease_file_are_only_texts(open_lab):
    macs = [f"02:00:00:00:00:{number:02x}" for number in range(len(HOSTILE))]
    leases = "".join(f"1700003600 {mac} {text} {text} *\n{text} {A} {text}\n" for mac, text in zip(macs, HOSTILE))
    lab = open_lab(files={"/tmp/dhcp.leases": leases}).start_all()
    stations_on_line(lab, macs)
    assert_unharmed(lab)


def test_members_of_bus_messages_are_only_texts(running_lab):
    stations_on_line(running_lab, [A])
    for text in HOSTILE:
        long = text + " " * 17  # long enough for an address
        for mac, address in ((A, "192.168.10.9"), (A, long), (long, "192.168.10.9"), (long, long)):
            running_lab.bus("send", "ip_change", {"mac": mac, "before_ip": long, "changed_ip": address})
            running_lab.bus("send", "dhcp_client_update", {"mac": mac, "ip": address, "hostName": text})
        running_lab.bus("send", "dev_mode", {"forwardMode": text})
        running_lab.bus("call", "sta", "get", {"get_all_sta_status": text, "get_sta_count": text})
        running_lab.bus("call", "sta", "get", {"get_all_sta_status": "online", "get_sta_mac": text,
                                               "get_wlan_sta_info": text})
        running_lab.bus("call", "sta", "delete", {"mac": text, "radio": 0})
        assert running_lab.daemon.running, text
    running_lab.wait_for_log("call back dev_mode change!!", len(HOSTILE))
    assert_unharmed(running_lab)


def test_restored_lines_are_only_texts(open_lab):
    macs = ["x;:>o:wn:ed:..:..", "$(:>o:wn:ed:..:.)", "`x:>o:wn:ed:..:.`", "';:>o:wn:ed:..:.'", '";:>o:wn:ed:..:."',
            "x\n:>o:wn:ed:..:..", "%s:%n:%s:%n:%s:%n", "..:..:..:..:..:..", "\x01\x02:\x03\x04:\x05\x06:\x07\x08:xx:xx"]
    addresses = [";>/tmp/owned", "$(>/tmp/owned)", "`>/tmp/owned`", "'>/tmp/owned'", "%s%n%s%n", "..", "\x01\x1b[2J",
                 '">/tmp/owned;"', "\n>/tmp/owned\n", '"\n>/tmp/owned;"']
    pairs = [(mac, "10.0.0.1") for mac in macs]
    pairs += [(f"02:00:00:00:01:{number:02x}", address) for number, address in enumerate(addresses)]
    lines = "".join(f"name {mac} {address} 1700000000 1 2 3 ssid 0 0 55 6 0M 0M 1 2 3 4 ath0 0 1 0 0 54M\n"
                    for mac, address in pairs)
    leases = "".join(f"1 {mac} 10.0.0.9 x *\n" for mac in macs)
    lab = open_lab(files={"/tmp/sta_sta.info": lines, "/tmp/dhcp.leases": leases}).start_all()
    stations_on_line(lab, [A])
    assert_unharmed(lab)


def test_texts_of_driver_events_are_only_texts(running_lab, driver):
    for text in HOSTILE:
        data = text.encode()
        texts = dict(ssid=data[:130], ifname=data[:20])
        driver.associate(**texts, version=data[:8], ap_auth_req=data[:32], ap_assoc_req=data[:32])
        running_lab.wait_for_report(log_type=1)
        driver.disassociate(**texts, key_start=data[:32], key_msg2=data[:32], key_end=data[:32])
    driver.associate("02:00:00:00:00:0f")
    running_lab.wait_for_report(mac="02:00:00:00:00:0f")
    assert_unharmed(running_lab)


def test_a_line_feed_in_a_network_name_cannot_forge_a_line_of_the_backup_file(running_lab, driver):
    forged = "x\nname 02:00:00:00:00:ff 10.0.0.1 1700000000 1 2 3 ssid 0 0 55 6 0M 0M 1 2 3 4 ath0 0 1 0 0 54M\n"
    driver.associate(ssid=forged.encode())
    running_lab.wait(lambda: [s["status"] for s in running_lab.online().values()] == [1], 15, "the station on line")
    running_lab.wait(lambda: (running_lab.files / "sta_sta.info").read_text(), 10, "the backup file")
    running_lab.daemon.kill()
    running_lab.start_daemon()
    assert "02:00:00:00:00:ff" not in running_lab.online()


def test_a_line_feed_in_a_foreign_text_cannot_forge_a_line_of_the_log(running_lab, driver):
    driver.associate(ssid=b"x\nWSMD starting..\n")
    running_lab.wait_for_report(log_type=1)
    assert sum(line.endswith("WSMD starting..") for line in running_lab.log_lines()) == 1
