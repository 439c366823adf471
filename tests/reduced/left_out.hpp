/// @file
/// What a reduced build does for the kernels that it leaves out.

#pragma once

#include "reduced/chosen_variants.hpp"

namespace reduced {

/// A transform's result in the place of 0. It computes nothing.
inline constexpr int left_out{-1};

constexpr bool requests_nothing(Variant const& variant) {
    for (std::size_t plane = 0; plane < plane_count; ++plane) {
        if (variant[first_plane_place + plane] != 0) {
            return false;
        }
    }
    return true;
}

constexpr bool is_left_out(Variant const& variant) {
    for (Variant const& chosen : chosen_variants) {
        if (chosen == variant) {
            return false;
        }
    }
    return !requests_nothing(variant);
}

} // namespace reduced
