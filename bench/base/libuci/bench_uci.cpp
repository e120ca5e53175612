// The cost of configuration packages, compared with the floor: reading the same file and counting its lines.
#include <uci.h>

#include <benchmark/benchmark.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

// 200 lines like those of an access point: two radios, and sixteen interfaces of twelve lines each.
std::string wireless() {
    std::string text;
    for (int radio = 0; radio < 2; ++radio)
        text += "config wifi-device 'wifi" + std::to_string(radio) +
                "'\n\toption type 'qcawifi'\n\toption channel '36'\n\n";
    for (int i = 0; i < 16; ++i) {
        text += "config wifi-iface\n\toption device 'wifi" + std::to_string(i % 2) +
                "'\n\toption ifname 'ath" + std::to_string(i) +
                "'\n\toption network 'lan'\n\toption mode 'ap'\n\toption ssid 'Office " + std::to_string(i) +
                "'\n\toption encryption 'psk2+ccmp'\n\toption key 'it'\\''s a long pass phrase'\n" +
                "\toption isolate '1'\n\tlist maclist '02:00:00:00:00:01'\n\tlist maclist "
                "'02:00:00:00:00:02'\n\n";
    }
    return text;
}

// A folder with that package, gone at the end of the program.
class folder {
public:
    folder() {
        std::string name = std::filesystem::temp_directory_path() / "uci-bench-XXXXXX";
        root_ = mkdtemp(name.data());
        std::ofstream(path("wireless")) << wireless();
    }
    folder(const folder &) = delete;
    ~folder() { std::filesystem::remove_all(root_); }
    std::string path(const char *name) const { return root_ / name; }
    uci_context *context() const {
        uci_context *ctx = uci_alloc_context();
        uci_set_confdir(ctx, root_.c_str());
        uci_set_savedir(ctx, path("save").c_str());
        uci_set_conf2dir(ctx, nullptr);
        return ctx;
    }

private:
    std::filesystem::path root_;
};

const folder place;

void floor_read_and_count_lines(benchmark::State &state) {
    const std::string path = place.path("wireless");
    for (auto _ : state) {
        FILE *file = fopen(path.c_str(), "re");
        char *line = nullptr;
        std::size_t room = 0;
        int lines = 0;
        while (getline(&line, &room, file) >= 0) ++lines;
        free(line);
        fclose(file);
        if (lines != 200) state.SkipWithError("the package has not 200 lines");
    }
}
BENCHMARK(floor_read_and_count_lines);

void load_and_unload(benchmark::State &state) {
    uci_context *ctx = place.context();
    for (auto _ : state) {
        uci_package *p = nullptr;
        if (uci_load(ctx, "wireless", &p) != UCI_OK) state.SkipWithError("the package cannot be loaded");
        uci_unload(ctx, p);
    }
    uci_free_context(ctx);
}
BENCHMARK(load_and_unload);

// The cost for a program that asks for one value and ends.
void ask_for_one_value(benchmark::State &state) {
    for (auto _ : state) {
        uci_context *ctx = place.context();
        char tuple[] = "wireless.@wifi-iface[-1].ssid";
        uci_ptr ptr;
        if (uci_lookup_ptr(ctx, &ptr, tuple, true) != UCI_OK || !ptr.o) state.SkipWithError("no such value");
        uci_free_context(ctx);
    }
}
BENCHMARK(ask_for_one_value);

void look_up(benchmark::State &state, const char *what) {
    uci_context *ctx = place.context();
    if (uci_load(ctx, "wireless", nullptr) != UCI_OK) state.SkipWithError("the package cannot be loaded");
    char tuple[64];
    uci_ptr ptr;
    for (auto _ : state) {
        strcpy(tuple, what); // a look-up cuts its text
        benchmark::DoNotOptimize(uci_lookup_ptr(ctx, &ptr, tuple, true));
    }
    if (!(ptr.flags & uci_ptr::UCI_LOOKUP_COMPLETE)) state.SkipWithError("there is no such thing");
    uci_free_context(ctx);
}

void look_up_in_a_loaded_package(benchmark::State &state) { look_up(state, "wireless.@wifi-iface[-1].ssid"); }
BENCHMARK(look_up_in_a_loaded_package);

// Of sixteen sections of the type, counted from the beginning and from the end.
void look_up_the_last_by_index(benchmark::State &state) { look_up(state, "wireless.@wifi-iface[15]"); }
BENCHMARK(look_up_the_last_by_index);

void look_up_the_first_from_the_end(benchmark::State &state) { look_up(state, "wireless.@wifi-iface[-16]"); }
BENCHMARK(look_up_the_first_from_the_end);

void floor_write_as_one_piece(benchmark::State &state) {
    const std::string text = wireless();
    FILE *out = fopen("/dev/null", "we");
    for (auto _ : state) {
        fwrite(text.data(), 1, text.size(), out);
        fflush(out);
    }
    fclose(out);
}
BENCHMARK(floor_write_as_one_piece);

void export_package(benchmark::State &state) {
    uci_context *ctx = place.context();
    uci_package *p = nullptr;
    if (uci_load(ctx, "wireless", &p) != UCI_OK) state.SkipWithError("the package cannot be loaded");
    FILE *out = fopen("/dev/null", "we");
    for (auto _ : state) {
        uci_export(ctx, out, p, false);
        fflush(out);
    }
    fclose(out);
    uci_free_context(ctx);
}
BENCHMARK(export_package);

} // namespace

BENCHMARK_MAIN();
