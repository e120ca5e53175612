// uci - reads and changes configuration packages from the command line.
#include "commands.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <strings.h>
#include <unistd.h>

namespace {

constexpr const char *usage_text = R"(
Commands:
	get        <package>.<section>[.<option>]          print a value, or the type of a section
	show       [<package>[.<section>[.<option>]]]      print what is set, one line each
	export     [<package>]                             print packages as configuration files
	changes    [<package>]                             print changes that are not committed yet
	set        <package>.<section>[.<option>]=<value>  set an option, or the type of a section
	add        <package> <type>                        add a section, print its name
	add_list   <package>.<section>.<option>=<value>    append an item to a list
	del_list   <package>.<section>.<option>=<value>    remove an item from a list
	delete     <package>.<section>[.<option>[=<index>]]
	rename     <package>.<section>[.<option>]=<name>
	reorder    <package>.<section>=<position>
	revert     <package>[.<section>[.<option>]]        forget changes
	commit     [<package>]                             write changes into the package
	import     [<package>]                             replace a package by one from standard input
	batch                                              run commands from standard input

A section is called by its name, or as @type[index], where -1 is the last.

Options:
	-c <path>  folder of the packages (default: )" UCI_CONFDIR R"()
	-C <path>  folder of packages that override them (default: )" UCI_CONF2DIR R"()
	-t <path>  folder that changes are saved in (default: )" UCI_SAVEDIR R"()
	-p <path>  further folder that changes are read from
	-P <path>  like -t, and commit does nothing
	-d <text>  what stands between list items (default: a space)
	-f <file>  input instead of standard input
	-m         import merges into an existing package
	-n, -N     write generated section names, or do not (default)
	-q         no error messages
	-s, -S     refuse malformed files (default), or skip and report their malformed lines
	-X         show generated section names instead of @type[index]
)";

void usage(const char *program) {
    (void)std::fprintf(stderr, "Usage: %s [<options>] <command> [<arguments>]\n%s", program, usage_text);
}

void set_flag(uci_context *ctx, uci_flags flag, bool on) {
    const int flags = static_cast<int>(ctx->flags);
    ctx->flags = static_cast<uci_flags>(on ? flags | flag : flags & ~static_cast<int>(flag));
}

void set_strict(uci_context *ctx, bool on) {
    set_flag(ctx, UCI_FLAG_STRICT, on);
    set_flag(ctx, UCI_FLAG_PERROR, !on);
}

bool is_word(const char *text, const char *word) { return strcasecmp(text, word) == 0; }

void unload_all(uci_context *ctx) {
    uci_element *e, *next;
    uci_foreach_element_safe (&ctx->root, next, e) (void)uci_unload(ctx, uci_to_package(e));
}

// The words of one batch line; each is copied, since the reader's are good only until the next.
class batch_line {
public:
    static constexpr int max_words = 3; // a command and two arguments
    batch_line() = default;
    batch_line(batch_line &&) = delete;
    ~batch_line() {
        for (char *word : words_) std::free(word);
    }
    // False for a line that cannot be read; why is then the context's error.
    bool read(uci_context *ctx, FILE *input) {
        char *place = nullptr, *word = nullptr;
        for (;; ++count_) {
            if (uci_parse_argument(ctx, input, &place, &word) != UCI_OK) return false;
            if (*word == '\0') return true;
            if (count_ < max_words && !(words_[static_cast<unsigned>(count_)] = strdup(word))) {
                ctx->err = UCI_ERR_MEM;
                return false;
            }
        }
    }
    int count() const { return count_; }
    char **words() { return words_.data(); }

private:
    std::array<char *, max_words + 1> words_{};
    int count_ = 0;
};

// False at the word that ends the batch.
bool run_line(uci_context *ctx, const cli::settings &set, batch_line &line) {
    const char *message = nullptr;
    if (line.count() == 0) return true;
    if (line.count() > batch_line::max_words) {
        message = "Too many arguments\n";
    } else if (is_word(line.words()[0], "exit")) {
        return false;
    } else if (is_word(line.words()[0], "help")) {
        usage(set.program);
    } else if (cli::run(ctx, set, line.count(), line.words()) == cli::wrong_usage) {
        message = "Unknown command\n";
    }
    if (message && !set.quiet) (void)std::fputs(message, stderr);
    return true;
}

// Deliberate: the status is always 0, and a line that fails does not stop those after it.
int batch(uci_context *ctx, const cli::settings &set) {
    for (bool more = true; more && !std::feof(set.input) && !std::ferror(set.input);) {
        batch_line line;
        if (line.read(ctx, set.input))
            more = run_line(ctx, set, line);
        else
            cli::complain(ctx, set);
        unload_all(ctx); // so that each line sees what those before it have saved
    }
    return 0;
}

[[noreturn]] void stop(uci_context *ctx, const char *program, const char *reason) {
    (void)std::fprintf(stderr, "%s: %s\n", program, reason);
    uci_free_context(ctx);
    std::exit(1);
}

// False for an option that does not exist or lacks its argument.
bool parse_options(uci_context *ctx, cli::settings *set, int argc, char **argv) {
    for (int c = 0; (c = getopt(argc, argv, "c:C:d:f:mnNp:P:qsSt:X")) != -1;) {
        int rc = UCI_OK;
        switch (c) {
        case 'c': rc = uci_set_confdir(ctx, optarg); break;
        case 'C': rc = uci_set_conf2dir(ctx, optarg); break;
        case 'd': set->delimiter = optarg; break;
        case 'f':
            set->input = std::fopen(optarg, "r");
            if (!set->input) stop(ctx, optarg, std::strerror(errno));
            break;
        case 'm': set->merge = true; break;
        case 'n': set_flag(ctx, UCI_FLAG_EXPORT_NAME, true); break;
        case 'N': set_flag(ctx, UCI_FLAG_EXPORT_NAME, false); break;
        case 'p': rc = uci_add_delta_path(ctx, optarg); break;
        case 'P':
            rc = uci_set_savedir(ctx, optarg);
            set->no_commit = true;
            break;
        case 'q': set->quiet = true; break;
        case 's': set_strict(ctx, true); break;
        case 'S': set_strict(ctx, false); break;
        case 't': rc = uci_set_savedir(ctx, optarg); break;
        case 'X': set->real_names = true; break;
        default: return false;
        }
        // Continuing with the default folders would read and change the wrong configuration.
        if (rc == UCI_ERR_MEM) stop(ctx, argv[0], "Out of memory");
    }
    return true;
}

int run(uci_context *ctx, int argc, char **argv) {
    cli::settings set;
    set.program = argv[0];
    if (!parse_options(ctx, &set, argc, argv) || optind >= argc || is_word(argv[optind], "help")) {
        usage(argv[0]);
        return 0;
    }
    char **words = argv + optind;
    const int count = argc - optind;
    const int status =
        is_word(words[0], "batch") && count == 1 ? batch(ctx, set) : cli::run(ctx, set, count, words);
    if (status == cli::wrong_usage) usage(argv[0]);
    return status;
}

} // namespace

int main(int argc, char **argv) {
    if (argc == 2 && std::strcmp(argv[1], "--version") == 0) return std::puts("uci " WSMD_VERSION) < 0;
    uci_context *ctx = uci_alloc_context();
    if (!ctx || argc < 1) {
        (void)std::fputs("uci: Out of memory\n", stderr);
        return 1;
    }
    int status = run(ctx, argc, argv);
    uci_free_context(ctx);
    if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
        (void)std::fprintf(stderr, "%s: cannot write the output\n", argv[0]);
        if (status == 0) status = 1;
    }
    return status;
}
