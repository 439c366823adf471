// The numbers that decide how planes are scaled.

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/transform.hpp"

#include <gtest/gtest.h>

namespace {

using namespace veldrane_mrv::polarization;

TEST(Scale, fills_16_bits_by_default) {
    Scale const scale{12};
    EXPECT_TRUE(scale.rescaled());
    EXPECT_EQ(scale.full_scale(), 65535);
    EXPECT_EQ(scale.maximum_input_value(), 8190.0F);
    EXPECT_EQ(scale.maximum_output_value(), 65535.0F);
    EXPECT_NE(scale.maximum_output_value_integer(), 4095);
    EXPECT_DOUBLE_EQ(scale.sample_units_per_step(), 8190.0 / 65535);
}

TEST(Scale, keeps_sample_units_at_the_sensors_own_full_scale) {
    for (int bits = 1; bits <= 16; ++bits) {
        unsigned const own = (1U << bits) - 1;
        Scale const scale{bits, own};
        EXPECT_FALSE(scale.rescaled());
        EXPECT_EQ(scale.sample_units_per_step(), 1);
        EXPECT_EQ(scale.maximum_output_value_integer(), static_cast<int>(own));
        if (own > 1) {
            EXPECT_TRUE((Scale{bits, own - 1}.rescaled()));
            EXPECT_NE((Scale{bits, own - 1}.maximum_output_value_integer()), static_cast<int>(own));
        }
    }
}

// Through the processor: samples of 4095 under all four polarisers are an S0 of 8190.
TEST(Scale, is_what_the_processor_makes_of_it) {
    std::vector<std::uint16_t> const samples(4 * 48, 4095);
    auto const s0_and_degree = [&](Scale const& scale) {
        Planes planes{4, 48, {Plane::s0, Plane::azimuth}};
        transform({samples, 4, 48}, ideal_settings(Mosaic::from_phase(0), scale), planes.views());
        return std::pair{
            planes.integer_plane(Plane::s0)[50], planes.integer_plane(Plane::azimuth)[50]};
    };
    EXPECT_EQ(s0_and_degree(Scale{12}), (std::pair<std::uint16_t, std::uint16_t>{65535, 32768}));
    EXPECT_EQ(
        s0_and_degree(Scale{12, 4095}), (std::pair<std::uint16_t, std::uint16_t>{4095, 2048}));
    EXPECT_EQ(s0_and_degree(Scale{12, 1000}), (std::pair<std::uint16_t, std::uint16_t>{1000, 500}));
    EXPECT_EQ(
        s0_and_degree(Scale::in_sample_units(12)),
        (std::pair<std::uint16_t, std::uint16_t>{8190, 32768}));
}

TEST(Scale, refuses_what_the_processor_could_not_hold) {
    for (int const bits : {-1, 0, 17, 32}) {
        EXPECT_THROW(Scale{bits}, Argument_error);
        EXPECT_THROW(Scale::in_sample_units(bits), Argument_error);
    }
    for (unsigned const full_scale : {0U, 65536U, 4294967295U}) {
        EXPECT_THROW(Scale(12, full_scale), Argument_error);
        EXPECT_THROW(Scale::in_sample_units(12, full_scale), Argument_error);
    }
}

} // namespace
