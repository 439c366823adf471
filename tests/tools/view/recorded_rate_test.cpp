// How fast a recording plays that tells when its frames were taken.
#include "view/recorded_rate.hpp"

#include <cstdint>
#include <gtest/gtest.h>

namespace {

using namespace polarize_tool;

std::vector<Frame_place> frames_at(char const* file, std::vector<std::uint64_t> const& times_ms) {
    std::vector<Frame_place> frames;
    frames.reserve(times_ms.size());
    for (std::uint64_t const time : times_ms) {
        frames.push_back({file, frames.size(), times_ms.size(), {{0, time * 1'000'000, 0}}});
    }
    return frames;
}

TEST(Recorded_rate, is_that_of_most_frames) {
    EXPECT_FALSE(recorded_rate({}));
    EXPECT_FALSE(recorded_rate({{"frame.png"}, {"other.png"}}));
    EXPECT_FALSE(recorded_rate(frames_at("a.raw", {7, 7, 7})));
    EXPECT_EQ(recorded_rate(frames_at("a.raw", {100, 150})), 20.0);
    auto frames = frames_at("a.raw", {100, 150, 200, 950, 1000, 1050}); // some were lost
    EXPECT_EQ(recorded_rate(frames), 20.0);
    for (Frame_place const& other : frames_at("b.raw", {3'600'000, 3'600'050})) {
        frames.push_back(other);
    }
    EXPECT_EQ(recorded_rate(frames), 20.0);
    EXPECT_FALSE(recorded_rate({frames[0], frames.back()}));
}

} // namespace
