#include "inputs/interfaces.h"

#include "base/cxx/uci.h"
#include "inputs/network.h"
#include "tools/text.h"

#include <string_view>

namespace {

// Adds the section's interface, if it has a name. False without memory.
bool add(uci_context *context, uci_section *section, sta_array<wireless_interface> &found) {
    const char *ifname = uci_lookup_option_string(context, section, "ifname");
    if (!ifname || *ifname == '\0') return true;
    wireless_interface one{};
    sta_put_text(one.ifname, ifname);
    one.radio_id = sta_radio_of(ifname, uci_lookup_option_string(context, section, "device"));
    return found.push(one);
}

} // namespace

std::int32_t sta_radio_of(const char *ifname, const char *device) noexcept {
    if (device && *device != '\0') {
        const char last = device[std::strlen(device) - 1];
        if (last == '0' || last == '1') return last - '0';
    }
    return std::strncmp(ifname, "ath0", 4) == 0 ? 0 : 1;
}

bool sta_uci_interfaces(sta_array<wireless_interface> &found) noexcept {
    uci_context *context = uci_alloc_context();
    if (!context) return false;
    uci_package *package = nullptr;
    bool whole = uci_load(context, g_path, &package) == UCI_OK && package;
    if (whole) {
        uci_element *element = nullptr;
        uci_foreach_element (&package->sections, element) {
            uci_section *section = uci_to_section(element);
            if (std::string_view{section->type} == "wifi-iface")
                whole = add(context, section, found) && whole;
        }
    }
    uci_free_context(context);
    return whole;
}
