#include "support/commands.h"

#include "support/files.h"
#include "support/places.h"

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <sys/stat.h>

namespace {
const std::string folder = shelf + "/commands";
const std::string record = shelf + "/calls";
} // namespace

void write_command(const std::string &name, const std::string &script) {
    const std::string path = folder + "/" + name;
    write_file(path, "#!/bin/sh\nprintf '%s\\n' \"" + name + " $*\" >> " + record + "\n" + script + "\n");
    chmod(path.c_str(), 0755);
}

std::vector<std::string> calls() {
    std::vector<std::string> lines;
    std::istringstream text(read_file(record));
    for (std::string line; std::getline(text, line);) lines.push_back(line);
    return lines;
}

void forget_calls() {
    std::filesystem::remove_all(folder);
    std::filesystem::remove(record);
}

void set_search_path() {
    setenv("PATH", (folder + ":" WSMD_BUILD_DIR "/emulated:" WSMD_BUILD_DIR "/bin:/usr/bin:/bin").c_str(), 1);
}
