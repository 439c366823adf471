/// @file
/// What a calibration's text says of its maps.
#pragma once

#include "json_node.hpp"

#include "veldrane_mrv/polarization/calibration_maps.hpp"

#include <filesystem>
#include <string>

namespace veldrane_mrv::polarization {

/// Maps without numbers, and where those are.
struct Maps_text {
    Calibration_maps maps;
    std::string array_file;
    std::string hash;
};

/// All but the bad pixels, for which `with_bad_pixels` is needed.
Json maps_json(
    Calibration_model model, Calibration_maps const& maps, std::string const& array_stem);

/// The whole text with the bad pixels in one line: there may be thousands.
std::string with_bad_pixels(std::string const& text, Calibration_maps const& maps);

/// Sizes and pixels are still to be judged by `find_description_fault`.
/// @throws File_error
Maps_text read_maps(Node const& node, Calibration_model model);

} // namespace veldrane_mrv::polarization
