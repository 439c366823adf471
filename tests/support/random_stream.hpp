/// @file
/// A small generator of pseudo-random bits. The distributions of <random> may differ between
/// standard libraries; a printed seed has to give the same frame everywhere.

#pragma once

#include <cstdint>

namespace support {

class Random_stream {
public:
    explicit constexpr Random_stream(std::uint64_t seed) : state_{seed} {}

    /// The next 64 bits: a counter of odd step, mixed by two multiplications and three shifts.
    constexpr std::uint64_t next() {
        state_ += 0x9E3779B97F4A7C15;
        std::uint64_t bits = state_;
        bits = (bits ^ bits >> 30) * 0xBF58476D1CE4E5B9;
        bits = (bits ^ bits >> 27) * 0x94D049BB133111EB;
        return bits ^ bits >> 31;
    }

    /// A number below `limit`, which is far below 2^32: the bias of the multiplication is
    /// invisible.
    constexpr std::uint32_t below(std::uint32_t limit) {
        return static_cast<std::uint32_t>((next() >> 32) * limit >> 32);
    }

    /// A float of 24 random bits in -2 (included) to 2 (excluded).
    constexpr float weight() {
        auto const integer = static_cast<std::int32_t>(next() >> 40) - (1 << 23);
        return static_cast<float>(integer) * 0x1p-22F;
    }

private:
    std::uint64_t state_;
};

} // namespace support
