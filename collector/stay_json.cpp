#include "collector/stay_json.h"

#include <algorithm>

json_fields stay_json(const stay &one, const station_names &names) {
    const auto bytes = [](std::uint64_t value) {
        return static_cast<std::int64_t>(std::min<std::uint64_t>(value, INT64_MAX));
    };
    json_fields fields;
    fields.number("id", one.id)
        .text("mac", one.mac)
        .text("name", names.of(one.mac))
        .text("state", presence_name(one.state));
    fields.text("ap", one.ap)
        .number("radio", one.radio)
        .number("channel", one.channel)
        .text("ssid", one.ssid);
    fields.text("ifname", one.ifname).text("ip", one.addresses.empty() ? "" : one.addresses.back().ip);
    fields.time("began", one.began).time("seen", one.seen);
    one.ended != 0 ? fields.time("ended", one.ended) : fields.null("ended");
    fields.number("seconds", ((one.ended != 0 ? one.ended : one.seen) - one.began) / second);
    fields.number("roams", one.roams).number("returns", one.returns).number("reports", one.reports);
    if (one.signal.count > 0)
        fields.number("signal", one.signal.last)
            .number("signal_least", one.signal.least)
            .real("signal_mean", static_cast<double>(one.signal.sum) / static_cast<double>(one.signal.count))
            .number("signal_most", one.signal.most);
    else
        fields.null("signal").null("signal_least").null("signal_mean").null("signal_most");
    fields.number("up", bytes(one.up.total)).number("down", bytes(one.down.total));
    fields.number("raw_up", bytes(one.up.raw)).number("raw_down", bytes(one.down.raw));
    fields.number("rate_up", one.rate_up).number("rate_down", one.rate_down).number("max_rate", one.max_rate);
    one.noise != 0 ? fields.number("noise", one.noise) : fields.null("noise");
    fields.number("utilization", one.utilization).text("version", one.version).flag("repeater", one.repeater);
    fields.text("reason", one.reason).number("reason_code", one.reason_code).text("ended_by", one.ended_by);
    return fields;
}

json_fields change_json(const change &what, const station_names &names) {
    json_fields fields;
    fields.text("kind", change_name(what.kind)).time("at", what.at);
    if (what.kind == change_kind::roamed)
        fields.text("from_ap", what.from_ap).number("from_radio", what.from_radio);
    fields.written("station", stay_json(what.now, names).write());
    return fields;
}
