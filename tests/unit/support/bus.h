// bus.h - a real broker and the event loop, both bounded.
#pragma once

#include <functional>

// Starts the broker on the standard path and waits until it accepts connections. Stopped at the end of the
// test.
void start_bus();
void stop_bus();

// Runs the event loop until `done` holds; false when it does not within `bound_ms`.
bool loop_until(const std::function<bool()> &done, int bound_ms = 5000);
