// The line that shows how far a run is.
#include "terminal/progress.hpp"

#include <gtest/gtest.h>

namespace {

using polarize_tool::progress_line;

TEST(Progress_line, tells_part_rate_and_rest) {
    EXPECT_EQ(
        progress_line(5, 20, 10'000'000, 2.0),
        "[######..................] 5/20 frames, 5 Mpixel/s, 6 s left");
    EXPECT_EQ(
        progress_line(20, 20, 10'000'000, 2.0),
        "[########################] 20/20 frames, 5 Mpixel/s, 0 s left");
}

} // namespace
