// wsmd-fields: prints the fields of every layout that two programs share, one on a line, from the lists that the programs
// expand: LAYOUT <tab> columns... <tab> FIELD. The tables of docs/formats.md are compared with it.
#include "protocol/backup_line.h"
#include "protocol/driver_request.h"
#include "protocol/station_event.h"
#include "protocol/station_report.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <type_traits>
#include <vector>

namespace {

struct field {
    std::size_t offset;
    std::size_t size;
    std::string type;
    const char *name;
};

template <class T> std::string type_name() {
    if constexpr (std::is_array_v<T>)
        return "text";
    else if constexpr (std::is_same_v<T, report_clock>)
        return "clock";
    else
        return (std::is_signed_v<T> ? "i" : "u") + std::to_string(8 * sizeof(T));
}

void print(const char *layout, std::size_t size, std::vector<field> fields) {
    std::printf("%s.size\t%zu\n", layout, size);
    std::sort(fields.begin(), fields.end(),
              [](const field &one, const field &other) { return one.offset < other.offset; });
    for (const field &each : fields)
        std::printf("%s\t%zu\t%zu\t%s\t%s\n", layout, each.offset, each.size, each.type.c_str(), each.name);
}

} // namespace

int main() {
#define NUM(type, name, offset) {offset, sizeof(type), type_name<type>(), #name},
#define TEXT(name, offset, bytes) {offset, bytes, "text", #name},
#define MAC(offset) {offset, 6, "bytes", "mac"},
#define REPORT(type, name, offset) NUM(type, name, offset)
    print("station_report", station_report_size, {STATION_REPORT_FIELDS(REPORT)});
    print("station_event", station_event_size,
          {STATION_EVENT_FIELDS(NUM, TEXT) MAC(station_event_mac_offset)});
    print("driver_basic", table_basic_size, {DRIVER_BASIC_FIELDS(NUM, TEXT) MAC(basic_mac_offset)});
    print("driver_extended", table_extended_size, {DRIVER_EXTENDED_FIELDS(NUM, TEXT)});
#undef NUM
#undef TEXT
#undef MAC
#undef REPORT

    unsigned place = 0;
    const auto line = [&place](const char *type, const char *name) {
        std::printf("backup_line\t%u\t%s\t%s\n", ++place, type, name);
    };
#define MAC(name) line("MAC", #name);
#define TEXT(name, instead) line("text", #name);
#define NUMBER(type, name) line("number", #name);
#define SHOWN_TEXT(name) line("shown text", #name);
#define SHOWN_NUMBER(name) line("shown number", #name);
    BACKUP_FIELDS(MAC, TEXT, NUMBER, SHOWN_TEXT, SHOWN_NUMBER)
    return 0;
}
