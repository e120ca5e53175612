// Runs a fuzz target once over every file of the given folders and files: the tests replay the corpora with it,
// without a fuzzing engine. Exit status 0, or 1 when there is no input (a lost corpus is a failure too).
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int *argc, char ***argv);

namespace {

using input = std::vector<std::uint8_t>;

// Of exactly the file's size, so that the address sanitizer reports a read of even one byte too many.
input read_input(const std::filesystem::path &path) {
    std::ifstream in(path, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(in), {}};
    return {bytes.begin(), bytes.end()};
}

} // namespace

int main(int argc, char **argv) {
    std::vector<input> inputs; // read first: a target may cover the folders that they are in
    for (int i = 1; i < argc; ++i) {
        if (std::filesystem::is_regular_file(argv[i])) inputs.push_back(read_input(argv[i]));
        if (!std::filesystem::is_directory(argv[i])) continue;
        for (const auto &entry : std::filesystem::recursive_directory_iterator(argv[i]))
            if (entry.is_regular_file()) inputs.push_back(read_input(entry.path()));
    }
    if (LLVMFuzzerInitialize) LLVMFuzzerInitialize(&argc, &argv);
    for (const input &one : inputs) LLVMFuzzerTestOneInput(one.data(), one.size());
    std::printf("%zu inputs replayed\n", inputs.size());
    return inputs.empty() ? 1 : 0;
}
