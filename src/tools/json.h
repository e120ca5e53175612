// json.h - JSON objects with an owner, and look-ups that cannot make the library's assertions end the
// process.
#pragma once

#include <json-c/json.h>
#include <memory>

struct sta_json_freer {
    void operator()(json_object *object) const noexcept { json_object_put(object); }
};
using sta_json = std::unique_ptr<json_object, sta_json_freer>;

// The member `key` of `object` if it is there and of `type`, else null. `object` may be null or of any type:
// the library aborts when another type is used as an array, so every array is looked up here.
inline json_object *sta_json_member(json_object *object, const char *key, json_type type) noexcept {
    json_object *member = nullptr;
    if (!json_object_is_type(object, json_type_object) || !json_object_object_get_ex(object, key, &member))
        return nullptr;
    return json_object_is_type(member, type) ? member : nullptr;
}
