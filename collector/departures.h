// departures.h - who ended a stay, from the driver's reason codes.
#pragma once

// "station", "access point", "silence" (nothing was received from it any more), or "unknown".
const char *ended_by(int reason_code);
