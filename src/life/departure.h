// departure.h - a station leaves: finds the cause, remembers the departure and sends the event. Reports and the table are left to
// the caller.
#pragma once

#include "model/record.h"

enum class departure_cause : std::uint8_t;

// The cause that belongs to a reason of a disassociation event (docs/bus-api.md, Reasons).
departure_cause sta_cause_of_reason(std::int32_t reason_code) noexcept;

// Remembers a departure that the driver has reported, and sends its event; the record has the final figures. If the reason
// only says that the access point ended it, and somebody had asked for a kick, the cause is the kick.
void sta_departed_by_event(const sta_info_t *sta) noexcept;

// The same for a departure that is inferred from the station's absence.
void sta_departed_by_absence(const sta_info_t *sta, departure_cause cause) noexcept;
