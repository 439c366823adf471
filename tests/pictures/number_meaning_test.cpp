// What is said of stored numbers is what the planes hold: figures, and words for what has no
// figure.
#include "veldrane_mrv/polarization/number_meaning.hpp"

#include <gtest/gtest.h>
#include <numbers>

namespace {

using namespace veldrane_mrv::polarization;

Stored_as stored(Units units, Mode mode = Mode::fast, bool is_signed = false) {
    return {units, Scale(12, 1000), mode, is_signed, {.width = 48, .height = 33}};
}

TEST(Number_meaning, steps_of_the_scale_become_values) {
    struct Wanted {
        Plane plane;
        char const* unit;
        double step;
        double offset;
    };
    double const sample = 2.0 * 4095.0 / 1000.0;
    for (auto const& wanted :
         {Wanted{Plane::s0, "sample", sample, 0.0}, Wanted{Plane::s2, "sample", sample, 0.0},
          Wanted{Plane::azimuth, "degree", 0.18, 90.0}, Wanted{Plane::dolp, "1", 0.001, 0.0}}) {
        Number_meaning const meaning = meaning_of(wanted.plane, stored(Units::scaled));
        EXPECT_EQ(meaning.unit, wanted.unit);
        EXPECT_DOUBLE_EQ(meaning.step, wanted.step);
        EXPECT_EQ(meaning.offset, wanted.offset);
        EXPECT_EQ(meaning.full_scale, 1000.0);
    }
    for (Plane const plane : {Plane::normalized_stokes, Plane::validity, Plane::uncertainty}) {
        EXPECT_FALSE(meaning_of(plane, stored(Units::scaled)).full_scale);
        EXPECT_EQ(meaning_of(plane, stored(Units::scaled)).step, 1.0);
    }
    EXPECT_TRUE(
        meaning_of(Plane::validity, stored(Units::scaled)).range.starts_with("sum of 1 sat"));
}

TEST(Number_meaning, physical_values_are_their_own_numbers) {
    for (Plane const plane : every_plane) {
        EXPECT_EQ(meaning_of(plane, stored(Units::radians)).step, 1.0);
        EXPECT_EQ(meaning_of(plane, stored(Units::radians)).offset, 0.0);
    }
    EXPECT_EQ(meaning_of(Plane::azimuth, stored(Units::radians)).unit, "radian");
    EXPECT_EQ(meaning_of(Plane::azimuth, stored(Units::radians)).full_scale, std::numbers::pi);
    EXPECT_EQ(meaning_of(Plane::azimuth, stored(Units::degrees)).full_scale, 180.0);
    EXPECT_DOUBLE_EQ(*meaning_of(Plane::s0, stored(Units::degrees)).full_scale, 8190.0);
    EXPECT_TRUE(meaning_of(Plane::dolp, stored(Units::degrees)).undefined.starts_with("NaN"));
    EXPECT_TRUE(meaning_of(Plane::dolp, stored(Units::scaled)).undefined.starts_with("0"));
}

TEST(Number_meaning, signs_packing_and_the_last_pixel_are_told) {
    EXPECT_TRUE(meaning_of(Plane::s1, stored(Units::scaled)).range.starts_with("positive half"));
    EXPECT_EQ(meaning_of(Plane::s1, stored(Units::scaled, Mode::fast, true)).range, "signed");
    Plane const packed = Plane::normalized_stokes;
    EXPECT_TRUE(
        meaning_of(packed, stored(Units::scaled)).placement.starts_with("as the processor"));
    EXPECT_TRUE(meaning_of(packed, stored(Units::scaled, Mode::calibrated))
                    .placement.starts_with("row by"));
    EXPECT_TRUE(meaning_of(Plane::s0, stored(Units::scaled, Mode::calibrated))
                    .final_pixel.starts_with("mend"));
    Stored_as even = stored(Units::scaled);
    even.size.height = 32;
    EXPECT_EQ(meaning_of(Plane::s0, even).final_pixel, "computed with the weights of its position");
}

} // namespace
