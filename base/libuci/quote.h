// quote.h - the written form of values, in packages and deltas.
#pragma once

#include <cstdio>

namespace uci {

// Puts the text in single quotes; one inside it becomes '\''. Errors are left to ferror().
void write_quoted(FILE *out, const char *text);

} // namespace uci
