#include "collector/departures.h"

const char *ended_by(int reason_code) {
    switch (reason_code) {
    case 307: // deauthentication received
    case 308: // disassociation received
    case 311:
    case 312: return "station";
    case 300: return "silence"; // inactivity
    case 0: return "unknown";   // retired, swept, or not reported
    default: return reason_code >= 102 && reason_code <= 313 ? "access point" : "unknown";
    }
}
