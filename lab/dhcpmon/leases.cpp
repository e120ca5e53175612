#include "dhcpmon/leases.h"

#include <cstdint>
#include <fstream>
#include <json-c/json.h>
#include <sstream>

std::vector<lease> read_leases(const std::string &path) {
    std::vector<lease> found;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string expiry;
        lease one;
        if (words >> expiry >> one.mac >> one.ip >> one.name) found.push_back(std::move(one));
    }
    return found;
}

std::string leases_json(const std::vector<lease> &leases) {
    json_object *top = json_object_new_object();
    json_object_object_add(top, "count", json_object_new_int64(static_cast<std::int64_t>(leases.size())));
    json_object *list = json_object_new_array();
    for (const lease &one : leases) {
        json_object *entry = json_object_new_object();
        json_object_object_add(entry, "mac", json_object_new_string(one.mac.c_str()));
        json_object_object_add(entry, "ip", json_object_new_string(one.ip.c_str()));
        json_object_object_add(entry, "hostName", json_object_new_string(one.name.c_str()));
        json_object_array_add(list, entry);
    }
    json_object_object_add(top, "list", list);
    std::string text =
        json_object_to_json_string_ext(top, JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE);
    json_object_put(top);
    return text;
}
