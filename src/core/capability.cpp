#include "core/capability.h"

#include "inputs/network.h"
#include "model/table.h"
#include "tools/file.h"
#include "tools/json.h"
#include "tools/log.h"
#include "tools/text.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace {

constexpr const char *capability_file = "/tmp/tk_device/tk_device.json";
constexpr int default_limit = 512;

struct malloc_freer {
    void operator()(char *text) const noexcept { std::free(text); }
};

void read_wireless_path(json_object *wireless) {
    json_object *path = nullptr;
    if (!json_object_object_get_ex(wireless, "wireless_path", &path)) {
        STA_LOG_AS(STA_NAME_OF(dev_cap_table_init), "wireless_path get fail!\n");
        return;
    }
    const char *text = json_object_get_string(path);
    if (!text) {
        STA_LOG_AS(STA_NAME_OF(dev_cap_table_init), "w_path convert fail!\n");
        return;
    }
    std::snprintf(g_path, sizeof(g_path), "%s/wireless", text);
    STA_LOGFILE("g_path = %s w_path=%s\n", g_path, text);
}

void read_table(const char *text) {
    const sta_json root{json_tokener_parse(text)};
    if (!root) {
        STA_LOG_AS(STA_NAME_OF(dev_cap_table_init), "(err)Fail to get device capacity table json string!\n");
        return;
    }
    json_object *wireless = sta_json_member(root.get(), "wireless", json_type_object);
    json_object *radios = sta_json_member(wireless, "radiolist", json_type_array);
    if (!radios) {
        STA_LOG_AS(STA_NAME_OF(dev_cap_table_init), "wireless get fail!\n");
        return;
    }
    const std::size_t count = json_object_array_length(radios);
    STA_LOGFILE("radio_json len = %d!\n", static_cast<int>(count));
    std::int64_t sum = sta_max_num; // Deliberate: a second reading adds to the first
    for (std::size_t i = 0; i < count; ++i) {
        json_object *limit = nullptr;
        json_object_object_get_ex(json_object_array_get_idx(radios, i), "sta_limit_max", &limit);
        sum += json_object_get_int(limit);
    }
    sum = std::clamp<std::int64_t>(sum, INT32_MIN, INT32_MAX);
    sta_max_num = sum < 1 ? default_limit : static_cast<std::int32_t>(sum);
    read_wireless_path(wireless);
}

} // namespace

char *ReadFile(const char *path, long *length) {
    const sta_file file{std::fopen(path, "rbe")};
    if (!file) {
        STA_LOG("(err)fopen [%s] fail!\n", path);
        return nullptr;
    }
    if (std::fseek(file.get(), 0, SEEK_END) != 0) {
        STA_LOG("(err)fseek fail!\n");
        return nullptr;
    }
    const long size = std::ftell(file.get());
    if (size == -1) {
        STA_LOG("(err)ftell fail!\n");
        return nullptr;
    }
    // A directory can be opened, and reports LONG_MAX as its size.
    char *text =
        size < LONG_MAX ? static_cast<char *>(std::calloc(1, static_cast<std::size_t>(size) + 1)) : nullptr;
    if (!text) {
        STA_LOG("(err)ReadFile[ %s ]malloc fail!\n", path);
        return nullptr;
    }
    std::rewind(file.get());
    const std::size_t got = std::fread(text, 1, static_cast<std::size_t>(size), file.get());
    text[got] = '\0';
    *length = static_cast<long>(got);
    return text;
}

int dev_cap_table_init() {
    sta_put_text(g_path, sta_wireless_default);
    long length = 0;
    const std::unique_ptr<char, malloc_freer> text{ReadFile(capability_file, &length)};
    if (!text) {
        STA_LOG("(err)Open file[%s] fail!\n", capability_file);
        STA_LOG("dev cap table init FAIL!!!\n");
        STA_NOTICE("no capability file %s\n", capability_file);
        return -1;
    }
    read_table(text.get());
    if (sta_max_num == 0) STA_NOTICE("the capability file has no radios: no station can be kept\n");
    return 0;
}
