/// @file
/// Parts of a calibration that follow from each other and differ all the same.
#pragma once

#include "veldrane_mrv/polarization/calibration.hpp"

#include <optional>
#include <string>

namespace veldrane_mrv::polarization {

struct Contradiction {
    /// Path of the value to blame in the file, such as "matrices/0/1/2".
    std::string key;
    /// What it is, and what it ought to be.
    std::string problem;
};

/// The first one, if there is any: an analyser that none can be, orientations of another mosaic,
/// or weights that are not those of the analysers. Infinite figures and NaNs are not judged here.
std::optional<Contradiction> find_contradiction(Calibration const& calibration);

} // namespace veldrane_mrv::polarization
