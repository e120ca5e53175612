// state.h - a station's state and its only writer: it sets `status`, the flags that go with it, and the
// table's online count. docs/architecture.md has a picture.
#pragma once

#include "model/record.h"

// What happens to a station.
enum class station_step {
    associated, // its record was made and waits for its first five-second pass
    restored,   // the same, from the backup file: the driver has not confirmed it yet
    completed,  // the pass gave it address, name and figures: it is online
    returned,   // it associated again: it takes the new record's status and waits for a pass
    left,       // its record leaves the table
};

// Does the step. `incoming` is the new association's record, for `returned` only.
void sta_state_move(sta_info_t *sta, station_step step, const sta_info_t *incoming = nullptr) noexcept;

// Sets the online count to 0 for an empty table.
void sta_state_begin() noexcept;
