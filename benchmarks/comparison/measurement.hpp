#pragma once

#include "comparison/runners.hpp"

#include <cstddef>
#include <vector>

/// Seconds per call of one contender in one case, a number for each round that it took part in.
using Times = std::vector<double>;

struct Measured_table {
    Table const& table;
    std::vector<Runner const*> runners;
    std::vector<std::vector<Times>> times; ///< by runner, by case

    double median_seconds(std::size_t runner, std::size_t of_case) const;

    /// How many times as long as the first runner: the median of the ratios of the rounds, in which
    /// both ran one after the other.
    double ratio(std::size_t runner, std::size_t of_case) const;
};

/// Measures the contenders in turn, round after round.
Measured_table measure(Table const& table, std::vector<Runner> const& runners, std::size_t rounds);
