#include "tools/run/pipe_view.h"

#include <gtest/gtest.h>

namespace {

TEST(PipeText, IsOneLineAsWideAsTheTerminal) {
    EXPECT_EQ(pipe_text(1048576, 12, 1024, 0, 79), "1.0 MiB 0:00:12 [1.0 KiB/s]");
    EXPECT_EQ(pipe_text(512, 1, 512, 1024, 62),
              "512 B 0:00:01 [512 B/s] [=========>        ]  50 % ETA 0:00:01");
    for (size_t width = 1; width < 100; ++width) {
        EXPECT_LE(pipe_text(512, 1, 512, 1024, width).size(), width);
    }
}

} // namespace
