// Sizes and regions, and how they are written.

#include "veldrane_mrv/polarization/geometry.hpp"

#include <gtest/gtest.h>

#include <limits>

namespace {

using namespace veldrane_mrv::polarization;

TEST(Geometry, is_written_with_columns_before_rows) {
    EXPECT_EQ(to_string(Size{.width = 2448, .height = 2048}), "2448 x 2048");
    EXPECT_EQ(
        to_string(Region{.column = 16, .row = 8, .width = 640, .height = 480}),
        "640 x 480 at column 16, row 8");
    EXPECT_EQ(region_of({40, 20}), (Region{0, 0, 40, 20}));
}

TEST(Geometry, tells_which_regions_lie_in_a_frame) {
    constexpr std::size_t huge = std::numeric_limits<std::size_t>::max();
    Size const frame{40, 20};
    EXPECT_TRUE(fits({0, 0, 40, 20}, frame));
    EXPECT_TRUE(fits({39, 19, 1, 1}, frame));
    for (Region const& region :
         {Region{0, 0, 41, 20}, Region{0, 0, 40, 21}, Region{1, 0, 40, 20}, Region{0, 1, 40, 20},
          Region{0, 0, 0, 20}, Region{0, 0, 40, 0}, Region{40, 0, 1, 1}, Region{huge, 0, 2, 1},
          Region{0, huge, 1, 2}, Region{2, 2, huge, huge}}) {
        EXPECT_FALSE(fits(region, frame)) << to_string(region);
    }
}

} // namespace
