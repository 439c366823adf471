/// @file
/// A calibration between its text and its array file.
#pragma once

#include "maps_json.hpp"

#include "veldrane_mrv/polarization/calibration.hpp"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace veldrane_mrv::polarization {

struct Calibration_text {
    /// Without maps.
    Calibration calibration;
    std::optional<Maps_text> maps;
};

/// @throws File_error
Calibration_text parse_calibration(std::string const& text, std::filesystem::path const& name);

/// The calibration with maps whose numbers come from `array`.
/// @throws File_error if they are not those of the text, or none of a sensor
Calibration complete(
    Calibration_text const& text, std::shared_ptr<Calibration_maps const> const& maps,
    std::filesystem::path const& array);

} // namespace veldrane_mrv::polarization
