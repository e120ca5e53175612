#include "record/recorder.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <unistd.h>

namespace {

constexpr std::size_t parts_max = 6;

struct {
    int fd = -1; // -1: no recording
    pid_t owner = 0;
    std::uint64_t size = 0;  // bytes written
    std::uint64_t limit = 0; // bytes
    std::uint64_t last = 0;  // time of the last record
    std::int64_t wall = 0;
    std::int64_t monotonic = 0;
} recording;

std::int64_t clock_us(clockid_t id) {
    timespec now{};
    clock_gettime(id, &now);
    return std::int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
}

// Removes an incomplete record, so that the file ends with a complete one.
void stop(const char *why) {
    (void)!ftruncate(recording.fd, static_cast<off_t>(recording.size));
    close(recording.fd);
    recording.fd = -1;
    dprintf(STDERR_FILENO, "wsm-record: %s: the recording ends, the program goes on\n", why);
}

void put(const iovec *parts, std::size_t count) {
    std::size_t whole = 0;
    for (std::size_t i = 0; i < count; ++i) whole += parts[i].iov_len;
    if (recording.size + whole > recording.limit) {
        stop("the limit is reached");
        return;
    }
    ssize_t written = 0;
    do written = writev(recording.fd, parts, static_cast<int>(count));
    while (written < 0 && errno == EINTR);
    if (written < 0 || static_cast<std::size_t>(written) != whole) {
        // A full disk takes a part of a write; only the next write would give the error.
        const int reason = written < 0 ? errno : ENOSPC;
        stop(reason == ENOSPC ? "no space left" : "the file cannot be written");
        return;
    }
    recording.size += whole;
}

} // namespace

void recorder_begin(int fd, std::uint64_t limit) noexcept {
    recording.owner = getpid();
    recording.limit = limit;
    recording.wall = clock_us(CLOCK_REALTIME);
    recording.monotonic = clock_us(CLOCK_MONOTONIC);
    recording.fd = fd;

    std::uint8_t header[recording_header] = {};
    std::memcpy(header, recording_magic, sizeof(recording_magic));
    wire::put(header + recording_version_offset, recording_version);
    std::memcpy(header + recording_order_offset, &recording_order, sizeof(recording_order));
    wire::put(header + recording_wall_offset, recording.wall);
    wire::put(header + recording_monotonic_offset, recording.monotonic);
    wire::put(header + recording_uptime_offset, clock_us(CLOCK_BOOTTIME));
    const iovec whole = recorder_part(header, sizeof(header));
    put(&whole, 1);
}

bool recorder_runs() noexcept { return recording.fd >= 0 && recording.owner == getpid(); }

std::uint64_t recorder_now() noexcept {
    return static_cast<std::uint64_t>(clock_us(CLOCK_MONOTONIC) - recording.monotonic);
}

std::int64_t recorder_wall_start() noexcept { return recording.wall; }

void recorder_write(record_kind kind, std::uint64_t time, std::initializer_list<iovec> parts) noexcept {
    const int reason = errno;
    if (recorder_runs() && parts.size() <= parts_max) {
        std::uint8_t header[record_header] = {};
        iovec all[1 + parts_max] = {recorder_part(header, sizeof(header))};
        std::copy(parts.begin(), parts.end(), all + 1);
        std::size_t size = 0;
        for (const iovec &part : parts) size += part.iov_len;
        recording.last = std::max(recording.last, time);
        wire::put(header + record_size_offset, static_cast<std::uint32_t>(size));
        wire::put(header + record_kind_offset, static_cast<std::uint16_t>(kind));
        wire::put(header + record_time_offset, recording.last);
        if (size <= record_size_max) put(all, 1 + parts.size());
    }
    errno = reason;
}
