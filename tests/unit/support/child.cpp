#include "support/child.h"

#include "support/files.h"
#include "support/house.h"
#include "support/log.h"
#include "support/places.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

const std::string log_file = shelf + "/child-log";
const std::string output_file = shelf + "/child-output";
const std::string blocks_file = shelf + "/child-blocks";

// Three texts a record, each with its NUL.
void save_log() {
    std::string all;
    for (const log_record &one : log_records()) {
        (all += std::to_string(one.module)) += '\0';
        (all += std::to_string(one.level)) += '\0';
        (all += one.text) += '\0';
    }
    write_file(log_file, all);
}

void save_blocks() { write_file(blocks_file, std::to_string(unowned_blocks())); }

void load_log() {
    const std::string all = read_file(log_file);
    std::vector<log_record> records;
    std::size_t at = 0;
    const auto next = [&] {
        std::string text = all.c_str() + at;
        at += text.size() + 1;
        return text;
    };
    while (at < all.size()) {
        const int module = std::stoi(next());
        const int level = std::stoi(next());
        records.push_back({module, level, next()});
    }
    keep_log(std::move(records));
}

} // namespace

child_end run_in_child(const std::function<void()> &function) {
    write_file(log_file, "");
    write_file(output_file, "");
    write_file(blocks_file, "0"); // for a child that ends before it can write its number
    const pid_t pid = fork();
    if (pid == 0) {
        const int output = open(output_file.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
        dup2(output, STDOUT_FILENO);
        dup2(output, STDERR_FILENO);
        std::atexit(save_log);
        std::atexit(save_blocks);
        function();
        std::exit(0);
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    load_log();
    EXPECT_EQ(read_file(blocks_file), "0")
        << "blocks of the counting allocator that nobody owns at the child's end";
    return {WIFEXITED(status), WIFEXITED(status) ? WEXITSTATUS(status) : WTERMSIG(status),
            read_file(output_file)};
}
