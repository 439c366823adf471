/// @file
/// Raw frames for the tests: each kind aims at another part of the arithmetic.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace support {

using Samples = std::vector<std::uint16_t>;

enum class Sample_kind {
    random_12_bit,
    random_16_bit,
    all_equal,
    all_zero,
    /// 0 and 65535 only: the largest sums and differences.
    extremes,
    /// Each sample holds its row number: shows which rows a pixel took its samples from.
    row_number,
    /// 0 to 3 at random: zero intensities, equal and zero Stokes quantities abound.
    few_levels,
};

inline constexpr std::array every_sample_kind{
    Sample_kind::random_12_bit, Sample_kind::random_16_bit, Sample_kind::all_equal,
    Sample_kind::all_zero,      Sample_kind::extremes,      Sample_kind::row_number,
    Sample_kind::few_levels};

char const* name_of(Sample_kind kind);

/// The frame of a kind, the same for the same arguments on every machine.
Samples make_samples(Sample_kind kind, std::size_t height, std::size_t width, std::uint64_t seed);

} // namespace support
