// The input is what a broker hands out as a report. What is read is written and read again: it stays the same.
#include "../require.h"
#include "collector/report_reader.h"
#include "collector/report_writer.h"

#include <cstring>

namespace {

std::string published(const received &in) {
    std::string json = report_json(*in.report, in.at);
    json.back() = ',';
    return json + "\"boot\":\"" + in.from->boot + "\",\"seq\":" + std::to_string(in.from->seq) + "}";
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string_view json(reinterpret_cast<const char *>(data), size);
    received first, again;
    std::string why = read_report(json, "wsm/report/02:54:4b:00:00:01", first);
    if (!why.empty()) why = read_report(json, "wsm/report/unknown", first);
    if (!why.empty()) return 0;
    const std::string written = published(first);
    require(read_report(written, "/" + first.from->access_point, again).empty(),
            "what was written can be read");
    require(published(again) == written, "and says the same");
    return 0;
}
