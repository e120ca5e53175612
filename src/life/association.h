// association.h - a station associates or disassociates: its record is made, filled, reported and added, or reported and
// removed.
//
// Logs:   level 7, in the name of g_sta_recv_msg.   Blocks: as reports and configuration look-ups do.
#pragma once

class sta_configuration;
struct station_change;

void sta_associate(const station_change &change, sta_configuration &configuration) noexcept;

// Also for a station that roams to another access point: its record then stays until the driver reports its departure, or has
// not listed it for 300 seconds.
void sta_disassociate(const station_change &change, sta_configuration &configuration) noexcept;
