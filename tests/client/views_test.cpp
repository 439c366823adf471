// Invariants of frames and planes.

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/views.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <string>
#include <vector>

namespace {

using namespace veldrane_mrv::polarization;

constexpr std::size_t huge = std::numeric_limits<std::size_t>::max();

std::string refused_argument(auto const& action) {
    try {
        action();
    } catch (Argument_error const& error) {
        return error.argument();
    }
    return "nothing";
}

TEST(Frame_view, gives_rows_and_samples) {
    std::vector<std::uint16_t> samples(12);
    std::iota(samples.begin(), samples.end(), std::uint16_t{0});
    Frame_view const frame{samples, 3, 4};
    EXPECT_EQ(frame(2, 1), 9);
    EXPECT_EQ(frame.row(1).front(), 4);
    EXPECT_EQ(frame.row(1).size(), 4);
    EXPECT_EQ(frame.pixels(), 12);
    EXPECT_EQ(frame.samples().data(), samples.data());
}

TEST(Frame_view, refuses_what_is_no_frame) {
    std::vector<std::uint16_t> const samples(12);
    auto const refused = [&](std::size_t height, std::size_t width) {
        return refused_argument([&] { Frame_view(samples, height, width); });
    };
    EXPECT_EQ(refused(3, 4), "nothing");
    EXPECT_EQ(refused(1, 12), "nothing");
    EXPECT_EQ(refused(0, 4), "height");
    EXPECT_EQ(refused(4, 0), "width");
    EXPECT_EQ(refused(3, 5), "the count of samples");
    EXPECT_EQ(refused(3, 3), "the count of samples");
    EXPECT_EQ(refused(huge, 4), "the size of the frame");
    EXPECT_EQ(refused(4, huge), "the size of the frame");
    // The product wraps to 12.
    EXPECT_EQ(refused((std::size_t{1} << 63) + 6, 2), "the size of the frame");

    std::uint16_t const* const none = nullptr;
    EXPECT_EQ(refused_argument([&] { Frame_view(none, 3, 4); }), "the pointer to the samples");
    auto const odd = reinterpret_cast<std::uint16_t const*>(
        reinterpret_cast<std::uintptr_t>(samples.data()) + 1);
    EXPECT_EQ(refused_argument([&] { Frame_view(odd, 2, 4); }), "the address of the samples");
}

TEST(Planes, start_as_zeros_and_nans) {
    Planes planes{3, 5, {Plane::s2, Plane::normalized_stokes}};
    EXPECT_EQ(planes.integer_plane(Plane::s2).size(), 15);
    EXPECT_EQ(planes.normalized_stokes().size(), 30);
    EXPECT_TRUE(planes.integer_plane(Plane::s0).empty());
    EXPECT_EQ(std::ranges::count(planes.integer_plane(Plane::s2), 0), 15);
    EXPECT_TRUE(std::ranges::all_of(
        planes.normalized_stokes(), [](float value) { return std::isnan(value); }));
}

TEST(Planes, are_reached_through_their_views) {
    Planes planes{3, 5, Plane_set::all()};
    Plane_views const views = planes.views();
    EXPECT_EQ(views.wanted(), Plane_set::all());
    for (Plane const plane : Plane_set::all().list()) {
        if (plane == Plane::normalized_stokes) {
            EXPECT_EQ(views.normalized_stokes.data(), planes.normalized_stokes().data());
            EXPECT_THROW(planes.integer_plane(plane), Argument_error);
            EXPECT_THROW(views.integer_plane(plane), Argument_error);
        } else {
            views.integer_plane(plane)[7] = static_cast<std::uint16_t>(plane);
            EXPECT_EQ(planes.integer_plane(plane)[7], static_cast<std::uint16_t>(plane));
        }
    }
    EXPECT_EQ(views.s0.data(), planes.integer_plane(Plane::s0).data());
    EXPECT_EQ(views.dolp.data(), planes.integer_plane(Plane::dolp).data());
}

TEST(Planes, hold_what_is_known_of_pixels) {
    Planes planes{3, 5, {Plane::validity, Plane::uncertainty}};
    Plane_views const views = planes.views();
    EXPECT_EQ(std::ranges::count(views.validity, 0), 15);
    EXPECT_EQ(views.uncertainty.size(), 45);
    EXPECT_TRUE(std::isnan(views.uncertainty[44]));
    for (Plane const plane : {Plane::validity, Plane::uncertainty}) {
        EXPECT_THROW(views.integer_plane(plane), Argument_error);
        EXPECT_EQ(planes.visit(plane, [](auto elements) { return elements.empty(); }), false);
    }
}

TEST(Planes, refuse_sizes_without_pixels_or_beyond_memory) {
    for (auto const& [height, width] :
         {std::pair{std::size_t{0}, std::size_t{4}}, {4, 0}, {huge / 2, 3}, {3, huge}}) {
        EXPECT_THROW(Planes(height, width, {Plane::s0}), Argument_error);
    }
}

} // namespace
