// stay_json.h - stays and changes as JSON, in the same form for all outputs. docs/collector.md has the schema.
#pragma once

#include "collector/json.h"
#include "collector/names.h"
#include "collector/stay.h"

json_fields stay_json(const stay &one, const station_names &names);

// {"kind", "at", "station": {...}}, with "from_ap" and "from_radio" for a roam.
json_fields change_json(const change &what, const station_names &names);
