// options.h - the collector's options, from the command line and a configuration file.
//
// Format: a file has one setting per line, `name = value`, with the names of the long options; a flag stands alone or with
//         "yes" or "no". "#" begins a comment, empty lines mean nothing. The command line takes precedence.
#pragma once

#include "collector/mqtt_options.h"
#include "collector/printer.h"
#include "collector/sessions.h"
#include "collector/store/store_options.h"
#include "collector/subscribe_options.h"

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

struct options {
    form shape = form::line;
    bool shaped = false; // the form was given
    bool summarise = false;
    bool follow = false;
    unsigned long long count = 0; // 0: no end
    std::string socket = "/tmp/sta_server_domain";
    std::size_t queue = 10000; // messages in front of each output
    session_rules rules;
    store_options store; // without a path: none
    std::string names;   // file
    std::string http;    // address and port of the API; empty: none
    std::string metrics; // of the metrics
    std::size_t metrics_stations = 0;
    std::string token_file;
    std::string web;
    subscribe_options subscribe;
    mqtt_options mqtt;    // without a host: none
    std::string exec;     // program for joined, roamed, left
    std::string hash_mac; // key file
    bool drop_names = false;
    std::string config;
    std::vector<std::string> files;
    std::vector<std::pair<std::string, std::string>> given; // on the command line: name and value
};

// The help text.
std::string usage();

// Reads the command line, and the configuration file that it names. Ends the program on --help and on wrong usage.
options parse_options(int argc, char **argv);

// Reads the configuration file again, with the same command line. Returns an empty text, or what is wrong; `chosen` must not be
// used then.
std::string read_options_again(const options &before, options &chosen);

// Applies one setting. Returns an empty text, or what is wrong with it.
std::string apply_setting(options &chosen, const std::string &name, const std::string &value);

// Applies all lines of a configuration file. Returns an empty text, or the first error with its line number.
std::string apply_text(options &chosen, const std::string &text);
