#include "inputs/network.h"

#include "base/cxx/uci.h"
#include "tools/file.h"
#include "tools/health.h"
#include "tools/log.h"
#include "tools/text.h"

#include <algorithm>
#include <ctime>
#include <iterator>
#include <memory>
#include <string_view>
#include <sys/stat.h>

char g_path[32] = "/etc/config/wireless";
static_assert(std::string_view{"/etc/config/wireless"} == sta_wireless_default);

namespace {

constexpr const char *sysinfo_file = "/etc/config/sysinfo";
constexpr std::size_t value_size = 64; // of a buffer; at most 63 characters are copied into it

struct uci_freer {
    void operator()(uci_context *context) const noexcept { uci_free_context(context); } // packages as well
    void operator()(char *text) const noexcept { std::free(text); }
};
using uci_guard = std::unique_ptr<uci_context, uci_freer>;

// The option's text; null when it is missing or a list.
const char *option_text(uci_context *context, uci_section *section, const char *name) {
    return uci_lookup_option_string(context, section, name);
}

bool option_is(uci_context *context, uci_section *section, const char *name, const char *value) {
    const char *text = option_text(context, section, name);
    return text && std::string_view{text} == value;
}

bool has_type(const uci_section *section, const char *type) {
    return std::string_view{section->type} == type;
}

// As strncpy, which compilers warn about: a longer text gets no terminator here, since the zeroed buffer has one.
void copy_value(char *destination, const char *text, std::size_t size) {
    const std::size_t length = strnlen(text, size);
    std::memcpy(destination, text, length);
    std::memset(destination + length, 0, size - length);
}

// Identifies the file that was read, by inode, size and times. A file system's clock is coarse: a file that was changed less
// than `coarse` seconds before it was read may change again without a new time, so it counts as changed.
class file_state {
public:
    void take(const char *path) noexcept {
        exists = read(path, status);
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        constexpr std::time_t coarse = 2; // seconds
        settled = !exists || now.tv_sec - status.st_ctim.tv_sec > coarse;
    }
    bool is_still(const char *path) const noexcept {
        struct stat now {};
        if (!settled || read(path, now) != exists) return false;
        return !exists || sta_same_file(now, status);
    }
    bool is_there() const noexcept { return exists; }

private:
    static bool read(const char *path, struct stat &into) noexcept { return stat(path, &into) == 0; }
    struct stat status {};
    bool exists = false;
    bool settled = false;
};

// Whether something that was read from files is still valid.
class kept {
public:
    // Whether what was read can be used. Calls `unchanged` once for each event or walk; `seen` remembers that.
    template <class Unchanged> bool is_good(bool &seen, Unchanged unchanged) noexcept {
        if (good && !seen) good = unchanged();
        seen = good;
        return good;
    }
    void is_read(bool &seen) noexcept { seen = good = true; }

private:
    bool good = false;
};

// One configuration file, kept while it is unchanged.
class config_file {
public:
    // Loads `path` if it has changed; after a failure it is tried again. The package, or null with the reason logged in the
    // name of `function`.
    uci_package *load(bool &seen, const char *function, const char *path, const char *missing) noexcept {
        if (its.is_good(seen, [&] { return state.is_still(path); })) return package;
        switch (try_load(path)) {
        case outcome::missing: STA_LOG_AS(function, "%s\n", missing); break;
        case outcome::no_context: STA_LOG_AS(function, "context no found!\n"); break;
        // Deliberate: the same words for both files.
        case outcome::unreadable: STA_LOG_AS(function, "wireless config no found!\n"); break;
        case outcome::loaded: its.is_read(seen); break;
        }
        return package;
    }
    uci_context *get() const noexcept { return context; }
    unsigned load_count() const noexcept { return loads; } // what was found before another load is freed

private:
    enum class outcome { missing, no_context, unreadable, loaded };

    outcome try_load(const char *path) noexcept {
        ++loads;
        if (context) uci_free_context(context); // frees the package as well
        context = nullptr;
        package = nullptr;
        state.take(path); // before reading, so that a change meanwhile is noticed next time
        if (!state.is_there()) return outcome::missing;
        context = uci_alloc_context();
        if (!context) return outcome::no_context;
        if (uci_load(context, path, &package) != UCI_OK) package = nullptr;
        return package ? outcome::loaded : outcome::unreadable;
    }

    kept its;
    file_state state;
    uci_context *context = nullptr; // lives as long as the program
    uci_package *package = nullptr;
    unsigned loads = 0;
};

constexpr const char *wireless_function = STA_NAME_OF(sta_uci_get_wireless_element);
config_file wireless;
config_file sysinfo;

// The chip family. A value that was set and not committed counts as well.
class chip_family {
public:
    // Empty when there is none; that is logged.
    const char *get(bool &seen) noexcept {
        const auto unchanged = [&] {
            for (std::size_t i = 0; i < std::size(places); ++i)
                if (!states[i].is_still(places[i])) return false;
            return true;
        };
        if (its.is_good(seen, unchanged)) return text;
        for (std::size_t i = 0; i < std::size(places); ++i) states[i].take(places[i]);
        std::memset(text, 0, sizeof(text));
        sta_uci_get_param("wifiinfo.global.sdk", text, sizeof(text) - 1);
        if (text[0] != '\0') its.is_read(seen);
        return text;
    }

private:
    static constexpr const char *places[] = {
        UCI_CONFDIR "/wifiinfo",
        UCI_SAVEDIR "/wifiinfo",
#ifdef UCI_CONF2DIR
        UCI_CONF2DIR "/wifiinfo",
#endif
    };
    kept its;
    file_state states[std::size(places)];
    char text[value_size] = "";
};

chip_family chip;

bool is_placed(const sta_info_t *sta) { return sta && sta->ifname[0] != '\0' && sta->ssid[0] != '\0'; }

} // namespace

void sta_uci_get_param(const char *path, char *destination, std::size_t size) {
    ++sta_health.configuration_lookups;
    const std::unique_ptr<char, uci_freer> edited{path ? strdup(path) : nullptr}; // the look-up changes it
    const uci_guard context{uci_alloc_context()};
    if (!edited || !context || !destination) {
        STA_LOG("pointer is not valid\n");
        return;
    }
    uci_ptr found{};
    if (uci_lookup_ptr(context.get(), &found, edited.get(), true) != UCI_OK) {
        STA_LOG("uci no found!\n");
        return;
    }
    if (!(found.flags & uci_ptr::UCI_LOOKUP_COMPLETE) || !found.o || found.o->type != UCI_TYPE_STRING) {
        STA_LOG("param %s not found\n", path);
        return;
    }
    copy_value(destination, found.o->v.string, size);
}

int sta_configuration::wireless_element(const char *value, const char *match, const char *device,
                                        const char *wanted, char *destination, std::size_t size) noexcept {
    if (!value || !match || !wanted || !destination) {
        STA_LOG_AS(wireless_function, "param is NULL!\n");
        return -1;
    }
    const answer *found = nullptr;
    if (!find(value, match, device, wanted, found)) return -1;
    if (found) copy_value(destination, found->text, size);
    return 0;
}

bool sta_configuration::find(const char *value, const char *match, const char *device, const char *wanted,
                             const answer *&found) noexcept {
    constexpr const char *function = wireless_function;
    found = nullptr;
    STA_LOG_AS(function, "sta_uci_get_wireless_element:%s\n", g_path);
    ++sta_health.configuration_lookups;
    const uci_package *package = wireless.load(wireless_seen, function, g_path, "Not wireless file");
    if (!package) return false;
    for (const answer &one : answers) {
        if (one.load != wireless.load_count() || one.match != match || one.device != device ||
            one.wanted != wanted || std::strcmp(one.value, value) != 0)
            continue;
        STA_LOG_AS(function, "value=%s name=%s\n", one.value, value);
        found = &one;
        return true;
    }
    uci_context *context = wireless.get();
    uci_element *element = nullptr;
    uci_foreach_element (&package->sections, element) {
        uci_section *section = uci_to_section(element);
        if (!has_type(section, "wifi-iface")) continue;
        if (device && !option_is(context, section, "device", device)) continue;
        if (!option_is(context, section, match, value)) continue;
        const char *matching = option_text(context, section, match);
        STA_LOG_AS(function, "value=%s name=%s\n", matching, value);
        const char *text = option_text(context, section, wanted);
        if (!text) return false;
        char number[value_size] = "";
        copy_value(number, text, sizeof(number) - 1);
        answer &one = answers[next_answer++ % std::size(answers)];
        one = {wireless.load_count(), match, device, wanted, matching, text, sta_number(number)};
        found = &one;
        return true;
    }
    return true;
}

int sta_configuration::sysinfo_element(char *destination, std::size_t size) noexcept {
    constexpr const char *function = STA_NAME_OF(sta_uci_get_sysinfo_element);
    if (!destination) {
        STA_LOG_AS(function, "param is NULL!\n");
        return -1;
    }
    ++sta_health.configuration_lookups;
    const uci_package *package = sysinfo.load(sysinfo_seen, function, sysinfo_file, "Not sysinfo file");
    if (!package) return -1;
    if (forward_mode.load == sysinfo.load_count()) {
        copy_value(destination, forward_mode.text, size);
        return 0;
    }
    uci_element *element = nullptr;
    uci_foreach_element (&package->sections, element) {
        uci_section *section = uci_to_section(element);
        if (!has_type(section, "sysinfo")) continue;
        const char *text = option_text(sysinfo.get(), section, "forwardMode");
        if (!text) return -1;
        forward_mode = {sysinfo.load_count(), nullptr, nullptr, nullptr, nullptr, text, 0};
        copy_value(destination, text, size);
        return 0;
    }
    return 0;
}

// Option `wanted` of the station's "wifi-iface" section. Logs in the name of `function`.
bool sta_configuration::element_of(const char *function, const sta_info_t *sta, const char *wanted,
                                   const answer *&found) noexcept {
    const std::string_view family = chip.get(chip_seen);
    if (family == "mtk") return find(sta->ifname, "ifname", nullptr, wanted, found);
    if (family == "qca") {
        const char *device = std::strncmp(sta->ifname, "ath0", 4) == 0 ? "wifi0" : "wifi1";
        return find(sta->ssid, "ssid", device, wanted, found);
    }
    STA_LOG_AS(function, "uci unrecognize.\n");
    return false;
}

std::int32_t sta_configuration::vlan_of(const sta_info_t *sta) noexcept {
    constexpr const char *function = STA_NAME_OF(sta_sta_get_vlanid);
    if (!is_placed(sta)) return -1;
    const answer *found = nullptr;
    if (!element_of(function, sta, "vlanid", found)) return -1;
    const int vlanid = found ? found->number : 0;
    STA_LOG_AS(function, "uci get vlanid=%d\n", vlanid);
    return vlanid;
}

bool sta_configuration::is_bridged(const sta_info_t *sta) noexcept {
    constexpr const char *function = STA_NAME_OF(sta_sta_get_brmode);
    if (!is_placed(sta)) return false;
    char mode[value_size] = "";
    if (sysinfo_element(mode, sizeof(mode) - 1) == -1) return false;
    STA_LOG_AS(function, "sysinfo: %s\n", mode);
    if (std::string_view{mode} != "AP") return false;
    const answer *found = nullptr;
    if (!element_of(function, sta, "network", found)) return false;
    char network[value_size] = "";
    if (found) copy_value(network, found->text, sizeof(network) - 1);
    STA_LOG_AS(function, "uci get brmode=%s\n", network);
    return std::string_view{network} != "lan";
}

int sta_uci_get_wireless_element(const char *value, const char *match, const char *device, const char *wanted,
                                 char *destination, std::size_t size) {
    return sta_configuration{}.wireless_element(value, match, device, wanted, destination, size);
}

int sta_uci_get_sysinfo_element(char *destination, std::size_t size) {
    return sta_configuration{}.sysinfo_element(destination, size);
}

std::int32_t sta_sta_get_vlanid(const sta_info_t *sta) { return sta_configuration{}.vlan_of(sta); }

int sta_sta_get_brmode(const sta_info_t *sta) { return sta_configuration{}.is_bridged(sta) ? 1 : -1; }

void sta_take_vlanid(sta_info_t *sta, sta_configuration &configuration) noexcept {
    sta->vlanid = std::max(configuration.vlan_of(sta), 1);
}
