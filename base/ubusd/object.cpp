#include "object.h"

namespace ubusd {

object *object_find(const broker &bus, std::uint32_t id) {
    numbered *found = ids_find(bus.objects, id);
    return container_of_safe(found, object, number);
}

object *object_find_path(const broker &bus, const char *path) {
    object *o = nullptr;
    return avl_find_element(&bus.paths, path, o, by_path);
}

} // namespace ubusd
