// driver.h - stands in for the request library of the wireless driver: records the requests, and answers what
// the test says.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

struct driver_request {
    int cmd;
    int size; // bytes
    std::string ifname;
    int arg;
    std::vector<std::uint8_t> bytes; // as they were before the answer
};

const std::vector<driver_request> &driver_requests();

// Sets the driver's function: it may overwrite the request's bytes with its answer; 0 is success. Without it all
// requests are refused (-1).
using driver_function = std::function<int(const driver_request &request, std::span<std::uint8_t> answer)>;
void set_driver(driver_function driver);

void forget_driver(); // requests and answers
