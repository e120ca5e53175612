// Checking and parsing messages that came from outside.
#include <libubox/blobmsg.h>

#include <algorithm>
#include <cstring>

namespace {

// Names of this length and more are stored, but no policy entry finds them.
constexpr std::size_t policy_name_limit = 256;

// Bytes of a well-formed name header at the start of the payload, 0 for none; negative if it is malformed.
std::ptrdiff_t name_header(const blob_attr *attr, bool name) {
    if (!blob_is_extended(attr)) return name ? -1 : 0;
    const std::size_t payload = blob_len(attr);
    const auto *hdr = static_cast<const blobmsg_hdr *>(blob_data(attr));
    if (payload < sizeof(*hdr)) return -1;
    const unsigned int namelen = blobmsg_namelen(hdr);
    if (name && namelen == 0) return -1;
    const auto header = static_cast<std::size_t>(blobmsg_hdrlen(namelen));
    if (header > payload || hdr->name[namelen] != 0) return -1;
    return static_cast<std::ptrdiff_t>(header);
}

bool sound_value(int type, const char *value, std::size_t len) {
    switch (type) {
    case BLOBMSG_TYPE_INT8: return len == 1;
    case BLOBMSG_TYPE_INT16: return len == 2;
    case BLOBMSG_TYPE_INT32: return len == 4;
    case BLOBMSG_TYPE_INT64: return len == 8;
    case BLOBMSG_TYPE_DOUBLE: return len >= 8;
    case BLOBMSG_TYPE_STRING: return len >= 1 && value[len - 1] == 0;
    default: return type <= BLOBMSG_TYPE_LAST;
    }
}

bool fits(const blob_attr *attr, enum blobmsg_type wanted) {
    const int type = blobmsg_type(attr);
    switch (wanted) {
    case BLOBMSG_TYPE_UNSPEC: return true;
    case BLOBMSG_CAST_INT64: return type >= BLOBMSG_TYPE_INT64 && type <= BLOBMSG_TYPE_INT8;
    default: return type == static_cast<int>(wanted);
    }
}

} // namespace

bool blobmsg_check_attr_len(const blob_attr *attr, bool name, std::size_t len) {
    if (len < sizeof(blob_attr)) return false;
    const std::size_t raw = blob_raw_len(attr);
    if (raw < sizeof(blob_attr) || raw > len) return false;
    const std::ptrdiff_t header = name_header(attr, name);
    if (header < 0) return false;
    return sound_value(blobmsg_type(attr), attr->data + header,
                       blob_len(attr) - static_cast<std::size_t>(header));
}

bool blobmsg_check_attr(const blob_attr *attr, bool name) {
    return blobmsg_check_attr_len(attr, name, blob_raw_len(attr));
}

int blobmsg_check_array_len(const blob_attr *attr, int type, std::size_t len) {
    if (type > BLOBMSG_TYPE_LAST || !blobmsg_check_attr_len(attr, false, len)) return -1;
    const int own = blobmsg_type(attr);
    if (own != BLOBMSG_TYPE_TABLE && own != BLOBMSG_TYPE_ARRAY) return -1;

    int count = 0;
    const blob_attr *pos;
    std::size_t rem;
    blobmsg_for_each_attr (pos, attr, rem) {
        if (type != BLOBMSG_TYPE_UNSPEC && blobmsg_type(pos) != type) return -1;
        if (!blobmsg_check_attr_len(pos, own == BLOBMSG_TYPE_TABLE, rem)) return -1;
        ++count;
    }
    return count;
}

int blobmsg_check_array(const blob_attr *attr, int type) {
    return blobmsg_check_array_len(attr, type, blob_raw_len(attr));
}

bool blobmsg_check_attr_list_len(const blob_attr *attr, int type, std::size_t len) {
    return blobmsg_check_array_len(attr, type, len) >= 0;
}

bool blobmsg_check_attr_list(const blob_attr *attr, int type) { return blobmsg_check_array(attr, type) >= 0; }

int blobmsg_parse(const blobmsg_policy *policy, int policy_len, blob_attr **tb, void *data,
                  unsigned int len) {
    std::fill_n(tb, std::max(policy_len, 0), nullptr);
    if (!data || !len) return -EINVAL;

    int first = 0; // entry without a member; members mostly come in the order of the policy
    blob_attr *pos;
    __blob_for_each_attr (pos, data, len) {
        if (!blobmsg_check_attr_len(pos, false, len)) return -1;
        if (!blob_is_extended(pos)) continue;
        const auto *hdr = static_cast<const blobmsg_hdr *>(blob_data(pos));
        const auto *name = reinterpret_cast<const char *>(hdr->name);
        const std::size_t namelen = blobmsg_namelen(hdr);
        if (namelen >= policy_name_limit) continue;

        while (first < policy_len && tb[first]) ++first;
        for (int i = first; i < policy_len; ++i) {
            // A stored name may hold a NUL, hence both lengths. The first character decides nearly always.
            const char *wanted = policy[i].name;
            if (tb[i] || !wanted || wanted[0] != name[0] || !fits(pos, policy[i].type)) continue;
            if (std::strcmp(wanted, name) == 0 && std::strlen(wanted) == namelen) tb[i] = pos;
        }
    }
    return 0;
}

int blobmsg_parse_array(const blobmsg_policy *policy, int policy_len, blob_attr **tb, void *data,
                        unsigned int len) {
    std::fill_n(tb, std::max(policy_len, 0), nullptr);

    int slot = 0;
    blob_attr *pos;
    __blob_for_each_attr (pos, data, len) {
        if (slot >= policy_len) break;
        const int wanted = policy[slot].type;
        if (wanted == BLOBMSG_CAST_INT64) break; // no element has this type
        if (wanted != BLOBMSG_TYPE_UNSPEC && blobmsg_type(pos) != wanted) continue;
        if (!blobmsg_check_attr_len(pos, false, len)) return -1;
        tb[slot++] = pos;
    }
    return 0;
}
