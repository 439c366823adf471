// Signed S1 and S2 in both modes, against sums of samples made here, against the rule of one pixel
// and against two passes of the processor, and why both of the second pass's changes are needed.

#include "rule_of_one_pixel.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

#include "support/guarded_pages.hpp"
#include "support/matrices.hpp"
#include "support/samples.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cfenv>
#include <iostream>
#include <iterator>
#include <span>
#include <vector>

namespace client_test {
namespace {

using namespace polarization;

constexpr std::size_t height = 23;
constexpr std::size_t width = 149;

Plane_set const stokes_1_and_2{Plane::s1, Plane::s2};

/// I(positive) - I(negative) in the 2x2 neighbourhood of a pixel, found by the polarisers' angles.
int difference_of_samples(
    Frame_view const& frame, Mosaic const& mosaic, std::size_t row, std::size_t column,
    int positive, int negative) {
    std::size_t const other_row = row + 1 == frame.height() ? row - 1 : row + 1;
    std::size_t const other_column = column + 1 == frame.width() ? column - 1 : column + 1;
    int difference = 0;
    for (std::size_t const r : {row, other_row}) {
        for (std::size_t const c : {column, other_column}) {
            int const angle = mosaic.angle(r, c);
            difference += angle == positive ? frame(r, c) : 0;
            difference -= angle == negative ? frame(r, c) : 0;
        }
    }
    return difference;
}

TEST(Signed_transform, gives_differences_of_samples_for_an_ideal_sensor) {
    std::size_t compared = 0;
    for (Mosaic const& mosaic : all_mosaics()) {
        for (Mode const mode : {Mode::fast, Mode::calibrated}) {
            support::Samples const samples = support::make_samples(
                support::Sample_kind::random_16_bit, height, width, compared + 1);
            Frame_view const frame{samples, height, width};
            Settings const settings = ideal_settings(mosaic, Scale::in_sample_units(16));
            Signed_planes planes{height, width, stokes_1_and_2};
            transform_signed(frame, settings, mode, {}, planes.views());
            for (std::size_t pixel = 0; pixel < frame.pixels(); ++pixel) {
                std::size_t const row = pixel / width;
                std::size_t const column = pixel % width;
                ASSERT_EQ(
                    planes.s1[pixel], difference_of_samples(frame, mosaic, row, column, 0, 90))
                    << row << ", " << column << ", phase " << mosaic.phase();
                ASSERT_EQ(
                    planes.s2[pixel], difference_of_samples(frame, mosaic, row, column, 45, 135))
                    << row << ", " << column << ", phase " << mosaic.phase();
                ++compared;
            }
        }
    }
    std::cout << compared << " pixels compared with differences of samples\n";
}

TEST(Signed_transform, follows_the_rule_of_one_pixel_in_calibrated_mode) {
    std::size_t compared = 0;
    for (Scale const& scale : {Scale{12}, Scale{12, 4095}, Scale{12, 100}}) {
        for (Final_pixel const final_pixel :
             {Final_pixel::by_position, Final_pixel::as_processed}) {
            for (std::size_t const columns : {width, width + 1}) {
                support::Samples const samples = support::make_samples(
                    support::Sample_kind::random_12_bit, height, columns, compared + 1);
                Frame_view const frame{samples, height, columns};
                Settings const settings{
                    Mosaic::from_phase(2),
                    scale,
                    {support::make_matrices(support::Matrix_kind::random, 2, compared + 1)}};
                Signed_planes planes{height, columns, stokes_1_and_2};
                Planes others{height, columns, Plane_set::all()};
                Signed_transform transform{settings, Mode::calibrated, final_pixel};
                transform(frame, others.views(), planes.views());
                Planes expected = expected_planes(frame, settings, final_pixel);
                for (Plane const plane : {Plane::s0, Plane::s1, Plane::azimuth, Plane::dolp}) {
                    EXPECT_TRUE(std::ranges::equal(
                        others.integer_plane(plane), expected.integer_plane(plane)));
                }
                for (std::size_t pixel = 0; pixel < frame.pixels(); ++pixel) {
                    auto const stokes =
                        stokes_at(frame, settings, final_pixel, pixel / columns, pixel % columns);
                    ASSERT_EQ(
                        planes.s1[pixel],
                        stored_stokes(stokes.s1, scale) - stored_stokes(-stokes.s1, scale));
                    ASSERT_EQ(
                        planes.s2[pixel],
                        stored_stokes(stokes.s2, scale) - stored_stokes(-stokes.s2, scale));
                    ++compared;
                }
            }
        }
    }
    std::cout << compared << " pixels compared with the rule of one pixel\n";
}

/// What two calls of the processor give: the second takes the opposite phase and negated rows.
std::vector<std::int32_t> difference_of_passes(
    Frame_view const& frame, Settings const& settings, Plane plane) {
    Planes plus{frame.height(), frame.width(), {plane}};
    Planes minus{frame.height(), frame.width(), {plane}};
    transform(frame, settings, plus.views());
    transform(
        frame,
        {settings.mosaic.opposite(), settings.scale, negated_rows_1_and_2(settings.matrices)},
        minus.views());
    std::vector<std::int32_t> difference;
    std::ranges::transform(
        plus.integer_plane(plane), minus.integer_plane(plane), std::back_inserter(difference),
        [](int positive, int negative) { return positive - negative; });
    return difference;
}

// Every end of a row of blocks, both parities of both sizes, in memory that faults beyond its ends.
TEST(Signed_transform, is_the_difference_of_two_passes_in_fast_mode) {
    constexpr std::size_t most_pixels = 120 * 9;
    using support::Guarded_pages;
    Guarded_pages const raw{2 * most_pixels, Guarded_pages::Access::read_write};
    std::array<Guarded_pages, 2> const memory{
        Guarded_pages{4 * most_pixels, Guarded_pages::Access::read_write},
        Guarded_pages{4 * most_pixels, Guarded_pages::Access::read_write}};
    std::array const scales{Scale{12}, Scale{12, 4095}, Scale{12, 100}, Scale::in_sample_units(16)};
    std::size_t frames = 0;
    for (std::size_t const rows : {2U, 3U, 4U, 5U, 8U, 9U}) {
        for (std::size_t columns = rows == 2 ? 2 : 16; columns <= 120; ++columns, ++frames) {
            auto const edge = support::both_edges[frames % 2];
            std::size_t const pixels = rows * columns;
            support::Samples const samples =
                support::make_samples(support::Sample_kind::random_12_bit, rows, columns, frames);
            auto* const place = reinterpret_cast<std::uint16_t*>(raw.writable(2 * pixels, edge));
            std::ranges::copy(samples, place);
            Frame_view const frame{place, rows, columns};
            int const phase = static_cast<int>(frames % 4);
            Settings const settings{
                Mosaic::from_phase(phase),
                scales[frames / 4 % scales.size()],
                {support::make_matrices(support::Matrix_kind::random, phase, frames)}};
            auto const view = [&](std::size_t plane) {
                auto* const first = memory[plane].writable(4 * pixels, edge);
                return std::span{reinterpret_cast<std::int32_t*>(first), pixels};
            };
            Signed_views const views{view(0), view(1)};
            transform_signed(frame, settings, Mode::fast, {}, views);
            ASSERT_TRUE(
                std::ranges::equal(views.s1, difference_of_passes(frame, settings, Plane::s1)))
                << columns << " x " << rows;
            ASSERT_TRUE(
                std::ranges::equal(views.s2, difference_of_passes(frame, settings, Plane::s2)))
                << columns << " x " << rows;
        }
    }
    std::cout << frames << " frames compared with two passes\n";
}

// Large planes are stored past the caches where their rows are aligned to it, others are not.
TEST(Signed_transform, is_the_difference_of_two_passes_in_large_frames) {
    for (std::size_t const columns : {1040U, 1042U}) {
        for (std::size_t const offset : {0U, 1U}) {
            support::Samples const samples = support::make_samples(
                support::Sample_kind::random_12_bit, 1024, columns, columns + offset);
            Frame_view const frame{samples, 1024, columns};
            Scale const scale = offset == 0 ? Scale{12} : Scale::in_sample_units(12);
            Settings const settings = ideal_settings(Mosaic::from_phase(0), scale);
            std::array<std::vector<std::int32_t>, 2> memory{
                std::vector<std::int32_t>(frame.pixels() + 1),
                std::vector<std::int32_t>(frame.pixels() + 1)};
            Signed_views const views{
                std::span{memory[0]}.subspan(offset, frame.pixels()),
                std::span{memory[1]}.subspan(offset, frame.pixels())};
            transform_signed(frame, settings, Mode::fast, {}, views);
            EXPECT_TRUE(
                std::ranges::equal(views.s1, difference_of_passes(frame, settings, Plane::s1)));
            EXPECT_TRUE(
                std::ranges::equal(views.s2, difference_of_passes(frame, settings, Plane::s2)));
        }
    }
}

/// Pixels in which S1 is positive in both of two fast passes.
std::size_t positive_in_both(
    Frame_view const& frame, Settings const& first, Settings const& second) {
    Planes plus{height, width, stokes_1_and_2};
    Planes minus{height, width, stokes_1_and_2};
    transform(frame, first, plus.views());
    transform(frame, second, minus.views());
    std::size_t count = 0;
    for (Plane const plane : {Plane::s1, Plane::s2}) {
        for (std::size_t pixel = 0; pixel < frame.pixels(); ++pixel) {
            if (plus.integer_plane(plane)[pixel] > 0 && minus.integer_plane(plane)[pixel] > 0) {
                ++count;
            }
        }
    }
    return count;
}

TEST(Signed_transform, needs_the_opposite_phase_and_the_negated_rows) {
    std::size_t checked = 0;
    for (Mosaic const& mosaic : all_mosaics()) {
        for (support::Matrix_kind const kind :
             {support::Matrix_kind::ideal, support::Matrix_kind::random}) {
            support::Samples const samples = support::make_samples(
                support::Sample_kind::random_12_bit, height, width, checked + 1);
            Frame_view const frame{samples, height, width};
            Matrices const matrices{support::make_matrices(kind, mosaic.phase(), 4)};
            Matrices const negated = negated_rows_1_and_2(matrices);
            Scale const scale{12};
            Settings const settings{mosaic, scale, matrices};
            EXPECT_EQ(positive_in_both(frame, settings, {mosaic.opposite(), scale, negated}), 0);
            EXPECT_GT(positive_in_both(frame, settings, {mosaic.opposite(), scale, matrices}), 100);
            EXPECT_GT(positive_in_both(frame, settings, {mosaic, scale, negated}), 100);
            checked += 2 * frame.pixels();
        }
    }
    std::cout << checked << " elements positive in at most one pass\n";
}

TEST(Signed_transform, writes_only_what_is_wanted_and_can_be_used_again) {
    Signed_transform transform{ideal_settings(Mosaic::from_phase(0), Scale{12}), Mode::fast};
    for (std::size_t const rows : std::array<std::size_t, 3>{4, 40, 12}) {
        support::Samples const samples =
            support::make_samples(support::Sample_kind::random_12_bit, rows, 64, rows);
        Signed_planes only_s2{rows, 64, {Plane::s2}};
        Signed_planes both{rows, 64, stokes_1_and_2};
        transform({samples, rows, 64}, {}, only_s2.views());
        transform({samples, rows, 64}, {}, both.views());
        EXPECT_TRUE(only_s2.s1.empty());
        EXPECT_EQ(only_s2.s2, both.s2);
        EXPECT_LT(std::ranges::min(both.s1), 0);
        EXPECT_GT(std::ranges::max(both.s1), 0);
    }
}

TEST(Signed_transform, refuses_planes_of_its_own_that_do_not_fit) {
    support::Samples const samples(4 * 64, 3);
    Settings const settings = ideal_settings(Mosaic::from_phase(0), Scale{12});
    std::vector<std::int32_t> memory(2 * 4 * 64, 77);
    std::span<std::int32_t> const all{memory};
    auto const refused = [&](Signed_views const& views) {
        try {
            transform_signed({samples, 4, 64}, settings, Mode::fast, {}, views);
        } catch (Argument_error const& error) {
            return error.argument();
        }
        return std::string{"nothing"};
    };
    EXPECT_EQ(refused({all.first(255), {}}), "the plane signed s1");
    EXPECT_EQ(refused({{}, all.first(257)}), "the plane signed s2");
    EXPECT_EQ(refused({all.first(256), all.subspan(255, 256)}), "the plane signed s2");
    EXPECT_EQ(std::ranges::count(memory, 77), 512);

    std::fesetround(FE_UPWARD);
    std::string const upward = refused({all.first(256), {}});
    std::string const upward_unsigned = refused({});
    std::fesetround(FE_TONEAREST);
    EXPECT_EQ(upward, "the rounding mode");
    EXPECT_EQ(upward_unsigned, "nothing");
    EXPECT_EQ(std::ranges::count(memory, 77), 512);
    EXPECT_EQ(refused({all.first(256), all.last(256)}), "nothing");
    EXPECT_EQ(std::ranges::count(memory, 77), 0);
}

} // namespace
} // namespace client_test
