// The input is a request as the HTTP library hands it on, path and arguments separated by zero bytes: name, value, name...
// The answer is JSON, and every refusal says why.
#include "../require.h"
#include "collector/live.h"

#if WITH_HTTP
#include "collector/http/api.h"

#include <json-c/json.h>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    std::vector<std::string> words(1);
    for (std::size_t i = 0; i < size; ++i) {
        if (data[i] == 0)
            words.emplace_back();
        else
            words.back() += static_cast<char>(data[i]);
    }
    api_arguments arguments;
    for (std::size_t i = 1; i + 1 < words.size(); i += 2) arguments[words[i]] = words[i + 1];
    api_sources from;
    from.view = std::make_shared<live_view>();
    stay one, other;
    one.mac = "02:00:00:00:00:01";
    one.ap = "02:54:4b:00:00:01";
    one.ssid = "Lobby";
    one.channel = 6;
    other.mac = "02:00:00:00:00:02";
    other.signal = {-50, -50, -50, -50, 1};
    other.addresses = {{"10.0.0.7", 0, 0}};
    from.view->begin_with({one, other});
    from.names = std::make_shared<const station_names>(station_names::parse(words[0]));
    from.store = "/nonexistent/store";
    from.outputs = [] { return std::vector<output_figures>{{"print", 1, 2, 3}}; };
    const api_answer answer = answer_api(from, "/api/v1/" + words[0], arguments);
    json_object *parsed = json_tokener_parse(answer.body.c_str());
    require(parsed != nullptr, "an answer is JSON");
    require(answer.status == 200 || json_object_object_get(parsed, "error"), "a refusal says why");
    if (words[0] == "stations" && answer.status == 200)
        require(json_object_array_length(parsed) <= (arguments["limit"] == "1" ? 1U : 2U),
                "no more stations than asked for");
    json_object_put(parsed);
    require(!write_metrics(from).empty(), "there are metrics");
    return 0;
}
#else
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *, std::size_t) { return 0; }
#endif
