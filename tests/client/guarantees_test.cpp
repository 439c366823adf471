// Each of the things that the processor relies on, broken once in each of the three ways to call
// it: the exception names it, and no plane has been touched.

#include "guarded_planes.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/transform.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <iostream>
#include <limits>
#include <string>
#include <vector>

namespace client_test {
namespace {

using namespace polarization;

/// A call that would do but for what a case changes.
struct Call {
    std::vector<std::uint16_t> samples = std::vector<std::uint16_t>(40 * 64, 100);
    std::size_t height = 40;
    std::size_t width = 64;
    Settings settings = ideal_settings(Mosaic::from_phase(1), Scale{12});
    Plane_views planes;
    Signed_views signed_planes;
};

using Run = std::function<void(Call const&)>;

struct Way {
    char const* name;
    Run run;
};

Frame_view frame_of(Call const& call) {
    return {std::span{call.samples}.first(call.height * call.width), call.height, call.width};
}

std::vector<Way> const& ways() {
    static std::vector<Way> const all = {
        {"fast", [](Call const& call) { transform(frame_of(call), call.settings, call.planes); }},
        {"calibrated",
         [](Call const& call) {
             Calibrated_transform{call.settings}(frame_of(call), call.planes);
         }},
        {"signed fast",
         [](Call const& call) {
             transform_signed(
                 frame_of(call), call.settings, Mode::fast, call.planes, call.signed_planes);
         }},
        {"signed calibrated",
         [](Call const& call) {
             transform_signed(
                 frame_of(call), call.settings, Mode::calibrated, call.planes, call.signed_planes);
         }},
    };
    return all;
}

template <class Element>
std::span<Element> shortened(std::span<Element> plane) {
    return plane.first(plane.size() - 1);
}

struct Case {
    std::string argument;
    std::function<void(Call&)> breaks;
};

std::vector<Case> const& cases() {
    static std::vector<Case> const all = {
        {"the height of the frame", [](Call& call) { call.height = 1; }},
        {"the width of the frame", [](Call& call) { call.width = 1; }},
        {"the width of the frame", [](Call& call) { call.width = 15; }},
        {"the plane s0", [](Call& call) { call.planes.s0 = shortened(call.planes.s0); }},
        {"the plane s1", [](Call& call) { call.planes.s1 = shortened(call.planes.s1); }},
        {"the plane s2", [](Call& call) { call.planes.s2 = shortened(call.planes.s2); }},
        {"the plane azimuth",
         [](Call& call) { call.planes.azimuth = call.planes.azimuth.first(1); }},
        {"the plane dolp", [](Call& call) { call.planes.dolp = shortened(call.planes.dolp); }},
        {"the plane normalized_stokes",
         [](Call& call) {
             call.planes.normalized_stokes = call.planes.normalized_stokes.first(40 * 64);
         }},
        // All planes are a row too long.
        {"the plane s0", [](Call& call) { call.height = 39; }},
        // Memory of another plane, and memory of the frame, by one element.
        {"the plane s1", [](Call& call) { call.planes.s1 = call.planes.s0; }},
        {"the plane dolp",
         [](Call& call) {
             call.planes.dolp = {
                 reinterpret_cast<std::uint16_t*>(call.planes.normalized_stokes.data()) + 2 * 2560,
                 2560};
         }},
        {"the plane s2",
         [](Call& call) {
             call.samples.resize(2 * 2560);
             call.planes.s2 = {call.samples.data() + 2559, 2560};
         }},
        {"weight (2, 1) of the matrix for even rows and odd columns",
         [](Call& call) {
             call.settings.matrices.by_position[1][9] = std::numeric_limits<float>::quiet_NaN();
         }},
        {"weight (0, 0) of the matrix for even rows and even columns",
         [](Call& call) { call.settings.matrices.by_position[0][0] = 1e30F; }},
    };
    return all;
}

TEST(Guarantees, are_checked_before_anything_is_written) {
    Guarded_planes memory{40 * 64};
    std::size_t refused = 0;
    for (Way const& way : ways()) {
        for (Case const& broken : cases()) {
            Call call;
            Plane_views const all = memory.lay(40 * 64, Plane_set::all(), support::Edge::end);
            std::vector<std::int32_t> signed_plane(40 * 64, 77);
            call.planes = all;
            call.signed_planes.s1 = signed_plane;
            broken.breaks(call);
            try {
                way.run(call);
                ADD_FAILURE() << way.name << " took a bad " << broken.argument;
            } catch (Argument_error const& error) {
                EXPECT_EQ(error.argument(), broken.argument) << way.name;
                EXPECT_FALSE(error.value().empty());
                EXPECT_FALSE(error.remedy().empty());
                ++refused;
            }
            EXPECT_TRUE(Guarded_planes::untouched(all)) << way.name << ", " << broken.argument;
            EXPECT_EQ(std::ranges::count(signed_plane, 77), 40 * 64);
        }
    }
    std::cout << refused << " broken guarantees refused\n";
}

// What a case leaves as it is has to be fine, or the cases would prove nothing.
TEST(Guarantees, hold_for_the_call_that_the_cases_break) {
    Guarded_planes memory{40 * 64};
    for (Way const& way : ways()) {
        Call call;
        call.planes = memory.lay(40 * 64, Plane_set::all(), support::Edge::end);
        std::vector<std::int32_t> signed_plane(40 * 64, 77);
        call.signed_planes.s1 = signed_plane;
        EXPECT_NO_THROW(way.run(call)) << way.name;
        EXPECT_FALSE(Guarded_planes::untouched(call.planes)) << way.name;
    }
}

TEST(Guarantees, hold_for_narrow_frames_of_two_rows_alone) {
    std::vector<std::uint16_t> const samples(3 * 16, 5);
    Settings const settings = ideal_settings(Mosaic::from_phase(0), Scale{8});
    for (std::size_t height = 1; height <= 3; ++height) {
        for (std::size_t width = 1; width <= 16; ++width) {
            Planes planes{height, width, {Plane::s0}};
            Frame_view const frame{samples.data(), height, width};
            bool const fits = height == 2 ? width >= 2 : height == 3 && width >= 16;
            EXPECT_EQ(can_be_processed({.width = width, .height = height}), fits);
            if (fits) {
                EXPECT_NO_THROW(check_call(frame, settings, planes.views()));
            } else {
                EXPECT_THROW(check_call(frame, settings, planes.views()), Argument_error);
            }
        }
    }
}

TEST(Guarantees, see_neighbouring_memory_as_separate) {
    std::vector<std::uint16_t> memory(3 * 64);
    Settings const settings = ideal_settings(Mosaic::from_phase(0), Scale{8});
    std::span<std::uint16_t> const all{memory};
    Frame_view const frame{all.subspan(64, 64), 2, 32};
    Plane_views planes;
    planes.s0 = all.first(64);
    planes.dolp = all.last(64);
    EXPECT_NO_THROW(check_call(frame, settings, planes));
    planes.s0 = all.subspan(1, 64);
    EXPECT_THROW(check_call(frame, settings, planes), Argument_error);
    planes.s0 = all.first(64);
    planes.dolp = all.subspan(127, 64);
    EXPECT_THROW(check_call(frame, settings, planes), Argument_error);
}

TEST(Guarantees, want_planes_at_aligned_addresses) {
    std::vector<std::byte> memory(4 * 2 * 4 + 1 + 8);
    std::uint16_t const samples[4] = {};
    Settings const settings = ideal_settings(Mosaic::from_phase(0), Scale{8});
    auto const base = memory.data();
    Plane_views planes;
    planes.s1 = {reinterpret_cast<std::uint16_t*>(base + 1), 4};
    EXPECT_THROW(check_call({samples, 2, 2}, settings, planes), Argument_error);
    planes.s1 = {};
    planes.normalized_stokes = {reinterpret_cast<float*>(base + 2), 8};
    EXPECT_THROW(check_call({samples, 2, 2}, settings, planes), Argument_error);
    planes.normalized_stokes = {reinterpret_cast<float*>(base + 4), 8};
    EXPECT_NO_THROW(check_call({samples, 2, 2}, settings, planes));
}

} // namespace
} // namespace client_test
