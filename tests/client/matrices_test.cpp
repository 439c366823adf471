// Ideal weights against the arithmetic of the vector blocks, and the check of weights.

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/transform.hpp"

#include "support/matrices.hpp"
#include "support/samples.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <limits>

namespace {

using namespace veldrane_mrv::polarization;

// A uniform frame has the same result in every pixel unless block and matrix disagree.
TEST(Ideal_matrices, leave_no_seam_to_the_vector_blocks) {
    constexpr std::size_t height = 7;
    constexpr std::size_t width = 51;
    std::size_t cells = 0;
    for (Mosaic const& mosaic : all_mosaics()) {
        for (std::uint64_t seed = 1; seed <= 50; ++seed) {
            support::Samples const cell =
                support::make_samples(support::Sample_kind::random_12_bit, 2, 2, seed);
            std::vector<std::uint16_t> samples(height * width);
            for (std::size_t pixel = 0; pixel < samples.size(); ++pixel) {
                samples[pixel] = cell[cell_position(pixel / width, pixel % width)];
            }
            Planes planes{height, width, {Plane::s0, Plane::s1, Plane::s2}};
            transform(
                {samples, height, width}, ideal_settings(mosaic, Scale::in_sample_units(12)),
                planes.views());
            for (Plane const plane : planes.wanted().list()) {
                auto const values = planes.integer_plane(plane);
                EXPECT_EQ(std::ranges::count(values, values[0]), height * width)
                    << name_of(plane) << ", phase " << mosaic.phase();
            }
            ++cells;
        }
    }
    std::cout << cells << " uniform frames without a seam\n";
}

TEST(Matrices, are_negated_in_rows_1_and_2_alone) {
    Matrices const matrices{support::make_matrices(support::Matrix_kind::random, 0, 3)};
    Matrices const negated = negated_rows_1_and_2(matrices);
    for (std::size_t position = 0; position < 4; ++position) {
        for (std::size_t element = 0; element < 12; ++element) {
            float const weight = matrices.by_position[position][element];
            EXPECT_EQ(negated.by_position[position][element], element < 4 ? weight : -weight);
        }
    }
}

TEST(Matrices, are_refused_with_the_place_of_a_bad_weight) {
    constexpr float infinity = std::numeric_limits<float>::infinity();
    int refused = 0;
    for (float const weight :
         {infinity, -infinity, std::numeric_limits<float>::quiet_NaN(), 65536.5F, -1e30F}) {
        for (std::size_t position = 0; position < 4; ++position) {
            for (std::size_t element = 0; element < 16; ++element) {
                Matrices matrices = ideal_matrices(Mosaic::from_phase(1));
                matrices.by_position[position][element] = weight;
                // Row 3 is never read.
                if (element >= 12) {
                    EXPECT_NO_THROW(check(matrices));
                    continue;
                }
                EXPECT_THROW(check(matrices), Argument_error);
                ++refused;
            }
        }
    }
    Matrices matrices = ideal_matrices(Mosaic::from_phase(1));
    matrices.by_position[2][7] = infinity;
    try {
        check(matrices);
    } catch (Argument_error const& error) {
        EXPECT_EQ(error.argument(), "weight (1, 3) of the matrix for odd rows and even columns");
        EXPECT_EQ(error.value(), "inf");
    }
    std::cout << refused << " bad weights refused\n";
}

} // namespace
