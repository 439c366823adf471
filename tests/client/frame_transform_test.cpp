// One object against the function or class of each way, the bits of all planes compared.

#include "guarded_planes.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/fast_transform.hpp"
#include "veldrane_mrv/polarization/frame_transform.hpp"

#include "support/matrices.hpp"
#include "support/samples.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <iostream>
#include <utility>
#include <vector>

namespace client_test {
namespace {

using namespace polarization;

// With and without vector blocks and strips, parities that differ, a larger frame before smaller.
constexpr std::array<Size, 5> sizes{{{149, 40}, {48, 7}, {3, 2}, {31, 23}, {64, 41}}};

Settings settings_of(std::size_t seed) {
    return {
        Mosaic::from_phase(static_cast<int>(seed % 4)),
        Scale{12},
        {support::make_matrices(support::Matrix_kind::random, static_cast<int>(seed % 4), seed)}};
}

support::Samples samples_of(Size const& size) {
    return support::make_samples(
        support::Sample_kind::random_12_bit, size.height, size.width, size.width);
}

/// By the function or class that the options and planes name.
void transform_by_hand(
    Frame_view const& frame, Settings const& settings, Transform_options const& options,
    Plane_views const& planes, Signed_views const& signed_planes) {
    if (!signed_planes.s1.empty() || !signed_planes.s2.empty()) {
        Signed_transform{settings, options.mode, options.final_pixel}(frame, planes, signed_planes);
    } else if (options.mode == Mode::calibrated) {
        Calibrated_transform{settings, options.final_pixel}(frame, planes);
    } else {
        transform(frame, settings, planes);
    }
}

TEST(Frame_transform, takes_the_way_that_options_and_planes_ask_for) {
    std::size_t frames = 0;
    for (Transform_options const& options :
         {Transform_options{}, Transform_options{Mode::calibrated},
          Transform_options{Mode::calibrated, Final_pixel::as_processed}}) {
        Settings const settings = settings_of(frames + 1);
        Frame_transform moved_from{settings, options};
        Frame_transform transform = std::move(moved_from);
        for (Size const& size : sizes) {
            for (Plane_set const& with_signs :
                 {Plane_set{}, Plane_set{Plane::s2}, Plane_set{Plane::s1, Plane::s2}}) {
                support::Samples const samples = samples_of(size);
                Frame_view const frame{samples, size.height, size.width};
                Planes planes{size.height, size.width, Plane_set::all()};
                Planes expected = planes;
                Signed_planes signed_planes{size.height, size.width, with_signs};
                Signed_planes signed_expected = signed_planes;
                // What an earlier frame has left there.
                std::ranges::fill(planes.views().normalized_stokes, 7.0F);
                transform(frame, planes.views(), signed_planes.views());
                transform_by_hand(
                    frame, settings, options, expected.views(), signed_expected.views());
                EXPECT_EQ(first_difference(planes.views(), expected).value_or("equal"), "equal");
                EXPECT_EQ(signed_planes.s1, signed_expected.s1);
                EXPECT_EQ(signed_planes.s2, signed_expected.s2);
                ++frames;
            }
        }
    }
    std::cout << frames << " frames compared with one of each way\n";
}

// The packed plane of a frame with vector blocks has places that nothing is stored at.
TEST(Frame_transform, leaves_nan_where_fast_mode_stores_nothing) {
    Size const size{.width = 64, .height = 40};
    support::Samples const samples(size.height * size.width, 100);
    Frame_transform transform{ideal_settings(Mosaic::from_phase(1), Scale{12})};
    std::vector<float> stokes(2 * samples.size(), 7.0F);
    Plane_views planes;
    planes.normalized_stokes = stokes;
    transform({samples, size.height, size.width}, planes);
    EXPECT_GT(std::ranges::count_if(stokes, [](float value) { return std::isnan(value); }), 0);
    EXPECT_EQ(std::ranges::count(stokes, 7.0F), 0);
}

// Otherwise what is stored nowhere would be left from the frame before.
TEST(Frame_transform, needs_memory_filled_once_for_frames_of_a_size) {
    Size const size{.width = 64, .height = 41};
    Settings const settings = settings_of(3);
    Frame_transform filling{settings};
    Frame_transform keeping{settings, {.fills_normalized_stokes = false}};
    Planes expected{size.height, size.width, {Plane::normalized_stokes}};
    Planes planes = expected;
    for (std::uint16_t const level : std::array<std::uint16_t, 3>{100, 200, 0}) {
        support::Samples samples(size.height * size.width, level);
        samples[level] = 4000;
        Frame_view const frame{samples, size.height, size.width};
        filling(frame, expected.views());
        keeping(frame, planes.views());
        EXPECT_EQ(first_difference(planes.views(), expected).value_or("equal"), "equal");
    }
    std::vector<float> stokes(2 * size.width * size.height, 7.0F);
    Plane_views untouched;
    untouched.normalized_stokes = stokes;
    support::Samples const samples(size.width * size.height, 100);
    keeping({samples, size.height, size.width}, untouched);
    EXPECT_GT(std::ranges::count(stokes, 7.0F), 0);
}

TEST(Frame_transform, touches_nothing_when_it_refuses) {
    support::Samples const samples(40 * 64, 100);
    Guarded_planes memory{samples.size()};
    for (Mode const mode : {Mode::fast, Mode::calibrated}) {
        Frame_transform transform{ideal_settings(Mosaic::from_phase(1), Scale{12}), {mode}};
        Plane_views const all = memory.lay(samples.size(), Plane_set::all(), support::Edge::end);
        std::vector<std::int32_t> signed_plane(samples.size() - 1, 77);
        EXPECT_THROW(transform({samples, 40, 64}, all, {signed_plane, {}}), Argument_error);
        Plane_views short_one = all;
        short_one.dolp = all.dolp.first(1);
        EXPECT_THROW(transform({samples, 40, 64}, short_one), Argument_error);
        EXPECT_TRUE(Guarded_planes::untouched(all));
        EXPECT_EQ(std::ranges::count(signed_plane, 77), 2559);
    }
}

} // namespace
} // namespace client_test
