// The input is a file with names of stations: names are bounded and printable, and their keys are MACs.
#include "../require.h"
#include "collector/names.h"
#include "collector/sessions.h"

#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    const station_names names = station_names::parse(text);
    require(names.count() + names.wrong <=
                static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1,
            "one name for a line");
    if (size < 17) return 0;
    const std::string &name = names.of(normal_mac(text.substr(0, 17)));
    require(name.size() <= 4 * 64, "names are bounded");
    require(
        std::none_of(name.begin(), name.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; }),
        "names have no control characters");
    return 0;
}
