/// @file
/// Sets how the processor rounds and treats subnormals, for the life of an object.

#pragma once

#include <immintrin.h>

namespace reference {

// Bits of MXCSR: rounding control in 13 and 14, flush to zero in 15, denormals are zero in 6.
inline constexpr unsigned nearest = 0x0000u;
inline constexpr unsigned downward = 0x2000u;
inline constexpr unsigned upward = 0x4000u;
inline constexpr unsigned toward_zero = 0x6000u;
inline constexpr unsigned subnormals_are_zero = 0x8040u;

class Arithmetic_mode {
public:
    explicit Arithmetic_mode(unsigned bits) : before_(_mm_getcsr()) {
        constexpr unsigned all_bits = toward_zero | subnormals_are_zero;
        _mm_setcsr((before_ & ~all_bits) | bits);
    }
    Arithmetic_mode(Arithmetic_mode const&) = delete;
    Arithmetic_mode& operator=(Arithmetic_mode const&) = delete;
    ~Arithmetic_mode() { _mm_setcsr(before_); }

private:
    unsigned before_;
};

} // namespace reference
