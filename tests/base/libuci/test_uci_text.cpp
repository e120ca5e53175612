// Text to packages and back: import, export, words, messages.
#include "configuration.h"

namespace {

// A stream over a text, for the length of one call.
class stream {
public:
    explicit stream(std::string text) : text_(std::move(text)), file_(tmpfile()) {
        fwrite(text_.data(), 1, text_.size(), file_);
        rewind(file_);
    }
    stream(const stream &) = delete;
    ~stream() { fclose(file_); }
    operator FILE *() const { return file_; }

private:
    std::string text_;
    FILE *file_;
};

std::string reread(const std::string &text) {
    configuration conf;
    uci_package *p = nullptr;
    if (uci_import(conf.ctx(), stream(text), "x", &p, true) != UCI_OK) return conf.error();
    return conf.exported(p);
}

std::vector<std::string> loaded(const configuration &conf) {
    std::vector<std::string> names;
    uci_element *e;
    uci_foreach_element (&conf.ctx()->root, e) names.push_back(e->name);
    return names;
}

TEST(uci_import, what_was_exported_reads_the_same) {
    const std::string text =
        "\nconfig a 'b'\n\toption x 'it'\\''s \"quoted\" \\ # ; \xff'\n\toption y 'two\nlines\t'\n"
        "\tlist l ''\n\tlist l ' '\n\nconfig a\n\toption x '1'\n\n";
    EXPECT_EQ(reread(text), text);
}

TEST(uci_import, a_line_may_be_longer_than_any_buffer) {
    const std::string value(300000, 'v');
    EXPECT_EQ(reread("config a b\noption x \"" + value + "\\\n" + value + "\n" + value + "\"\n"),
              "\nconfig a 'b'\n\toption x '" + value + value + "\n" + value + "'\n\n");
}

TEST(uci_import, a_file_that_ends_behind_a_command_word_is_malformed) {
    EXPECT_EQ(reread("config a\noption"), "Parse error (option without name) at line 1, byte 6");
    EXPECT_EQ(reread("config a\nlist"), "Parse error (option without name) at line 1, byte 4");
    EXPECT_EQ(reread("config"), "Parse error (config without name) at line 0, byte 6");
    EXPECT_EQ(reread("package"), "Parse error (package without name) at line 0, byte 7");
    EXPECT_EQ(reread("config "), "Parse error (insufficient arguments) at line 0, byte 7");
}

TEST(uci_import, a_nul_byte_ends_its_line) {
    const std::string text = std::string("config a b\n\toption x 1") + '\0' + "2\n\toption y 3\n";
    EXPECT_EQ(reread(text), "\nconfig a 'b'\n\toption x '1'\n\toption y '3'\n\n");
    EXPECT_EQ(reread(std::string(100, '\0')), "\n");
}

TEST(uci_import, package_lines_name_the_packages) {
    configuration conf;
    uci_package *p = nullptr;
    ASSERT_EQ(uci_import(conf.ctx(),
                         stream("package one\nconfig a\npackage two\nconfig b\npackage one\nconfig c\n"),
                         nullptr, &p, false),
              UCI_OK);
    EXPECT_EQ(loaded(conf), (std::vector<std::string>{"one", "two"}));
    EXPECT_STREQ(p->e.name, "one");
    EXPECT_EQ(conf.exported(p), "\nconfig a\n\nconfig c\n\n");
}

TEST(uci_import, a_name_goes_before_the_first_package_line) {
    configuration conf;
    ASSERT_EQ(uci_import(conf.ctx(), stream("config a\npackage two\nconfig b\n"), "zero", nullptr, false),
              UCI_OK);
    EXPECT_EQ(loaded(conf), (std::vector<std::string>{"zero", "two"}));
}

TEST(uci_import, an_option_does_not_go_into_the_section_of_another_package) {
    configuration conf;
    EXPECT_EQ(uci_import(conf.ctx(), stream("package one\nconfig a\npackage two\noption x 1\n"), nullptr,
                         nullptr, false),
              UCI_ERR_PARSE);
    EXPECT_EQ(conf.error(),
              "Parse error (option/list command found before the first section) at line 4, byte 0");
    EXPECT_EQ(loaded(conf), std::vector<std::string>{}) << "nothing of a malformed input stays";
}

TEST(uci_import, without_any_name_there_is_nowhere_to_put_a_section) {
    configuration conf;
    uci_package *p = nullptr;
    EXPECT_EQ(uci_import(conf.ctx(), stream("config a\n"), nullptr, &p, true), UCI_ERR_PARSE);
    EXPECT_EQ(conf.error(),
              "Parse error (attempting to import a file without a package name) at line 1, byte 0");
    EXPECT_EQ(uci_import(conf.ctx(), stream(""), nullptr, &p, false), UCI_OK);
    EXPECT_EQ(p, nullptr);
}

TEST(uci_import, names_that_are_no_file_of_the_folder_are_refused) {
    configuration conf;
    for (const char *name : {"", "two words", "../x", ".x", "/etc/x"})
        EXPECT_EQ(uci_import(conf.ctx(), stream("config a\n"), name, nullptr, true), UCI_ERR_INVAL) << name;
}

TEST(uci_import, a_package_that_is_loaded_is_not_loaded_twice) {
    configuration conf;
    conf.load("one", "");
    EXPECT_EQ(uci_import(conf.ctx(), stream("config a\n"), "one", nullptr, true), UCI_ERR_DUPLICATE);
    EXPECT_EQ(uci_import(conf.ctx(), stream("package two\npackage one\n"), nullptr, nullptr, false),
              UCI_ERR_DUPLICATE);
    EXPECT_EQ(loaded(conf), std::vector<std::string>{"one"});
}

TEST(uci_import, merging_records_what_it_changes) {
    configuration conf;
    uci_package *p = conf.load("net", "config a b\n\toption same 1\n\toption other 1\n\tlist l x\n");
    ASSERT_EQ(
        uci_import(conf.ctx(),
                   stream("config a b\noption same 1\noption other 2\nlist l y\nconfig c\nconfig d e\n"),
                   "net", &p, true),
        UCI_OK);
    EXPECT_EQ(conf.exported(p),
              "\nconfig a 'b'\n\toption same '1'\n\toption other '2'\n\tlist l 'x'\n\tlist l 'y'\n"
              "\nconfig c\n\nconfig d 'e'\n\n");
    ASSERT_EQ(uci_save(conf.ctx(), p), UCI_OK);
    EXPECT_EQ(conf.read("save/net"), "net.b.other='2'\n|net.b.l='y'\n+net.cfg02b608='c'\nnet.e='d'\n");
}

TEST(uci_export, writes_all_packages_and_their_names) {
    configuration conf;
    conf.load("one", "config a\n");
    conf.load("two", "config b\n");
    char *text = nullptr;
    std::size_t length = 0;
    FILE *out = open_memstream(&text, &length);
    EXPECT_EQ(uci_export(conf.ctx(), out, nullptr, true), UCI_OK);
    fclose(out);
    EXPECT_STREQ(text, "package one\n\nconfig a\n\npackage two\n\nconfig b\n\n");
    free(text);
}

TEST(uci_export, generated_names_are_written_if_wanted) {
    configuration conf;
    conf.ctx()->flags = static_cast<uci_flags>(UCI_FLAG_STRICT | UCI_FLAG_EXPORT_NAME);
    EXPECT_EQ(conf.exported(conf.load("one", "config route\n")), "\nconfig route 'cfg01c8b4'\n\n");
}

TEST(uci_export, a_list_without_items_is_not_written) {
    configuration conf;
    uci_package *p = conf.load("one", "config a b\n\tlist l x\n\toption o 1\n");
    uci_ptr ptr = conf.at("one.b.l=x");
    ASSERT_EQ(uci_del_list(conf.ctx(), &ptr), UCI_OK);
    EXPECT_EQ(conf.exported(p), "\nconfig a 'b'\n\toption o '1'\n\n");
}

TEST(uci_export, a_stream_that_cannot_be_written_is_an_io_error) {
    configuration conf;
    uci_package *p = conf.load("one", "config a b\n");
    FILE *full = fopen("/dev/full", "w");
    ASSERT_NE(full, nullptr);
    setbuf(full, nullptr);
    EXPECT_EQ(uci_export(conf.ctx(), full, p, true), UCI_ERR_IO);
    fclose(full);
}

// The words of every line of a text.
std::vector<std::vector<std::string>> words_of(const std::string &text) {
    configuration conf;
    const stream in(text);
    std::vector<std::vector<std::string>> lines;
    while (!feof(in)) {
        char *place = nullptr, *word = nullptr;
        lines.emplace_back();
        for (;;) {
            if (uci_parse_argument(conf.ctx(), in, &place, &word) != UCI_OK) {
                lines.back().push_back(conf.error());
                break;
            }
            if (*word == '\0') break;
            lines.back().push_back(word);
        }
    }
    return lines;
}

using lines = std::vector<std::vector<std::string>>;

TEST(uci_parse_argument, reads_quoted_words_line_by_line) {
    EXPECT_EQ(words_of("set a.b.c='two words' \"x\\\"y\"\n\n  get 'l1\nl2' z"),
              (lines{{"set", "a.b.c=two words", "x\"y"}, {}, {"get", "l1\nl2", "z"}}));
}

TEST(uci_parse_argument, comments_and_semicolons_end_the_words_of_a_line) {
    EXPECT_EQ(words_of("a b # c\nd;e\n'f';g\nh ; i\n#j\n;k"),
              (lines{{"a", "b"}, {"d"}, {"f"}, {"h"}, {}, {}}));
}

TEST(uci_parse_argument, an_open_quote_is_a_parse_error) {
    EXPECT_EQ(words_of("a 'b\nc"), (lines{{"a", "Parse error (EOF with unterminated ') at line 1, byte 6"}}));
}

TEST(uci_parse_argument, a_place_that_is_not_its_own_is_refused) {
    configuration conf;
    const stream in("a b\n");
    char foreign[] = "c d", *place = foreign, *word = nullptr;
    EXPECT_EQ(uci_parse_argument(conf.ctx(), in, &place, &word), UCI_ERR_INVAL);
    place = nullptr;
    EXPECT_EQ(uci_parse_argument(conf.ctx(), in, &place, &word), UCI_OK);
    EXPECT_STREQ(word, "a");
    place = foreign;
    EXPECT_EQ(uci_parse_argument(conf.ctx(), in, &place, &word), UCI_ERR_INVAL);
}

TEST(uci_validate_text, refuses_control_bytes_that_no_line_can_hold) {
    EXPECT_TRUE(uci_validate_text(""));
    EXPECT_TRUE(uci_validate_text("tab\t line\n\r \x7f caf\xc3\xa9 \xff"));
    EXPECT_FALSE(uci_validate_text("bell\a"));
    EXPECT_FALSE(uci_validate_text("\x1f"));
    EXPECT_FALSE(uci_validate_text("\v"));
}

TEST(uci_get_errorstr, names_every_result) {
    configuration conf;
    const char *texts[] = {"Success",   "Out of memory", "Invalid argument", "Entry not found",
                           "I/O error", "Parse error",   "Duplicate entry",  "Unknown error"};
    for (int code = 0; code < UCI_ERR_LAST; ++code) {
        conf.ctx()->err = code;
        EXPECT_EQ(conf.error(), texts[code]);
    }
    for (int code : {-1, static_cast<int>(UCI_ERR_LAST), 1000}) {
        conf.ctx()->err = code;
        EXPECT_EQ(conf.error(), "Unknown error");
    }
}

TEST(uci_get_errorstr, puts_a_prefix_before_the_text) {
    configuration conf;
    conf.ctx()->err = UCI_ERR_IO;
    char *text = nullptr;
    uci_get_errorstr(conf.ctx(), &text, "tool");
    EXPECT_STREQ(text, "tool: I/O error");
    free(text);
}

TEST(uci_perror, prints_each_message_on_a_line_of_its_own) {
    configuration conf;
    uci_package *p = nullptr;
    EXPECT_EQ(uci_import(conf.ctx(), stream("x\n"), "a", &p, true), UCI_ERR_PARSE);
    testing::internal::CaptureStderr();
    uci_perror(conf.ctx(), "tool");
    uci_perror(conf.ctx(), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "tool: Parse error (invalid command) at line 1, byte 0\n"
              "Parse error (invalid command) at line 1, byte 0\n");
}

} // namespace
