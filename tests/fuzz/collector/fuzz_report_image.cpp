// The input is what a collector receives. The image is decoded, shown in each of the collector's forms, and encoded. Decoded
// once more it must be the same, so that nothing in the record gets lost.
#include "../require.h"
#include "collector/report_writer.h"

#include <array>
#include <json-c/json.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size < station_report_size) return 0;
    station_report report;
    station_report_decode(std::span<const std::uint8_t, station_report_size>(data, station_report_size),
                          report);

    const std::string json = report_json(report, second);
    json_object *shown = json_tokener_parse(json.c_str());
    require(json_object_is_type(shown, json_type_object), "a report is shown as a JSON object");
    json_object_put(shown);
    require(report_line(report, second).find('\n') == std::string::npos, "a report is one line");
    require(report_csv(report, second).find('\n') == std::string::npos, "a report is one row");

    std::array<std::uint8_t, station_report_size> image{}, again{};
    station_report_encode(report, image);
    station_report_decode(image, report);
    station_report_encode(report, again);
    require(image == again, "the image keeps what the report holds");
    return 0;
}
