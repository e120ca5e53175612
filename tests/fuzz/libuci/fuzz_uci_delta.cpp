// The input is a delta file to a known package: a commit writes what a load shows and leaves no change behind.
#include "folder.h"

namespace {

constexpr const char *package = "config interface 'lan'\n"
                                "\toption proto 'static'\n"
                                "\tlist dns 'a'\n"
                                "\tlist dns 'b'\n"
                                "config route\n"
                                "\toption target 'x'\n"
                                "config interface 'wan'\n";

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static const folder place;
    place.write("etc/net", package);
    place.write("save/net", {reinterpret_cast<const char *>(data), size});

    const context ctx(place);
    uci_package *p = nullptr;
    require(uci_load(ctx, "net", &p) == UCI_OK, "no delta file keeps a package from being loaded");
    const std::string loaded = exported(ctx, p);
    require(uci_commit(ctx, &p, false) == UCI_OK, "what can be loaded can be committed");
    require(exported(ctx, p) == loaded, "the committed package is the loaded one");
    require(place.read("save/net").empty(), "no change is left behind");
    const std::string file = place.read("etc/net");
    require(file == loaded || file == package,
            "the file holds the committed package, or nothing was applied");
    return 0;
}
