// bench_house.h - an access point for benchmarks: its own files, a driver inside the process, a collector
// in another process.
//
// The driver answers from ready tables, the collector is a child process that receives every report and discards
// it, so that only the daemon is measured. Its log library is the real one, at its default threshold.
#pragma once

#include <benchmark/benchmark.h>
#include <cstdint>
#include <string>
#include <vector>

// Enters the namespaces, writes the lab's configuration, starts the collector. To be called once, before the first
// benchmark.
void open_bench_house();

// Empties the table and fills it with `count` stations on two radios, all online, all listed by the driver.
void populate(int count);

// Asks the driver for the number and the table of both radios' stations, into memory that is kept: what any program must do whose
// answer has the figures of this moment.
void ask_driver();

// The size of the driver's ready tables on the heap.
std::size_t driver_list_bytes();

std::string read_whole(const std::string &path);
void write_whole(const std::string &path, const std::string &bytes);

// One report as the daemon sends it, from ready bytes: socket, unlink, bind, connect, write, close.
void send_ready_report(const std::uint8_t *image);

// For benchmarks with growing numbers of stations: the numbers, and a figure for each station.
void growing_sizes(benchmark::internal::Benchmark *benchmark);
void report_per_station(benchmark::State &state);
