#include "replay/places.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <json-c/json.h>
#include <memory>

namespace {

// The wireless package has one place in the lab, whatever folder the recorded device had it in.
std::string with_lab_path(std::string text) {
    const std::unique_ptr<json_object, int (*)(json_object *)> root(json_tokener_parse(text.c_str()),
                                                                    json_object_put);
    json_object *wireless = nullptr;
    if (!json_object_object_get_ex(root.get(), "wireless", &wireless) ||
        !json_object_is_type(wireless, json_type_object) ||
        !json_object_object_get_ex(wireless, "wireless_path", nullptr))
        return text;
    json_object_object_add(wireless, "wireless_path", json_object_new_string("/etc/config"));
    return json_object_to_json_string(root.get());
}

} // namespace

std::string place_file(const recorded::file &file) {
    const std::filesystem::path path = file.place->path;
    std::error_code wrong;
    if (file.state == file_absent) {
        std::filesystem::remove(path, wrong);
        return wrong ? path.string() + ": " + wrong.message() : std::string();
    }
    std::string text(reinterpret_cast<const char *>(file.content.data()), file.content.size());
    if (file.place->number == file_capability) text = with_lab_path(std::move(text));
    std::filesystem::create_directories(path.parent_path(), wrong);
    const std::filesystem::path draft = path.parent_path() / ('.' + path.filename().string() + ".replayed");
    std::ofstream out(draft, std::ios::binary | std::ios::trunc);
    out << text;
    out.close();
    if (!out) return draft.string() + ": " + std::strerror(errno);
    std::filesystem::rename(draft, path, wrong);
    return wrong ? path.string() + ": " + wrong.message() : std::string();
}
