// layout.h - the file that wsm-record writes: everything that a daemon receives, with times.
//
// A header, then records, each with a header of its own; little-endian, nothing between them. The last record may be
// incomplete, since the writer can end at any moment. Shared by the recorder, which runs inside the daemon, and all
// readers. docs/formats.md describes it.
#pragma once

#include "protocol/wire.h"

#include <cstdint>

// File header
inline constexpr std::uint8_t recording_magic[8] = {'w', 's', 'm', '-', 'r', 'e', 'c', '\n'};
inline constexpr std::uint32_t recording_version = 1;
inline constexpr std::size_t recording_version_offset = 8;    // u32
inline constexpr std::size_t recording_order_offset = 12;     // u32 0x01020304 as the device stores numbers
inline constexpr std::size_t recording_wall_offset = 16;      // i64: wall clock at the start, µs since 1970
inline constexpr std::size_t recording_monotonic_offset = 24; // i64: CLOCK_MONOTONIC at the start, µs
inline constexpr std::size_t recording_uptime_offset = 32;    // i64: CLOCK_BOOTTIME at the start, µs
inline constexpr std::size_t recording_header = 40;

inline constexpr std::uint32_t recording_order = 0x01020304; // netlink messages are in this order as well

// Record header
inline constexpr std::size_t record_size_offset = 0; // u32: bytes after this header
inline constexpr std::size_t record_kind_offset = 4; // u16
inline constexpr std::size_t record_time_offset = 8; // u64: µs since the start, never before the record above
inline constexpr std::size_t record_header = 16;

inline constexpr std::uint32_t record_size_max = 40u << 20; // above any that is written
inline constexpr std::uint64_t record_time_max = 10ull * 366 * 24 * 3600 * 1000000; // ten years

enum record_kind : std::uint16_t {
    record_message = 1,       // the bytes that recv() returned from the netlink socket
    record_receive_error = 2, // or its error: i32, an errno
    record_request = 3,       // a driver request and its answer: request_*
    record_file = 4,          // a file that the daemon reads, at the start and when it has changed: file_*
    record_event = 5,         // an event on the bus: bus_*
    record_notification = 6,  // a notification that was subscribed to: bus_*
    record_call = 7,          // a call of one of the daemon's methods: bus_*
    record_end = 8,           // the daemon has exited; empty
};

// Driver request. Bytes of request and answer are kept up to the last that is not zero.
inline constexpr std::size_t request_cmd_offset = 0;    // i32
inline constexpr std::size_t request_arg_offset = 4;    // i32
inline constexpr std::size_t request_result_offset = 8; // i32
inline constexpr std::size_t request_took_offset = 12;  // u32: µs until the answer
inline constexpr std::size_t request_size_offset = 16;  // u32: the buffer's bytes
inline constexpr std::size_t request_asked_offset = 20; // u32: bytes of the request that are kept
inline constexpr std::size_t request_ifname_offset = 24;
inline constexpr std::size_t request_ifname_size = 36; // text
inline constexpr std::size_t request_header = 60;      // then the request, then the answer
inline constexpr std::uint32_t request_size_max = 16u << 20;

// File
inline constexpr std::size_t file_number_offset = 0; // u16: recorded_file
inline constexpr std::size_t file_state_offset = 2;  // u16: file_state
inline constexpr std::size_t file_header = 4;        // then the content
inline constexpr std::size_t file_size_max = 1u << 20;

enum file_state : std::uint16_t { file_absent = 0, file_whole = 1, file_cut = 2 };

enum recorded_file : std::uint16_t {
    file_leases = 1,
    file_backup = 2,
    file_capability = 3,
    file_sys_mac = 4,
    file_wireless = 5,
    file_system = 6,
    file_sysinfo = 7,
    file_wifiinfo = 8,
};

struct recorded_place {
    recorded_file number;
    const char *path;
    bool is_uci;   // recorded without options that the daemon does not read
    bool at_start; // read at the start only: later changes are made by the daemon, or do not matter to it
};
// In the order of their numbers, from 1.
inline constexpr recorded_place recorded_places[] = {
    {file_leases, "/tmp/dhcp.leases", false, false},
    {file_backup, "/tmp/sta_sta.info", false, true},
    {file_capability, "/tmp/tk_device/tk_device.json", false, true},
    {file_sys_mac, "/proc/tk_sys/sys_mac", false, true},
    {file_wireless, "/etc/config/wireless", true, false},
    {file_system, "/etc/config/system", true, false},
    {file_sysinfo, "/etc/config/sysinfo", true, false},
    {file_wifiinfo, "/etc/config/wifiinfo", true, false},
};

// Message of the bus
inline constexpr std::size_t bus_name_size_offset = 0; // u16
inline constexpr std::size_t bus_header = 2; // then the name, then the message with its header, or nothing
