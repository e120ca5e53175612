// departure.h - a station leaves: why, as far as it is known, remembered and told. The reports and the table are the caller's.
#pragma once

#include "model/record.h"

enum class departure_cause : std::uint8_t;

// What ended the stay of a station whose disassociation event has given this reason (docs/bus-api.md, Reasons).
departure_cause sta_cause_of_reason(std::int32_t reason_code) noexcept;

// Remembers and tells the departure of a station that an event has told of; its record has the final figures. A reason that
// says no more than that the access point did it is a kick where one was asked for.
void sta_departed_by_event(const sta_info_t *sta) noexcept;

// The same for one that is only absent.
void sta_departed_by_absence(const sta_info_t *sta, departure_cause cause) noexcept;
