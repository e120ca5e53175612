// The input is what a collector receives. The image is decoded, shown in each of the collector's forms, and encoded: encoded
// and decoded again it is the same, so that nothing that the report holds gets lost.
#include "../require.h"
#include "collector/report_writer.h"
#include "protocol/station_report.h"

#include <array>
#include <json-c/json.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size < station_report_size) return 0;
    station_report sta;
    station_report_decode(std::span<const std::uint8_t, station_report_size>(data, station_report_size), sta);

    const std::string json = report_json(sta);
    json_object *shown = json_tokener_parse(json.c_str());
    require(json_object_is_type(shown, json_type_object), "a report is shown as a JSON object");
    json_object_put(shown);
    require(report_line(sta).find('\n') == std::string::npos, "a report is one line");
    require(report_csv(sta).find('\n') == std::string::npos, "a report is one row");

    std::array<std::uint8_t, station_report_size> image{}, again{};
    station_report_encode(sta, image);
    station_report_decode(image, sta);
    station_report_encode(sta, again);
    require(image == again, "the image keeps what the report holds");
    return 0;
}
