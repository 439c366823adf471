// Numbers beside the scales of calibration maps.
#include "output/map_pictures.hpp"

#include <gtest/gtest.h>

namespace {

using polarize_tool::tick_text;

TEST(Map_pictures, ticks_have_the_digits_of_their_step_far_from_0_too) {
    EXPECT_EQ(tick_text(1023.5, 0.5), "1023.50");
    EXPECT_EQ(tick_text(1024.0, 0.5), "1024.00");
    EXPECT_EQ(tick_text(1021.5, 2.5), "1021.5");
    EXPECT_EQ(tick_text(64000, 1000), "64000");
    EXPECT_EQ(tick_text(-0.25, 0.125), "-0.25");
    EXPECT_EQ(tick_text(1.0005, 0.0005), "1.00050");
}

} // namespace
