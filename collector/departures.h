// departures.h - who ended a stay, from the driver's reason codes.
#pragma once

// "station", "access point", "silence" (the station went without a word), or "unknown".
const char *ended_by(int reason_code);
