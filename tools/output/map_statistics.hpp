/// @file
/// Calibration maps as people look at them: how far pixels are from their positions of the cell.
#pragma once

#include "veldrane_mrv/polarization/pixel_calibration.hpp"

#include <cstddef>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace polarize_tool {

namespace polarization = veldrane_mrv::polarization;

/// One that is shown.
struct Shown_map {
    std::string_view name;
    /// What its numbers count.
    std::string_view meaning;
    /// That of a pixel that is as its position; none for what has no such number.
    std::optional<double> usual;
    /// @param position of the cell, as for `analysers`
    double (*value)(
        polarization::Measured_calibration const& measured, std::size_t pixel,
        std::size_t position);
};

/// The model's maps, then the residuals; none for `position`.
std::span<Shown_map const> shown_maps(polarization::Calibration_model model);

/// Of every pixel, row by row.
std::vector<float> values_of(
    Shown_map const& map, polarization::Measured_calibration const& measured);

struct Map_statistics {
    double median = 0;
    /// 1.4826 times the median absolute deviation: the standard deviation of normal numbers.
    double spread = 0;
};

/// Of pixels that are not bad; zeros if there is none.
Map_statistics statistics_of(
    std::vector<float> values, polarization::Measured_calibration const& measured);

} // namespace polarize_tool
