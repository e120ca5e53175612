// iptables.h - the daemon's iptables chains: rules that only return; they are there for their packet and byte
// counters.
//
// Owns:   the mangle chains PREROUTING-outgoing and POSTROUTING-incoming. The nat chain prerouting_lan
//         belongs to the system firewall: the daemon adds its rules, and flushes the whole chain at the end.
// Source: "iptables -nvxL" with either back end (legacy, nf_tables); column 2 has the byte counts.
// Logs:   level 7, every command with a status other than 0.   Blocks: until iptables gets its lock ("-w").
// Values: addresses pass sta_is_valid_ipaddr, MACs sta_mac_is_plain, before they reach a command.
#pragma once

#include <cstdint>

extern "C" {

// Runs "iptables <arguments> -w" (cut at 255 characters) and returns its exit status.
int sta_fw_cmd(const char *format, ...) __attribute__((format(printf, 1, 2)));

// Removes leftovers of an earlier run, then makes the two chains and hooks them. Returns 0, or the first failing
// status (what was made before it stays).
int sta_fw_init(void);

// Unhooks, flushes and deletes the two chains and flushes prerouting_lan. Returns the status of the last command.
int sta_fw_clean_all(void);

// Adds (`add` non-zero; nothing when both mangle rules are there) or deletes the three rules of one host. Returns 0,
// -1 for a refused address or MAC, or the first failing status: later commands are not run, and earlier ones
// are not undone.
int sta_fw_flow_host(const char *ip, const char *mac, std::uint8_t add);

// 1 when both mangle rules of the host are listed, else 0. The nat rule is not checked.
int sta_fw_flow_host_exist(const char *ip, const char *mac);

// Bytes counted for one address: the first rule listed. 0 for a refused address or when there is no rule.
std::uint64_t sta_fw_host_nat_bytes(const char *ip);
std::uint64_t sta_fw_host_up_bytes(const char *ip);
std::uint64_t sta_fw_host_down_bytes(const char *ip);

// KiB counted by the hook rules, rounded down.
std::uint64_t sta_fw_total_up_kbytes(void);
std::uint64_t sta_fw_total_down_kbytes(void);
}
