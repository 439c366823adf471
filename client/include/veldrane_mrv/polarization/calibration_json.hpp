/// @file
/// Calibrations as text, which is JSON that people can read.
///
/// It holds every figure of a `Calibration`; weights and figures come back bit for bit. Its
/// `schema` names the format and its version, which grows with every change of the keys: version 2
/// added the common offset and the outlying frames, version 3 the model, the noise and the maps.
/// Older ones are read too, and a calibration that says nothing of what version 3 added is written
/// as version 2, so that older programs read it.
///
/// Of maps the text holds all but the numbers: the name of the array file beside it, which holds
/// them, its hash, the sensor, the region, the bit depth and the bad pixels.
///
/// Mosaic and weights follow from the analysers, so a text in which they differ has been changed
/// since it was written: it is refused, since nobody can tell which part is right.
#pragma once

#include "veldrane_mrv/polarization/calibration.hpp"

#include <filesystem>
#include <span>
#include <string>

namespace veldrane_mrv::polarization {

inline constexpr char const* calibration_schema_name = "veldrane_mrv.polarization_calibration";
inline constexpr int calibration_schema_version = 3;

/// @param array_stem beginning of the array file's name, of a calibration with maps: STEM gives
///        STEM.maps-HASH.npy
/// @throws Argument_error if a number is infinite or NaN, a text is not UTF-8, or the parts
///         contradict each other, so that it could not be read again
std::string calibration_to_json(
    Calibration const& calibration, std::string const& array_stem = "calibration");

/// `name` stands for the file in messages.
/// @throws File_error if the text is no calibration, is damaged, has weights or a mosaic that are
///         not those of its analysers, has maps, or comes from a newer schema
Calibration calibration_from_json(std::string const& text, std::filesystem::path const& name);

/// With the numbers of the maps in the order of `maps_of`; of none for the model `position`.
/// @throws File_error also if the numbers are not those whose hash the text has
Calibration calibration_from_json(
    std::string const& text, std::filesystem::path const& name,
    std::span<std::span<float const> const> maps);

} // namespace veldrane_mrv::polarization
