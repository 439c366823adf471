// Calibrated mode against the rule of one pixel, bit for bit: every width at which groups end in
// another way, both parities of both sizes, all planes and each alone, in guarded memory.

#include "guarded_planes.hpp"
#include "rule_of_one_pixel.hpp"

#include "support/matrices.hpp"
#include "support/samples.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <iostream>
#include <utility>
#include <vector>

namespace client_test {
namespace {

using namespace polarization;

constexpr std::size_t widest = 200;
constexpr std::array<std::size_t, 6> heights = {9, 2, 3, 4, 5, 8};
constexpr std::size_t most_pixels = widest * 9;

std::array const scales = {
    Scale{12, 4095}, Scale{12}, Scale{10, 255}, Scale::in_sample_units(16), Scale{8, 1}};

Settings random_settings(int phase, Scale const& scale, std::uint64_t seed) {
    return {
        Mosaic::from_phase(phase),
        scale,
        {support::make_matrices(support::Matrix_kind::random, phase, seed)}};
}

/// The planes of a call: all of them, or one.
Plane_set planes_of_turn(std::size_t turn) {
    return turn % 7 == 6 ? Plane_set::all() : Plane_set{every_plane[turn % 7]};
}

struct Count {
    std::size_t calls = 0;
    std::size_t pixels = 0;
};

class Calibrated_transform_test : public testing::Test {
protected:
    /// All planes and one set of others, in guarded memory.
    void check_frame(
        Calibrated_transform& transform, std::size_t height, std::size_t width,
        support::Sample_kind kind, std::uint64_t seed) {
        support::Samples const samples = support::make_samples(kind, height, width, seed);
        Frame_view const frame{samples, height, width};
        Planes expected = expected_planes(frame, transform.settings(), transform.final_pixel());
        for (Plane_set const& wanted : {Plane_set::all(), planes_of_turn(seed)}) {
            auto const edge = seed % 2 == 0 ? support::Edge::end : support::Edge::start;
            Plane_views const views = planes_.lay(frame.pixels(), wanted, edge);
            transform(frame, views);
            ASSERT_EQ(first_difference(views, expected).value_or("equal"), "equal")
                << "samples " << support::name_of(kind) << ", seed " << seed << ", full scale "
                << transform.settings().scale.full_scale();
            ++count_.calls;
            count_.pixels += frame.pixels();
        }
    }

    Guarded_planes planes_{most_pixels};
    Count count_;
};

TEST_F(Calibrated_transform_test, is_the_rule_of_one_pixel_at_every_width_from_2_to_200) {
    std::uint64_t seed = 1;
    for (Scale const& scale : scales) {
        for (Final_pixel const final_pixel :
             {Final_pixel::by_position, Final_pixel::as_processed}) {
            // One object for all sizes, so that its workspace is used again, larger and smaller.
            Calibrated_transform transform{
                random_settings(static_cast<int>(seed % 4), scale, seed), final_pixel};
            for (std::size_t const height : heights) {
                for (std::size_t width = height == 2 ? 2 : 16; width <= widest; ++width, ++seed) {
                    auto const kind =
                        support::every_sample_kind[seed % support::every_sample_kind.size()];
                    check_frame(transform, height, width, kind, seed);
                    ASSERT_FALSE(HasFatalFailure());
                }
            }
        }
    }
    std::cout << count_.calls << " calls, " << count_.pixels
              << " pixels compared with the rule of one pixel\n";
}

TEST_F(Calibrated_transform_test, is_the_rule_of_one_pixel_in_large_frames) {
    for (auto const& [height, width] :
         {std::pair<std::size_t, std::size_t>{700, 1301}, {1025, 612}, {2048, 73}}) {
        support::Samples const samples =
            support::make_samples(support::Sample_kind::random_12_bit, height, width, height);
        Frame_view const frame{samples, height, width};
        Calibrated_transform transform{random_settings(3, Scale{12}, width)};
        Planes planes{height, width, Plane_set::all()};
        transform(frame, planes.views());
        Planes expected = expected_planes(frame, transform.settings(), Final_pixel::by_position);
        EXPECT_EQ(first_difference(planes.views(), expected).value_or("equal"), "equal");
    }
}

// The vector blocks of the fast mode know the phase; here nothing may.
TEST_F(Calibrated_transform_test, does_not_depend_on_the_phase) {
    support::Samples const samples =
        support::make_samples(support::Sample_kind::random_16_bit, 21, 131, 5);
    Frame_view const frame{samples, 21, 131};
    Settings settings = random_settings(0, Scale{16}, 5);
    Planes first{21, 131, Plane_set::all()};
    Calibrated_transform{settings}(frame, first.views());
    for (int phase = 1; phase < 4; ++phase) {
        settings.mosaic = Mosaic::from_phase(phase);
        Planes other{21, 131, Plane_set::all()};
        Calibrated_transform{settings}(frame, other.views());
        EXPECT_EQ(first_difference(other.views(), first).value_or("equal"), "equal") << phase;
    }
}

// The option changes the one pixel where the processor departs from the rule, and no other.
TEST_F(Calibrated_transform_test, mends_the_final_pixel_of_frames_of_mixed_parity_alone) {
    std::size_t changed = 0;
    for (std::size_t const height : std::array<std::size_t, 4>{2, 3, 6, 7}) {
        for (std::size_t const width : std::array<std::size_t, 6>{16, 31, 46, 47, 62, 63}) {
            support::Samples const samples = support::make_samples(
                support::Sample_kind::random_12_bit, height, width, height * width);
            Frame_view const frame{samples, height, width};
            Settings const settings = random_settings(1, Scale::in_sample_units(12), width);
            Planes mended{height, width, Plane_set::all()};
            Planes as_processed{height, width, Plane_set::all()};
            Calibrated_transform{settings}(frame, mended.views());
            Calibrated_transform{settings, Final_pixel::as_processed}(frame, as_processed.views());
            auto const mended_ratios = mended.normalized_stokes();
            auto const processed_ratios = as_processed.normalized_stokes();
            std::size_t const differences = [&] {
                std::size_t count = 0;
                for (std::size_t i = 0; i < mended_ratios.size(); ++i) {
                    if (mended_ratios[i] != processed_ratios[i]) {
                        ++count;
                    }
                }
                return count;
            }();
            bool const mixed = height % 2 != width % 2;
            EXPECT_EQ(differences, mixed ? 2U : 0U) << height << " x " << width;
            if (mixed) {
                EXPECT_NE(mended_ratios.back(), processed_ratios.back());
                ++changed;
            }
        }
    }
    std::cout << changed << " final pixels mended\n";
}

// With weights of an ideal sensor the two modes agree in the planes that are plain sums, in all
// phases, but for the one sample that phase 0 takes from elsewhere for S0.
TEST_F(Calibrated_transform_test, agrees_with_the_fast_mode_for_an_ideal_sensor) {
    support::Samples const samples =
        support::make_samples(support::Sample_kind::random_12_bit, 40, 150, 9);
    Frame_view const frame{samples, 40, 150};
    for (Mosaic const& mosaic : all_mosaics()) {
        Settings const settings = ideal_settings(mosaic, Scale::in_sample_units(12));
        Planes fast{40, 150, {Plane::s0, Plane::s1, Plane::s2}};
        Planes calibrated{40, 150, {Plane::s0, Plane::s1, Plane::s2}};
        transform(frame, settings, fast.views());
        Calibrated_transform{settings}(frame, calibrated.views());
        for (Plane const plane : {Plane::s0, Plane::s1, Plane::s2}) {
            bool const equal =
                std::ranges::equal(fast.integer_plane(plane), calibrated.integer_plane(plane));
            EXPECT_EQ(equal, plane != Plane::s0 || mosaic.phase() != 0) << name_of(plane);
        }
    }
}

TEST_F(Calibrated_transform_test, writes_nothing_if_nothing_is_wanted) {
    support::Samples const samples(64 * 64, 7);
    Calibrated_transform transform{ideal_settings(Mosaic::from_phase(2), Scale{12})};
    EXPECT_NO_THROW(transform({samples, 64, 64}, {}));
}

} // namespace
} // namespace client_test
