/// @file
/// The file that holds the maps of a calibration.
#pragma once

#include "veldrane_mrv/polarization/calibration_maps.hpp"

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace veldrane_mrv::polarization {

/// What stands before the numbers: NumPy's format 1.0, a whole number of 64 bytes.
std::string array_header(Calibration_model model, Size const& size);

/// The numbers of the maps, in the order of the file.
std::vector<std::span<std::byte const>> array_numbers(
    Calibration_model model, Calibration_maps const& maps);

/// What stands before a hash in the text.
inline constexpr std::string_view hash_start = "xxh3-64:";

/// Of the whole file, such as "0123456789abcdef": XXH3 of 64 bits, which tells damage and mistakes,
/// not malice.
std::string array_hash(Calibration_model model, Calibration_maps const& maps);

/// STEM.maps-HASH.npy
std::string array_name(std::string const& stem, std::string const& hash);

} // namespace veldrane_mrv::polarization
