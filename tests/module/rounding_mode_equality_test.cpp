/// @file
/// Covers the caller's floating-point environment: in each rounding mode, with and without flushing
/// of subnormals, the results follow it and equal the reference's bit for bit, and the control word
/// is left as it was.

#include "support/equality_checker.hpp"

#include <gtest/gtest.h>

#include <xmmintrin.h>

namespace {

using namespace support;

/// Replaces the rounding mode and the two flushing bits of the control word for a scope.
class Control_word {
public:
    explicit Control_word(unsigned bits) : former_{_mm_getcsr()} {
        _mm_setcsr((former_ & ~(rounding_bits | flushing_bits)) | bits);
    }
    ~Control_word() { _mm_setcsr(former_); }
    Control_word(Control_word const&) = delete;
    Control_word& operator=(Control_word const&) = delete;

    static constexpr unsigned rounding_bits{0x6000};
    /// Flush results to zero, and take subnormal operands for zeros.
    static constexpr unsigned flushing_bits{0x8040};

private:
    unsigned former_;
};

testing::AssertionResult check_under(
    Equality_checker& check, unsigned control_bits, Scene const& scene) {
    Control_word const word{control_bits};
    return check(scene);
}

class Rounding_mode : public testing::TestWithParam<unsigned> {};

TEST_P(Rounding_mode, of_the_caller_gives_the_results_of_the_reference) {
    unsigned const control_bits = GetParam();
    Equality_checker check;
    std::uint64_t seed = equality_seed();
    for (std::int32_t phase = 0; phase < 4; ++phase) {
        for (Sample_kind const samples : every_sample_kind) {
            for (Matrix_kind const matrices : every_matrix_kind) {
                Scene scene = make_scene(5, 49, samples, matrices, phase, ++seed);
                for (Scale const& scale : {sample_units, rescaled_12_bit}) {
                    scene.scale = scale;
                    for (unsigned set = 3; set < plane_set_count; set += 4) {
                        scene.wanted = {set};
                        ASSERT_TRUE(check_under(check, control_bits, scene))
                            << "control bits " << std::hex << control_bits;
                    }
                }
            }
        }
    }
    EXPECT_EQ(check.calls(), 4U * 7 * 3 * 2 * 16 * 2);
}

INSTANTIATE_TEST_SUITE_P(
    All, Rounding_mode,
    testing::Values(0x0000U, 0x2000U, 0x4000U, 0x6000U, 0x8040U, 0xA040U, 0xC040U, 0xE040U));

} // namespace
