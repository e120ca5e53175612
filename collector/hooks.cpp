#include "collector/hooks.h"

#include "collector/json.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>

void hooks::take(const message &one) {
    if (!one.what) return;
    const change_kind kind = one.what->kind;
    if (kind != change_kind::joined && kind != change_kind::roamed && kind != change_kind::left) return;
    for (settle(); running_.size() >= most_at_once; settle())
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    start(*one.what);
}

void hooks::start(const change &what) {
    const stay &now_is = what.now;
    const std::string kind = change_name(what.kind);
    std::vector<std::string> values{
        "PATH=/usr/sbin:/usr/bin:/sbin:/bin",
        "WSM_KIND=" + kind,
        "WSM_AT=" + seconds_text(what.at),
        "WSM_MAC=" + now_is.mac,
        "WSM_NAME=" + names_->of(now_is.mac),
        "WSM_AP=" + now_is.ap,
        "WSM_RADIO=" + std::to_string(now_is.radio),
        "WSM_SSID=" + now_is.ssid,
        "WSM_IP=" + (now_is.addresses.empty() ? std::string() : now_is.addresses.back().ip),
        "WSM_SIGNAL=" + (now_is.signal.count > 0 ? std::to_string(now_is.signal.last) : std::string()),
        "WSM_UP=" + std::to_string(now_is.up.total),
        "WSM_DOWN=" + std::to_string(now_is.down.total)};
    if (what.kind == change_kind::left) {
        values.push_back("WSM_SECONDS=" + std::to_string((now_is.ended - now_is.began) / second));
        values.push_back("WSM_REASON=" + now_is.reason);
        values.push_back("WSM_ENDED_BY=" + now_is.ended_by);
    }
    if (what.kind == change_kind::roamed) {
        values.push_back("WSM_FROM_AP=" + what.from_ap);
        values.push_back("WSM_FROM_RADIO=" + std::to_string(what.from_radio));
    }
    std::vector<char *> environment;
    for (std::string &value : values) environment.push_back(value.data());
    environment.push_back(nullptr);
    std::string program = program_, argument = kind;
    char *const arguments[] = {program.data(), argument.data(), nullptr};

    posix_spawnattr_t how;
    posix_spawnattr_init(&how);
    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&how, &none);
    posix_spawnattr_setsigdefault(&how, &all);
    posix_spawnattr_setpgroup(&how, 0);
    posix_spawnattr_setflags(&how, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, 0, "/dev/null", 0, 0);
    posix_spawn_file_actions_adddup2(&files, 2, 1); // its output must not mix with reports
    pid_t pid = 0;
    const int error = posix_spawn(&pid, program.c_str(), &files, &how, arguments, environment.data());
    posix_spawn_file_actions_destroy(&files);
    posix_spawnattr_destroy(&how);
    if (error == 0)
        running_.push_back({pid, std::chrono::steady_clock::now() + std::chrono::seconds(most_seconds_)});
    else if (failed_++ == 0)
        std::fprintf(stderr, "wsm-collector: exec: %s: %s\n", program_.c_str(), std::strerror(error));
}

void hooks::settle() {
    std::erase_if(running_, [this](const child &one) {
        int status = 0;
        const bool late = std::chrono::steady_clock::now() >= one.due;
        if (late) kill(-one.pid, SIGKILL);
        const pid_t got = waitpid(one.pid, &status, late ? 0 : WNOHANG);
        if (got == 0) return false;
        if (late)
            std::fprintf(stderr, "wsm-collector: exec: %s took too long and was killed\n", program_.c_str());
        else if (status != 0)
            ++failed_;
        return true;
    });
}

bool hooks::finish() {
    for (settle(); !running_.empty(); settle()) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    if (failed_ > 0)
        std::fprintf(stderr, "wsm-collector: exec: %llu times not successful\n",
                     static_cast<unsigned long long>(failed_));
    return true;
}
