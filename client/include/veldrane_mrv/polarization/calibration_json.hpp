/// @file
/// Calibrations as text, which is JSON that people can read.
///
/// It holds every figure of a `Calibration`; weights and figures come back bit for bit. Its
/// `schema` names the format and its version, which grows with every change of the keys: version 2
/// added the common offset and the outlying frames. Version 1 is read too.
///
/// Mosaic and weights follow from the analysers, so a text in which they differ has been changed
/// since it was written: it is refused, since nobody can tell which part is right.
#pragma once

#include "veldrane_mrv/polarization/calibration.hpp"

#include <filesystem>
#include <string>

namespace veldrane_mrv::polarization {

inline constexpr char const* calibration_schema_name = "veldrane_mrv.polarization_calibration";
inline constexpr int calibration_schema_version = 2;

/// @throws Argument_error if a number is infinite or NaN, a text is not UTF-8, or the parts
///         contradict each other, so that it could not be read again
std::string calibration_to_json(Calibration const& calibration);

/// `name` stands for the file in messages.
/// @throws File_error if the text is no calibration, is damaged, has weights or a mosaic that are
///         not those of its analysers, or comes from a newer schema
Calibration calibration_from_json(std::string const& text, std::filesystem::path const& name);

} // namespace veldrane_mrv::polarization
