// The transform as the tools call it: scales, sizes, and planes without a seam.
#include "transform.hpp"

#include "mosaic.hpp"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>

namespace {

using namespace polarize_tool;

std::set<Plane> const all_planes = {Plane::s0,      Plane::s1,   Plane::s2,
                                    Plane::azimuth, Plane::dolp, Plane::normalized_stokes};

class Transform : public testing::Test {
protected:
    void SetUp() override {
        if (!missing_instructions().empty()) {
            GTEST_SKIP() << "this processor lacks " << missing_instructions();
        }
    }
};

TEST(Output_scale, default_never_selects_sample_units_and_never_clips) {
    for (int bit_depth = 1; bit_depth <= 16; ++bit_depth) {
        Output_scale const scale = output_scale(bit_depth, std::nullopt);
        int const sensor = (1 << bit_depth) - 1;
        EXPECT_NE(scale.maximum_output_integer, sensor) << bit_depth;
        EXPECT_EQ(scale.maximum_input, static_cast<float>(2 * sensor)) << bit_depth;
        EXPECT_EQ(scale.maximum_output, 65535.0F) << bit_depth;
    }
}

TEST(Output_scale, sensors_full_scale_selects_sample_units_and_any_other_rescaling) {
    for (int bit_depth = 1; bit_depth <= 16; ++bit_depth) {
        int const sensor = (1 << bit_depth) - 1;
        EXPECT_EQ(
            output_scale(bit_depth, static_cast<unsigned>(sensor)).maximum_output_integer, sensor);
        for (unsigned const other : {1U, 2U, 100U, 4094U, 4096U, 65534U, 65535U}) {
            if (static_cast<int>(other) != sensor) {
                Output_scale const scale = output_scale(bit_depth, other);
                EXPECT_NE(scale.maximum_output_integer, sensor);
                EXPECT_EQ(scale.maximum_output, static_cast<float>(other));
                EXPECT_EQ(scale.maximum_input, static_cast<float>(2 * sensor));
            }
        }
    }
}

TEST(Processor, what_it_lacks_is_named) {
    EXPECT_EQ(missing_instructions(true, true), "");
    EXPECT_EQ(missing_instructions(false, true), "AVX2");
    EXPECT_EQ(missing_instructions(true, false), "FMA");
    EXPECT_EQ(missing_instructions(false, false), "AVX2 and FMA");
}

TEST(Frame_size, limits_of_the_contract) {
    auto const accepted = [](std::size_t width, std::size_t height) {
        return size_problem(Frame{width, height, {}}).empty();
    };
    EXPECT_TRUE(accepted(2, 2));
    EXPECT_TRUE(accepted(3, 2));
    EXPECT_TRUE(accepted(15, 2));
    EXPECT_TRUE(accepted(16, 3));
    EXPECT_FALSE(accepted(15, 3));
    EXPECT_FALSE(accepted(1, 2));
    EXPECT_FALSE(accepted(100, 1));
    EXPECT_NE(size_problem(Frame{15, 3, {}}).find("15 x 3"), std::string::npos);
}

// A uniform scene: every cell holds the same four samples, by angle 0, 45, 90, 135.
constexpr std::array<std::array<std::uint16_t, 4>, 9> cells = {
    {{2900, 1800, 700, 1500},
     {700, 1500, 2900, 1800},
     {1000, 4000, 1010, 1},
     {1, 1010, 4000, 1000},
     {2000, 2000, 2000, 2000},
     {3000, 3000, 1000, 1000},
     {1000, 1000, 3000, 3000},
     {4095, 4095, 4095, 4095},
     {60, 44, 40, 55}}};

Frame uniform(
    std::array<std::uint16_t, 4> const& by_angle, int phase, std::size_t width,
    std::size_t height) {
    Frame frame{width, height, {}};
    for (std::size_t row = 0; row < height; ++row) {
        for (std::size_t column = 0; column < width; ++column) {
            frame.samples.push_back(
                by_angle[static_cast<std::size_t>(polariser_angle(phase, row, column) / 45)]);
        }
    }
    return frame;
}

// Whether the weights of its own position do not reach the pixel.
bool is_exempt(Frame const& frame, std::size_t index) {
    return index + 1 == frame.samples.size() && (frame.width + frame.height) % 2 == 1;
}

struct Spread {
    double low = 1e9;
    double high = -1e9;
};

Spread spread(Frame const& frame, std::vector<std::uint16_t> const& plane) {
    Spread found;
    for (std::size_t index = 0; index < plane.size(); ++index) {
        if (!is_exempt(frame, index)) {
            found.low = std::min<double>(found.low, plane[index]);
            found.high = std::max<double>(found.high, plane[index]);
        }
    }
    return found;
}

constexpr double reciprocal_error = 1.5 / 4096.0;

// Widths with vector blocks, tail and both endings; heights with row pairs and both endings.
constexpr std::array<std::pair<std::size_t, std::size_t>, 4> parities = {
    {{50, 8}, {51, 8}, {50, 9}, {51, 9}}};

void check_uniform(
    std::array<std::uint16_t, 4> const& cell, int phase, Frame const& frame,
    std::optional<unsigned> full_scale) {
    Transform_result const result = transform(frame, {phase, 12, full_scale, all_planes, 1});
    Output_scale const scale = output_scale(12, full_scale);
    bool const keeps_units = scale.maximum_output_integer != 0;
    double const m = static_cast<double>(scale.maximum_output);
    double const factor = keeps_units ? 1.0 : m / static_cast<double>(scale.maximum_input);
    double const s0 = (cell[0] + cell[1] + cell[2] + cell[3]) / 2.0;
    double const s1 = cell[0] - cell[2];
    double const s2 = cell[1] - cell[3];
    std::pair<Plane, double> const stokes[] = {{Plane::s0, s0}, {Plane::s1, s1}, {Plane::s2, s2}};
    for (auto const& [plane, value] : stokes) {
        SCOPED_TRACE(name_of(plane));
        Spread const found = spread(frame, result.plane(plane));
        double const expected = std::clamp(value * factor, 0.0, m);
        if (keeps_units) {
            EXPECT_EQ(found.low, found.high);
            EXPECT_NEAR(found.low, expected, 0.5);
        } else {
            EXPECT_GE(found.low, expected * (1.0 - reciprocal_error) - 1.0);
            EXPECT_LE(found.high, std::min(m, expected * (1.0 + reciprocal_error) + 1.0));
        }
    }
    Spread const azimuth = spread(frame, result.plane(Plane::azimuth));
    EXPECT_LE(azimuth.high - azimuth.low, 1.0);
    double const degrees = std::atan2(s2, s1) * 90.0 / M_PI + 90.0;
    EXPECT_NEAR(azimuth.low, degrees * m / 180.0, 0.2 * m / 180.0 + 1.0);
    Spread const degree = spread(frame, result.plane(Plane::dolp));
    double const expected_degree = std::min(1.0, std::hypot(s1, s2) / s0) * m;
    EXPECT_GE(degree.low, expected_degree * (1.0 - reciprocal_error) - 1.0);
    EXPECT_LE(degree.high, expected_degree * (1.0 + reciprocal_error) + 1.0);
}

TEST_F(Transform, uniform_scene_shows_no_seam) {
    int frames = 0;
    for (int phase = 0; phase < phase_count; ++phase) {
        for (auto const& [width, height] : parities) {
            for (auto const& cell : cells) {
                for (std::optional<unsigned> const full_scale :
                     {std::optional<unsigned>(), std::optional<unsigned>(4095U),
                      std::optional<unsigned>(1000U)}) {
                    SCOPED_TRACE(
                        testing::Message()
                        << "phase " << phase << ", " << width << " x " << height << ", cell "
                        << cell[0] << " " << cell[1] << " " << cell[2] << " " << cell[3]
                        << ", full scale " << full_scale.value_or(0));
                    check_uniform(cell, phase, uniform(cell, phase, width, height), full_scale);
                    ++frames;
                }
            }
        }
    }
    std::printf("%d frames\n", frames);
    EXPECT_EQ(frames, 4 * 4 * 9 * 3);
}

// The test above must be able to fail: weights or blocks of another phase make a seam.
TEST_F(Transform, wrong_phase_shows_a_seam) {
    Frame const frame = uniform(cells[0], 0, 50, 8);
    Transform_result const result = transform(frame, {2, 12, 4095U, all_planes, 1});
    double const s1 = cells[0][0] - cells[0][2];
    EXPECT_NE(spread(frame, result.plane(Plane::s1)).low, s1);
}

TEST_F(Transform, brightest_frame_of_16_bits_does_not_clip_by_default) {
    Frame const frame{40, 6, std::vector<std::uint16_t>(240, 65535)};
    Transform_result const brightest = transform(frame, {0, 16, std::nullopt, {Plane::s0}, 1});
    Frame const dimmer{40, 6, std::vector<std::uint16_t>(240, 49151)};
    Transform_result const dim = transform(dimmer, {0, 16, std::nullopt, {Plane::s0}, 1});
    EXPECT_GE(spread(frame, brightest.plane(Plane::s0)).low, 65535.0 * (1.0 - reciprocal_error));
    EXPECT_LE(spread(frame, dim.plane(Plane::s0)).high, 0.7501 * 65535.0);
    Transform_result const clipped = transform(dimmer, {0, 16, 65535U, {Plane::s0}, 1});
    EXPECT_EQ(spread(frame, clipped.plane(Plane::s0)).low, 65535.0);
}

TEST_F(Transform, only_requested_planes_are_computed) {
    Frame const frame = uniform(cells[0], 0, 50, 8);
    Transform_result const all = transform(frame, {0, 12, std::nullopt, all_planes, 3});
    EXPECT_EQ(all.milliseconds.size(), 3U);
    for (Plane const plane : all_planes) {
        Transform_result const one = transform(frame, {0, 12, std::nullopt, {plane}, 1});
        EXPECT_EQ(one.normalized_stokes.empty(), plane != Plane::normalized_stokes);
        for (Plane const other : {Plane::s0, Plane::s1, Plane::s2, Plane::azimuth, Plane::dolp}) {
            if (other == plane) {
                EXPECT_EQ(one.plane(plane), all.plane(plane));
            } else {
                EXPECT_TRUE(one.plane(other).empty());
            }
        }
    }
}

TEST_F(Transform, float_plane_of_a_narrow_frame_is_whole_and_signed) {
    Frame const frame = uniform(cells[1], 3, 31, 7);
    Transform_result const result =
        transform(frame, {3, 12, std::nullopt, {Plane::normalized_stokes}, 1});
    ASSERT_EQ(result.normalized_stokes.size(), 2 * frame.samples.size());
    for (std::size_t index = 0; index < frame.samples.size(); ++index) {
        EXPECT_FLOAT_EQ(result.normalized_stokes[2 * index], -2200.0F / 3450.0F);
        EXPECT_FLOAT_EQ(result.normalized_stokes[2 * index + 1], -300.0F / 3450.0F);
    }
}

TEST_F(Transform, float_plane_holds_nan_where_nothing_is_stored) {
    Frame const frame = uniform(cells[1], 3, 32, 4);
    Transform_result const result =
        transform(frame, {3, 12, std::nullopt, {Plane::normalized_stokes}, 1});
    // One block stores 8 of its 16 pixels of the first row; the other 16 floats stay unstored.
    EXPECT_FALSE(std::isnan(result.normalized_stokes[15]));
    EXPECT_TRUE(std::isnan(result.normalized_stokes[16]));
    EXPECT_TRUE(std::isnan(result.normalized_stokes[31]));
    EXPECT_FALSE(std::isnan(result.normalized_stokes[32]));
}

} // namespace
