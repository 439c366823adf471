#include "support/samples.hpp"

#include "support/random_stream.hpp"

#include <algorithm>

namespace support {
namespace {

std::uint16_t make_sample(Sample_kind kind, std::size_t row, Random_stream& random) {
    switch (kind) {
    case Sample_kind::random_12_bit:
        return static_cast<std::uint16_t>(random.below(4096));
    case Sample_kind::random_16_bit:
        return static_cast<std::uint16_t>(random.below(65536));
    case Sample_kind::extremes:
        return random.below(2) == 0 ? std::uint16_t{0} : std::uint16_t{65535};
    case Sample_kind::row_number:
        return static_cast<std::uint16_t>(row);
    case Sample_kind::few_levels:
        return static_cast<std::uint16_t>(random.below(4));
    case Sample_kind::all_equal:
    case Sample_kind::all_zero:
        break;
    }
    return 0;
}

} // namespace

char const* name_of(Sample_kind kind) {
    constexpr std::array names{"random_12_bit", "random_16_bit", "all_equal", "all_zero",
                               "extremes",      "row_number",    "few_levels"};
    return names[static_cast<std::size_t>(kind)];
}

Samples make_samples(Sample_kind kind, std::size_t height, std::size_t width, std::uint64_t seed) {
    Random_stream random{seed};
    Samples samples(height * width);
    if (kind == Sample_kind::all_equal) {
        std::ranges::fill(samples, static_cast<std::uint16_t>(1 + random.below(65535)));
        return samples;
    }
    for (std::size_t row = 0; row < height; ++row) {
        for (std::size_t column = 0; column < width; ++column) {
            samples[row * width + column] = make_sample(kind, row, random);
        }
    }
    return samples;
}

} // namespace support
