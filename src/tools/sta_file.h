// sta_file.h - guards for C resources, so that no function needs a clean-up label.
#pragma once

#include <cstdio>
#include <memory>

inline void sta_close_file(std::FILE *file) noexcept {
    (void)std::fclose(file);
} // writers flush and check first

struct sta_file_closer {
    void operator()(std::FILE *file) const noexcept { sta_close_file(file); }
};
using sta_file = std::unique_ptr<std::FILE, sta_file_closer>;
