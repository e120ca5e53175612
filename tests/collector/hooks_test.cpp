// A program of the user's that does not end.
#include "collector/hooks.h"

#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

TEST(a_program_that_takes_too_long, is_killed_with_its_children) {
    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("wsm-hooks-test-" + std::to_string(getpid()));
    std::filesystem::create_directory(folder);
    const std::string pipe = folder / "alive", program = folder / "hook";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    std::ofstream(program) << "#!/bin/sh\nexec > " << pipe << "\necho begun\nsleep 600 &\nsleep 600\n";
    std::filesystem::permissions(program, std::filesystem::perms::owner_all);

    hooks out(program, std::make_shared<const station_names>(), 1);
    change joined;
    joined.kind = change_kind::joined;
    out.take({{}, joined});
    const int reader = open(pipe.c_str(), O_RDONLY | O_CLOEXEC); // once it has begun
    EXPECT_TRUE(out.finish());
    std::string told;
    char text[64];
    // Both hold the other end: the reader sees its end when both have gone.
    for (ssize_t got = 0; (got = read(reader, text, sizeof(text))) > 0;)
        told.append(text, static_cast<std::size_t>(got));
    EXPECT_EQ(told, "begun\n");
    close(reader);
    std::filesystem::remove_all(folder);
}

} // namespace
