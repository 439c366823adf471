/// @file
/// Numbers drawn by their index alone, so that no order of evaluation can change them. The normally
/// distributed ones are `normal_deviate`'s.
#pragma once

#include <cstdint>

namespace veldrane_mrv::polarization {

/// Between 0 and 1, evenly distributed.
double uniform_number(std::uint64_t seed, std::uint64_t draw);

/// A seed of its own for each purpose, far from all that users count from 1.
std::uint64_t seed_for(std::uint64_t seed, std::uint64_t purpose);

} // namespace veldrane_mrv::polarization
