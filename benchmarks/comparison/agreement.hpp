#pragma once

#include "comparison/runners.hpp"

struct Agreement {
    std::size_t written;  ///< planes of which every element was written
    std::size_t compared; ///< planes of them that hold the library's values
};

/// Lets every contender compute every set of planes once.
/// @throws std::runtime_error if one leaves out an element, or computes something else
Agreement check_agreement(std::vector<Runner> const& runners);
