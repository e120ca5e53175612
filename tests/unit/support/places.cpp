#include "support/places.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <pthread.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

// What must stay visible although it may be in a covered place.
const std::vector<std::string> kept = {WSMD_BUILD_DIR, WSMD_GOLDEN_DIR};

[[noreturn]] void give_up(const std::string &what) {
    std::fprintf(stderr, "unit tests need a mount namespace of their own: %s: %s\n", what.c_str(),
                 std::strerror(errno));
    std::exit(EXIT_FAILURE);
}

void write_map(const char *path, const std::string &text) {
    std::ofstream out(path);
    out << text;
    if (!out.flush()) give_up(path);
}

void enter_namespaces() {
    const uid_t uid = geteuid();
    const gid_t gid = getegid();
    if (unshare((uid == 0 ? 0 : CLONE_NEWUSER) | CLONE_NEWNS | CLONE_NEWNET) != 0) give_up("unshare");
    if (uid != 0) {
        write_map("/proc/self/setgroups", "deny");
        write_map("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1");
        write_map("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1");
    }
    if (mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) != 0) give_up("mount /");
}

void cover(const std::string &place, const char *mode = "mode=755") {
    if (mount("unit", place.c_str(), "tmpfs", 0, mode) != 0) give_up("mount " + place);
}

void bind(const std::string &from, const std::string &to) {
    if (mount(from.c_str(), to.c_str(), "none", MS_BIND | MS_REC, nullptr) != 0) give_up("mount " + to);
}

// Covers `place` with a folder of links to what it held, so that names can be added to it.
void cover_with_links(const std::string &place) {
    const std::string below = shelf + place;
    fs::create_directories(below);
    bind(place, below);
    cover(place);
    for (const fs::directory_entry &entry : fs::directory_iterator(below)) {
        const std::string name = entry.path().filename();
        if (place == "/proc" && std::isdigit(static_cast<unsigned char>(name[0]))) continue;
        // A relative link would lead elsewhere from the shelf, so it is copied. Those of /proc are made anew at
        // each look, so they are linked.
        const bool copy = place != "/proc" && entry.is_symlink() && fs::read_symlink(entry).is_relative();
        fs::create_symlink(copy ? fs::read_symlink(entry) : entry.path(), place + "/" + name);
    }
}

// The covered /proc has no folders of processes. Each process makes the link to its own, also a forked child, since its leak
// checker needs it. When a process id is used again its link is there already.
void link_this_process() {
    char name[32];
    char target[64];
    std::snprintf(name, sizeof(name), "/proc/%d", getpid());
    std::snprintf(target, sizeof(target), "%s%s", shelf.c_str(), name);
    (void)!symlink(target, name);
}

bool is_kept(const fs::path &entry) {
    for (const std::string &path : kept)
        if (path == entry.string() || path.starts_with(entry.string() + "/")) return true;
    return false;
}

void empty(const std::string &folder) {
    for (const fs::directory_entry &entry : fs::directory_iterator(folder))
        if (!is_kept(entry.path())) fs::remove_all(entry.path());
}

} // namespace

void enter_places() {
    enter_namespaces();
    std::vector<int> handles;
    for (const std::string &path : kept)
        handles.push_back(open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    cover(shelf);
    for (const char *place : {"/proc", "/etc", "/dev"}) cover_with_links(place);
    link_this_process();
    pthread_atfork(nullptr, nullptr, link_this_process);
    cover("/tmp", "mode=1777");
    cover("/run");
    if (fs::canonical("/var/run") != "/run") bind("/run", "/var/run");
    for (std::size_t i = 0; i < kept.size(); ++i) {
        if (!fs::is_directory(kept[i])) {
            fs::create_directories(kept[i]);
            bind("/proc/self/fd/" + std::to_string(handles[i]), kept[i]);
        }
        close(handles[i]);
    }
    fs::remove("/etc/config"); // the host's, if it has one
    fs::create_directory("/etc/config");
    fs::create_directory("/proc/tk_sys");
}

void empty_places() {
    for (const char *place : {"/tmp", "/run", "/etc/config", "/proc/tk_sys"}) empty(place);
    fs::remove_all("/dev/console");
}
