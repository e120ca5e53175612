// log.h - the log library as a recorder. Line numbers are not compared.
//
// It changes errno with every record, as a device's own library may.
#pragma once

#include <gtest/gtest.h>
#include <string>
#include <vector>

struct ubus_object;

struct log_record {
    int module;
    int level; // -1: a plain line of the log file
    std::string text;
};
inline constexpr int log_level_file = -1;

const std::vector<log_record> &log_records();
void forget_log();
void keep_log(std::vector<log_record> records); // in place of what was recorded

// One text a record, in order, to compare whole sequences: "FUNCTION: text", "ERROR in WORD: text" or "file:
// text".
std::vector<std::string> log_lines();
// The same, of one function only, without its name.
std::vector<std::string> lines_of(const std::string &function);

// Level 7 in the name of `function`; level 3 in the name of `word`; a plain line of the file.
testing::AssertionResult logged(const std::string &function, const std::string &text);
testing::AssertionResult logged_error(const std::string &word, const std::string &text);
testing::AssertionResult filed(const std::string &text);

// What the program told the library at start.
struct log_start {
    std::string program, file;
    int limit = 0;
    std::vector<std::string> modules;
};
const log_start &log_started();

// Number that the library gives the next module; the object that it publishes (null at first).
void set_next_module(int number);
void set_log_object(ubus_object *object);
