// api.h - the answers of the HTTP interface, without the transport. docs/collector.md lists the addresses.
//
// Thread: any number at once; it reads only the live view and database connections of its own.
#pragma once

#include "collector/live.h"
#include "collector/names.h"
#include "collector/pipeline.h"

#include <functional>
#include <map>
#include <memory>
#include <string>

struct api_answer {
    int status = 200;
    std::string type = "application/json";
    std::string body;
};

struct api_sources {
    std::shared_ptr<live_view> view;
    std::shared_ptr<const station_names> names;
    std::string store; // the argument of --store; empty: no history
    std::function<std::vector<output_figures>()> outputs;
    moment started = 0;
    std::size_t metrics_stations = 0; // stations that metrics may name
};

using api_arguments = std::map<std::string, std::string>;

// `path` begins with /api/v1/; wrong arguments are status 400, unknown paths 404, both with {"error": text}.
api_answer answer_api(const api_sources &from, const std::string &path, const api_arguments &arguments);

// Prometheus' text format.
std::string write_metrics(const api_sources &from);

// An event of the stream: "event: joined", "data: {...}", an empty line.
std::string event_text(const change &what, const station_names &names);
