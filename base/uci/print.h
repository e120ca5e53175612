// print.h - configuration as text for people and scripts.
#pragma once

#include "settings.h"

#include <uci.h>

namespace cli {

// The value of an option: raw, list items with white space in them quoted.
void print_value(const settings &set, uci_option *o);

// "p.s=type" and "p.s.o='value'" lines; the name is how the section is called in them.
void print_option(const settings &set, const char *section, uci_option *o);
void print_section(const settings &set, const char *name, uci_section *s);
void print_package(const settings &set, uci_package *p);

// The recorded changes of a package, one line each.
void print_changes(uci_package *p);

} // namespace cli
