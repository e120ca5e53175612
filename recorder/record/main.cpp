// wsm-record - starts the daemon so that everything it receives is written to a file, and shows such files.
//
// The recording is made by the library that this program preloads into the daemon; the daemon replaces this program
// and has its process number, so that signals and the exit status need not be passed on.
#include "record/recording.h"
#include "record/show.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <getopt.h>
#include <sys/resource.h>
#include <unistd.h>

extern "C" void wsm_recorder(void); // a function of the library, used to find its file

namespace {

constexpr unsigned long long limit_default = 16; // MiB
constexpr unsigned long long limit_max = 1 << 20;

constexpr const char *usage =
    "usage: wsm-record --output FILE [--limit MIB] [--] PROGRAM [ARGUMENT...]\n"
    "       wsm-record --show FILE\n"
    "Runs the daemon and writes down all that it receives, for a replay in the lab.\n"
    "FILE then holds clients' MACs, names and addresses.\n\n"
    "  --output FILE   the recording; must not be there yet\n"
    "  --limit MIB     ends the recording, not the daemon, at this size (16)\n"
    "  --show FILE     print a line for each record instead, - for the standard input\n"
    "  --version\n"
    "  --help\n\n"
    "Exit status: the program's. Without one: 0 the file was shown, 1 the program could\n"
    "not be started or the file not be read, 2 wrong usage.\n";

struct options {
    const char *output = nullptr;
    const char *show = nullptr;
    unsigned long long limit = limit_default;
};

[[noreturn]] void wrong_usage(const char *what) {
    std::fprintf(stderr, "wsm-record: %s\n%s", what, usage);
    std::exit(2);
}

options parse(int argc, char **argv) {
    enum { output = 1, limit, show, version, help };
    constexpr option known[] = {
        {"output", required_argument, nullptr, output}, {"limit", required_argument, nullptr, limit},
        {"show", required_argument, nullptr, show},     {"version", no_argument, nullptr, version},
        {"help", no_argument, nullptr, help},           {nullptr, 0, nullptr, 0},
    };
    options chosen;
    for (int which = 0; (which = getopt_long(argc, argv, "+", known, nullptr)) != -1;) {
        switch (which) {
        case output: chosen.output = optarg; break;
        case show: chosen.show = optarg; break;
        case limit: {
            const char *end = optarg + std::strlen(optarg);
            const auto [rest, error] = std::from_chars(optarg, end, chosen.limit);
            if (error != std::errc() || rest != end || chosen.limit == 0 || chosen.limit > limit_max)
                wrong_usage("--limit: whole MiB, 1 to 1048576");
            break;
        }
        case version: std::puts("wsm-record " WSMD_VERSION); std::exit(0);
        case help: std::fputs(usage, stdout); std::exit(0);
        default: wrong_usage("unknown option");
        }
    }
    if (!chosen.output == !chosen.show) wrong_usage("one of --output and --show");
    if (chosen.show && optind < argc) wrong_usage("--show takes one file");
    if (chosen.output && optind == argc) wrong_usage("which program?");
    return chosen;
}

int failed(const std::string &why) {
    std::fprintf(stderr, "wsm-record: %s\n", why.c_str());
    return 1;
}

int show(const char *path) {
    std::vector<std::uint8_t> content;
    if (const std::string why = recording_load(path, content); !why.empty()) return failed(why);
    recording whole;
    if (const std::string why = recording_read(content, whole); !why.empty())
        return failed(std::string(path) + ": " + why);
    std::puts(recording_line(whole).c_str());
    for (const recorded::record &one : whole.records) std::puts(record_line(one).c_str());
    if (!whole.notice.empty()) std::printf("%s\n", whole.notice.c_str());
    return std::fflush(stdout) == 0 ? 0 : failed("cannot write");
}

int record(const options &chosen, char **argv) {
    Dl_info library{};
    char path[PATH_MAX];
    if (dladdr(reinterpret_cast<const void *>(&wsm_recorder), &library) == 0 ||
        !realpath(library.dli_fname, path) || std::strpbrk(path, ": "))
        return failed("the library cannot be preloaded from where it is");

    // A new file, so that a link cannot redirect it and only its owner can read it.
    const int opened =
        open(chosen.output, O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (opened < 0) return failed(std::string(chosen.output) + ": " + std::strerror(errno));
    // Not the number of a closed standard stream; and the daemon must inherit it.
    const int fd = fcntl(opened, F_DUPFD, STDERR_FILENO + 1);
    if (fd < 0) return failed(std::string("no descriptor: ") + std::strerror(errno));
    // Above the process's own limit on file sizes, a write would end it with a signal.
    rlimit file_size{};
    unsigned long long limit = chosen.limit << 20;
    if (getrlimit(RLIMIT_FSIZE, &file_size) == 0 && file_size.rlim_cur != RLIM_INFINITY)
        limit = std::min<unsigned long long>(limit, file_size.rlim_cur);

    const char *before = std::getenv("LD_PRELOAD");
    const std::string preloaded = before && *before ? std::string(before) + ':' + path : std::string(path);
    setenv("LD_PRELOAD", preloaded.c_str(), 1);
    setenv("WSM_RECORD", (std::to_string(fd) + ' ' + std::to_string(limit)).c_str(), 1);
    execvp(argv[0], argv);
    const int reason = errno;
    unlink(chosen.output);
    return failed(std::string(argv[0]) + ": " + std::strerror(reason));
}

} // namespace

int main(int argc, char **argv) {
    const options chosen = parse(argc, argv);
    return chosen.show ? show(chosen.show) : record(chosen, argv + optind);
}
