// files.h - the access point's files, by absolute path. Folders are made as needed.
#pragma once

#include <string>
#include <string_view>

void write_file(const std::string &path, std::string_view text);
std::string read_file(const std::string &path); // empty when there is none
bool file_exists(const std::string &path);

// Modification time in whole seconds.
void set_file_time(const std::string &path, long seconds);

// While it exists no file grows beyond `room` bytes: for writers this is like a full disk.
class full_disk {
public:
    explicit full_disk(unsigned long room = 0);
    ~full_disk();
    full_disk(full_disk &&) = delete;

private:
    unsigned long before;
};

// Text of `count` times `c`.
inline std::string times(std::size_t count, char c) { return std::string(count, c); }
