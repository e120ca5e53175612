// reason.h - names of the driver's reason codes of a departure.
#pragma once

extern "C" {
// The name of `code`, a constant text; "OW_STA_SUCCESS" for every code without a name (a gap is not an
// error).
const char *sta_off_reason_name(int code);
}
