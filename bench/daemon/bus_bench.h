// bus_bench.h - calls through a real broker, compared with a bare server that answers with the same bytes, built once.
//
// Processes: the broker, the daemon's bus side with its table, the bare server, and the caller. Measured are the time of a
// call and the processor time of the answering process. All processes end with the caller.
#pragma once

#include "base/cxx/ubox.h"

#include <benchmark/benchmark.h>
#include <cstdint>
#include <functional>
#include <sys/types.h>

// Starts the broker; `question` is the JSON of the arguments of each call. After open_bench_house().
void open_bus(const char *question);
void ask(const char *question); // from now on

// Runs `work` in another process, with its own loop.
pid_t start_beside(const std::function<void()> &work);

// Ends such a process; `name` is its object.
void end_beside(pid_t process, const char *name);

// Waits for an object; returns its number.
std::uint32_t wait_for_object(const char *name);

// Asks once, and keeps the answer for the bare server. True, or the program ends.
bool keep_answer(std::uint32_t id, const char *method);

// Calls again and again. Counters: bytes of an answer, processor time of the server in microseconds.
void call(benchmark::State &state, std::uint32_t id, const char *method, pid_t server);

// The same with the bare server, which answers with the last kept answer.
void call_bare_server(benchmark::State &state, const char *method);

// The same with a server that, after `prepare`, does `work` for each call and then puts the kept answer together anew, from the
// ready bytes of each entry of its lists.
void call_working_server(benchmark::State &state, const char *method, const std::function<void()> &prepare,
                         void (*work)());

// Puts the content of `answer` into `buf`, which has been reset, member by member; of an array entry by entry.
void put_together(blob_buf &buf, const blob_attr *answer);
