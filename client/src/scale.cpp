#include "veldrane_mrv/polarization/scale.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

#include <string>

namespace veldrane_mrv::polarization {
namespace {

constexpr unsigned largest_full_scale = 65535;

// No bit depth from 1 on has this as its largest sample.
constexpr std::int32_t selects_rescaling = 0;

} // namespace

Scale::Scale(int bit_depth, unsigned full_scale, bool rescaled)
    : bit_depth_{bit_depth}, full_scale_{full_scale}, rescaled_{rescaled} {
    if (bit_depth < 1 || bit_depth > 16) {
        throw Argument_error{"the bit depth", std::to_string(bit_depth), "give 1 to 16 bits"};
    }
    if (full_scale < 1 || full_scale > largest_full_scale) {
        throw Argument_error{
            "the full scale", std::to_string(full_scale), "give a number from 1 to 65535"};
    }
}

Scale::Scale(int bit_depth, std::optional<unsigned> full_scale)
    : Scale{bit_depth, full_scale.value_or(largest_full_scale), true} {
    rescaled_ = full_scale != largest_sample();
}

Scale Scale::in_sample_units(int bit_depth, unsigned full_scale) {
    return {bit_depth, full_scale, false};
}

double Scale::sample_units_per_step() const {
    return rescaled_ ? 2.0 * largest_sample() / full_scale_ : 1.0;
}

std::int32_t Scale::maximum_output_value_integer() const {
    return rescaled_ ? selects_rescaling : static_cast<std::int32_t>(largest_sample());
}

} // namespace veldrane_mrv::polarization
