// The input is what a collector receives. The image is decoded, shown in each of the collector's forms, and encoded: encoded
// and decoded again it is the same, so that nothing that the record holds gets lost.
#include "../require.h"
#include "collector/report_writer.h"
#include "driver/report_image.h"

#include <array>
#include <json-c/json.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size < sta_report_size) return 0;
    sta_info_t sta;
    sta_report_decode(std::span<const std::uint8_t, sta_report_size>(data, sta_report_size), &sta);

    const std::string json = report_json(sta);
    json_object *shown = json_tokener_parse(json.c_str());
    require(json_object_is_type(shown, json_type_object), "a report is shown as a JSON object");
    json_object_put(shown);
    require(report_line(sta).find('\n') == std::string::npos, "a report is one line");
    require(report_csv(sta).find('\n') == std::string::npos, "a report is one row");

    std::array<std::uint8_t, sta_report_size> image{}, again{};
    sta_report_encode(&sta, image);
    sta_report_decode(image, &sta);
    sta_report_encode(&sta, again);
    require(image == again, "the image keeps what the record holds");
    return 0;
}
