#pragma once

#include "comparison/runners.hpp"

/// Compares what the contenders compute with the library's planes, for every set: speed counts only
/// for the same job.
/// @return planes compared
/// @throw std::runtime_error that names contender, set and plane
std::size_t check_agreement(std::vector<Runner> const& runners);
