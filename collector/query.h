// query.h - the command "wsm-collector query": prints what a store has.
#pragma once

// The words after "query". Returns the exit status.
int run_query(int argc, char **argv);
