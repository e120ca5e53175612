#include "tools/command.h"

#include "tools/log.h"
#include "tools/memory.h"

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <initializer_list>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr std::size_t command_size = 512;
constexpr std::size_t line_size = 1024;

// In the child: a pipeline must not inherit the signals that the daemon blocks or ignores.
void restore_signals() {
    for (const int signal_number : {SIGPIPE, SIGINT, SIGTERM, SIGCHLD}) std::signal(signal_number, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

[[noreturn]] void run_shell(char *command) {
    char shell[] = "/bin/sh";
    char option[] = "-c";
    char *const arguments[] = {shell, option, command, nullptr};
    execvp(shell, arguments);
    _exit(127); // not exit(): it would flush the parent's buffers
}

// The wait status, or 0 when there is none.
int wait_for(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0)
        if (errno != EINTR) return 0;
    return status;
}

// Fills `line` (zeroed) with the output up to the first line feed, a NUL or the buffer's end.
void read_line(int from, char (&line)[line_size]) {
    std::size_t used = 0;
    while (used < line_size - 1) {
        const ssize_t got = read(from, line + used, line_size - 1 - used);
        if (got < 0 && errno == EINTR) continue; // every child that ends interrupts the read
        if (got <= 0) break;
        used += static_cast<std::size_t>(got);
        if (std::memchr(line, '\n', used) || std::memchr(line, '\0', used)) break;
    }
    if (char *feed = static_cast<char *>(std::memchr(line, '\n', used)))
        used = static_cast<std::size_t>(feed - line);
    std::memset(line + used, 0, line_size - used);
}

} // namespace

pid_t sta_fork() {
    const pid_t pid = fork();
    if (pid < 0) {
        const int reason = errno;
        STA_LOG("Failed to fork: %s.  Bailing out\n", std::strerror(reason));
    }
    if (pid == 0) restore_signals();
    return pid;
}

int sta_execute(const char *format, ...) {
    char command[command_size] = "";
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(command, sizeof(command), format, arguments);
    va_end(arguments);

    const pid_t pid = sta_fork();
    if (pid < 0) return -1;
    if (pid == 0) run_shell(command);
    return (wait_for(pid) >> 8) & 0xff;
}

char *sta_execute_buf(const char *format, ...) {
    char command[command_size] = "";
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(command, sizeof(command), format, arguments);
    va_end(arguments);

    int ends[2];
    if (pipe2(ends, O_CLOEXEC) < 0) return nullptr;
    const pid_t pid = sta_fork();
    if (pid == 0) {
        dup2(ends[1], STDOUT_FILENO);
        // If standard output was closed, the pipe itself has its number; it must stay open after exec.
        if (ends[1] == STDOUT_FILENO) fcntl(STDOUT_FILENO, F_SETFD, 0);
        run_shell(command);
    }
    close(ends[1]);
    char line[line_size] = "";
    if (pid > 0) read_line(ends[0], line);
    close(ends[0]);
    if (pid > 0) wait_for(pid);
    return line[0] == '\0' ? nullptr : sta_strdup(line);
}
