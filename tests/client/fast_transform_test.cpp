// Fast mode is one plain call of the processor.

#include "guarded_planes.hpp"

#include "veldrane_mrv/polarization/transform.hpp"

#include "support/matrices.hpp"
#include "support/samples.hpp"

#include <gtest/gtest.h>

#include <iostream>

namespace client_test {
namespace {

using namespace polarization;

/// The processor called by hand on memory of the test's own.
Planes planes_of_plain_call(
    support::Samples const& samples, std::size_t height, std::size_t width, int phase,
    support::Matrix_set const& matrices, bool rescaled) {
    Planes planes{height, width, Plane_set::all()};
    Plane_views const views = planes.views();
    support::fill_plane(std::as_writable_bytes(views.normalized_stokes), support::Fill::plain);
    Polarization_computation_arguments arguments{};
    arguments.height = height;
    arguments.width = width;
    arguments.polar_phase = phase;
    arguments.raw_image = samples.data();
    arguments.bit_depth = 12;
    arguments.maximum_input_value = 8190;
    arguments.maximum_output_value = rescaled ? 65535 : 4095;
    arguments.maximum_output_value_integer = rescaled ? 65535 : 4095;
    arguments.normalized_stokes_image = views.normalized_stokes.data();
    arguments.s0_image = views.s0.data();
    arguments.s1_image = views.s1.data();
    arguments.s2_image = views.s2.data();
    arguments.azimuth_image = views.azimuth.data();
    arguments.dolp_image = views.dolp.data();
    qn_polarization_processor_transform_vector_avx2(
        arguments, {matrices[0], matrices[1], matrices[2], matrices[3]});
    return planes;
}

TEST(Transform, is_one_plain_call_of_the_processor) {
    constexpr std::size_t most_pixels = 7 * 100;
    Guarded_planes memory{most_pixels};
    std::size_t calls = 0;
    for (std::size_t height = 2; height <= 7; ++height) {
        for (std::size_t width = height == 2 ? 2 : 16; width <= 100; width += 3) {
            for (int phase = 0; phase < 4; ++phase) {
                std::uint64_t const seed = 1000 * height + 10 * width;
                bool const rescaled = width % 2 == 0;
                support::Samples const samples =
                    support::make_samples(support::Sample_kind::random_12_bit, height, width, seed);
                support::Matrix_set const matrices =
                    support::make_matrices(support::Matrix_kind::random, phase, seed);
                Planes expected =
                    planes_of_plain_call(samples, height, width, phase, matrices, rescaled);
                Plane_views const views =
                    memory.lay(height * width, Plane_set::all(), support::Edge::end);
                Scale const scale = rescaled ? Scale{12} : Scale{12, 4095};
                transform(
                    {samples, height, width}, {Mosaic::from_phase(phase), scale, {matrices}},
                    views);
                EXPECT_EQ(first_difference(views, expected).value_or("equal"), "equal");
                ++calls;
            }
        }
    }
    std::cout << calls << " calls compared with plain ones\n";
}

TEST(Transform, touches_no_plane_that_is_not_wanted) {
    support::Samples const samples(8 * 40, 9);
    Guarded_planes memory{8 * 40};
    for (Plane const plane : Plane_set::all().list()) {
        Plane_views const all = memory.lay(8 * 40, Plane_set::all(), support::Edge::end);
        Plane_views one;
        if (plane == Plane::normalized_stokes) {
            one.normalized_stokes = all.normalized_stokes;
        } else {
            // An empty span with an address is none.
            one.s0 = all.s0.first(0);
            one.integer_plane(plane) = all.integer_plane(plane);
        }
        transform({samples, 8, 40}, ideal_settings(Mosaic::from_phase(3), Scale{12, 4095}), one);
        for (Plane const other : Plane_set::all().list()) {
            EXPECT_EQ(
                support::is_untouched(Guarded_planes::bytes_of(all, other), support::Fill::plain),
                other != plane)
                << name_of(other);
        }
    }
}

} // namespace
} // namespace client_test
