// query.h - the command "wsm-collector query": what a store knows, on the standard output.
#pragma once

// The words behind "query". Returns the exit status.
int run_query(int argc, char **argv);
