// memory.h - allocations that fail. Counted are the daemon's own calls of malloc, calloc, realloc and strdup
// (those of the counting allocator among them), not what libraries allocate for themselves.
#pragma once

// The `nth` allocation from now on fails, once; 1 is the next one. 0: none.
void fail_allocation(unsigned nth);

// True when the failure that was asked for has happened. A test can fail the first, the second, ... until it
// is false.
bool allocation_failed();

// Counts an allocation; true when it is the one to fail. For a test that stands in for functions which allocate.
bool next_allocation_fails();
