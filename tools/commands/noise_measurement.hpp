/// @file
/// How a sensor's samples scatter, from pairs of flat frames.
#pragma once

#include "input/frame_preparation.hpp"
#include "veldrane_mrv/polarization/photon_transfer.hpp"

#include <optional>
#include <vector>

namespace polarize_tool {

/// Frames 0 and 1 are a pair, 2 and 3, and so on. Two are in memory at a time.
/// @param options with the part of whole frames that is measured
/// @throws File_failure if a frame cannot be read, or the last one has no second
/// @throws polarization::Argument_error as `measure_pair` and `fit_photon_transfer` do
polarization::Photon_transfer measure_noise(
    std::vector<Frame_place> const& flats, std::optional<Raw_layout> const& raw,
    Frame_preparation const& preparation, polarization::Photon_transfer_options const& options,
    bool shows_progress);

} // namespace polarize_tool
