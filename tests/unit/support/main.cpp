#include "support/places.h"

#include <gtest/gtest.h>

// A finding of the sanitizers must not look like the daemon's own exit status 1.
extern "C" const char *__asan_default_options(); // NOLINT(bugprone-reserved-identifier)
extern "C" const char *__asan_default_options() { return "exitcode=99"; }

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    if (!testing::GTEST_FLAG(list_tests)) enter_places();
    return RUN_ALL_TESTS();
}
