// report_writer.h - decoded reports as text: a line for people, a JSON object, a row of comma-separated
// values. Foreign text is shown escaped in all of them (protocol/escape.h): one report is one line.
#pragma once

#include "collector/received.h"

#include <string>
#include <string_view>

// "online", "offline", "update", "roamed", or the number.
std::string log_type_name(unsigned log_type);

// 2026-03-01 14:05:09 online  02:00:00:00:00:01 ath0/0 "Lobby" -40 dBm ...
std::string report_line(const station_report &sta, moment at);

// Every field of the image under its name in the record, in the image's order, and after them "received", the
// time of receipt: null when it is not known. Clocks are seconds with a fraction.
std::string report_json(const station_report &sta, moment at);

// The same fields, separated by commas; texts in quotation marks. The heading names them.
std::string report_csv_heading();
std::string report_csv(const station_report &sta, moment at);

std::string escaped(std::string_view text);
