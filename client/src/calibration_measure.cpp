#include "veldrane_mrv/polarization/calibration_measure.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/mosaic.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <vector>

namespace veldrane_mrv::polarization {
namespace {

constexpr double largest_saturated_share = 0.001;
constexpr double least_mean_share = 0.01;
constexpr double trimmed_share = 0.05;

using Histogram = std::vector<std::uint64_t>;

std::string place_of(Uniform_frame const& frame) {
    return frame.source.empty()
               ? " of the frame at " + std::to_string(frame.polariser_angle) + " degrees"
               : " of " + frame.source;
}

Region checked_region(Uniform_frame const& frame, Estimation_options const& options) {
    Size const size = frame.frame.size();
    Region const region = options.region.value_or(region_of(size));
    if (region.height < 2 || region.width < 2 || !fits(region, size)) {
        throw Argument_error(
            "region" + place_of(frame), to_string(region),
            "give at least 2 x 2 within the frame's " + to_string(size));
    }
    return region;
}

std::array<Histogram, 4> histograms_of(Frame_view const& frame, Region const& region) {
    std::array<Histogram, 4> histograms;
    histograms.fill(Histogram(std::size_t{1} + std::ranges::max(frame.samples()), 0));
    for (std::size_t row = region.row; row < region.row + region.height; ++row) {
        for (std::size_t column = region.column; column < region.column + region.width; ++column) {
            ++histograms[cell_position(row, column)][frame(row, column)];
        }
    }
    return histograms;
}

// Mean of the samples that are left when `share` of them is cut off at either end; a value at a cut
// counts for the part of its samples that stays.
double trimmed_mean(Histogram const& histogram, double share) {
    double const count =
        static_cast<double>(std::accumulate(histogram.begin(), histogram.end(), std::uint64_t{0}));
    double const first = share * count;
    double const last = count - first;
    double below = 0;
    double sum = 0;
    for (std::size_t value = 0; value < histogram.size(); ++value) {
        double const above = below + static_cast<double>(histogram[value]);
        double const kept = std::min(above, last) - std::max(below, first);
        sum += std::max(kept, 0.0) * static_cast<double>(value);
        below = above;
    }
    return sum / (last - first);
}

void check_saturation(
    Uniform_frame const& frame, std::array<Histogram, 4> const& histograms, std::size_t limit) {
    double saturated = 0;
    double count = 0;
    for (Histogram const& histogram : histograms) {
        for (std::size_t value = 0; value < histogram.size(); ++value) {
            count += static_cast<double>(histogram[value]);
            saturated += value >= limit ? static_cast<double>(histogram[value]) : 0.0;
        }
    }
    if (saturated > largest_saturated_share * count) {
        throw Argument_error(
            "share of saturated samples" + place_of(frame),
            std::to_string(100 * saturated / count) + " % at " + std::to_string(limit) +
                " or above",
            "shorten the exposure, or give the bit depth that the samples have");
    }
}

} // namespace

Series_point measure(Uniform_frame const& frame, Estimation_options const& options) {
    if (options.bit_depth < 1 || options.bit_depth > 16) {
        throw Argument_error("bit depth", std::to_string(options.bit_depth), "give 1 to 16");
    }
    Region const region = checked_region(frame, options);
    std::size_t const full_scale = (std::size_t{1} << options.bit_depth) - 1;
    std::array<Histogram, 4> const histograms = histograms_of(frame.frame, region);
    check_saturation(frame, histograms, full_scale);
    Series_point point{
        frame.polariser_angle, frame.source_intensity, {}, frame.frame.size(), frame.source};
    double signal = 0;
    for (std::size_t position = 0; position < histograms.size(); ++position) {
        point.means[position] = trimmed_mean(
            histograms[position], options.average == Average::mean ? 0.0 : trimmed_share);
        double const dark = options.dark_levels ? options.dark_levels->at(position) : 0.0;
        signal += (point.means[position] - dark) / 4;
    }
    if (!(signal >= least_mean_share * static_cast<double>(full_scale))) {
        throw Argument_error(
            "mean sample above dark" + place_of(frame), std::to_string(signal),
            "give more light or exposure, at least " +
                std::to_string(least_mean_share * static_cast<double>(full_scale)) +
                " for the bit depth given");
    }
    return point;
}

} // namespace veldrane_mrv::polarization
