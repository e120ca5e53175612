// commands.h - programs that the daemon runs. Found first: the test's own scripts; then the build's (the real
// uci, the broker); then the system's. There is no iptables unless the test writes one.
#pragma once

#include <string>
#include <vector>

// A program `name` that appends its command line to calls() and then runs `script` (for /bin/sh).
void write_command(const std::string &name, const std::string &script);

// Command lines of all written programs in order: "iptables -t mangle -N X -w".
std::vector<std::string> calls();
void forget_calls(); // and the programs

void set_search_path();
