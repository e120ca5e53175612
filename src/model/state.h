// state.h - where a station stands in its life, and the only writer of it: of `status`, of the flags that say where it
// comes from, and of the table's online count. docs/architecture.md has the picture.
#pragma once

#include "model/record.h"

// What happens to a station.
enum class station_step {
    associated, // a record was made for it: it waits for its first five-second pass
    restored,   // the same, out of the backup file: nobody has confirmed it yet
    completed,  // the pass gave it address, name and figures: it is on line
    returned,   // it has associated once more: as the new record says, and it waits for a pass again
    left,       // its record goes
};

// Moves the station. `incoming` is the new association's record, for `returned` alone.
void sta_state_move(sta_info_t *sta, station_step step, const sta_info_t *incoming = nullptr) noexcept;

// Nobody is on line: the table begins.
void sta_state_begin() noexcept;
