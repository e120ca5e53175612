// A minute's messages of 2,048 stations into the spool on disk and out of it again, beside the same bytes written and read by bare
// system calls: one to write a record, one to read it, and one to mark it as arrived. Files are those of the temporary folder.
#include "collector/spool.h"
#include "bench/collector/traffic.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

namespace {

constexpr std::size_t report_size = 1650, state_size = 750; // of the payloads, nearly
constexpr std::size_t read_size = 4096;                     // as the spool reads

std::vector<letter> minute() {
    std::vector<letter> all;
    for (int number = 0; number < stations; ++number) {
        all.push_back({"wsm/report/02:54:4b:00:00:01", std::string(report_size, 'r'), false});
        all.push_back({"wsm/station/" + std::to_string(number), std::string(state_size, 's'), true});
    }
    return all;
}

std::filesystem::path fresh_folder() {
    const auto path = std::filesystem::temp_directory_path() / "wsm-collector-bench.spool";
    std::filesystem::remove_all(path);
    return path;
}

void collector_spool(benchmark::State &state) {
    const std::vector<letter> all = minute();
    const auto folder = fresh_folder();
    {
        spool on_disk({.folder = folder}, [](const std::string &) {});
        letter one;
        for (auto _ : state) {
            for (const letter &each : all) on_disk.push(each);
            while (on_disk.take(one)) on_disk.acknowledged();
        }
        if (on_disk.figures().dropped != 0) state.SkipWithError("dropped");
    }
    std::filesystem::remove_all(folder);
}

void collector_spool_floor(benchmark::State &state) {
    std::vector<std::string> records;
    for (const letter &each : minute()) records.push_back(spool_record(each));
    const auto folder = fresh_folder();
    std::filesystem::create_directories(folder);
    const int fd = open((folder / "floor").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    std::string piece(read_size, '\0');
    const auto done = [](ssize_t bytes) {
        if (bytes <= 0) std::abort();
    };
    for (auto _ : state) {
        if (ftruncate(fd, 0) != 0) std::abort();
        std::size_t at = spool_head_size;
        for (const std::string &each : records) {
            done(pwrite(fd, each.data(), each.size(), static_cast<off_t>(at)));
            at += each.size();
        }
        at = spool_head_size;
        for (const std::string &each : records) {
            done(pread(fd, piece.data(), piece.size(), static_cast<off_t>(at)));
            at += each.size();
            done(pwrite(fd, &at, sizeof(at), 8));
        }
    }
    close(fd);
    std::filesystem::remove_all(folder);
}

BENCHMARK(collector_spool)->Unit(benchmark::kMillisecond);
BENCHMARK(collector_spool_floor)->Unit(benchmark::kMillisecond);

} // namespace
