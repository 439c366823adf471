#include "veldrane_mrv/polarization/photon_transfer.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/mosaic.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <sstream>

namespace veldrane_mrv::polarization {
namespace {

constexpr double rounding_variance = 1.0 / 12;
constexpr double least_pixels = 100;
constexpr double largest_clipped_share = 0.001;
// Fixed patterns cancel but for this share of them; single samples may drift without light.
constexpr double largest_drift = 0.02;
constexpr double least_drift = 1;
constexpr std::size_t least_levels = 3;
constexpr double least_step = 0.02;
constexpr double largest_lowest_level = 0.5;
constexpr double tolerated_deviation = 0.1;
constexpr double tolerated_errors = 5;

constexpr char const* levels_remedy =
    "give pairs of flat frames at three levels or more, from below a tenth to nine tenths of the "
    "full scale, none saturated; a pair without light is one";

std::string text_of(double number) {
    std::ostringstream text;
    text.precision(4);
    text << number;
    return text.str();
}

std::string place_of(std::string const& source) {
    return source.empty() ? " of a pair" : " of " + source;
}

Region checked_region(Flat_pair const& pair, Photon_transfer_options const& options) {
    if (options.bit_depth < 1 || options.bit_depth > 16) {
        throw Argument_error("bit depth", std::to_string(options.bit_depth), "give 1 to 16");
    }
    for (double const level : options.dark_levels) {
        if (!std::isfinite(level)) {
            throw Argument_error("dark level", text_of(level), "measure it from dark frames");
        }
    }
    Size const size = pair.first.size();
    if (pair.second.size() != size) {
        throw Argument_error(
            "size of the second frame" + place_of(pair.source), to_string(pair.second.size()),
            "give pairs of one size, the first frame has " + to_string(size));
    }
    Region const region = options.region.value_or(region_of(size));
    if (!fits(region, size)) {
        throw Argument_error(
            "region" + place_of(pair.source), to_string(region),
            "give a part of the frames' " + to_string(size));
    }
    return region;
}

struct Line {
    double offset = 0;
    double slope = 0;

    double operator()(double level) const { return offset + slope * level + rounding_variance; }
};

Line fitted_line(std::vector<Photon_transfer_point> const& points) {
    double weights = 0;
    double levels = 0;
    double variances = 0;
    double squares = 0;
    double products = 0;
    for (Photon_transfer_point const& point : points) {
        double const weight = 1 / (point.standard_error * point.standard_error);
        double const variance = point.variance - rounding_variance;
        weights += weight;
        levels += weight * point.level;
        variances += weight * variance;
        squares += weight * point.level * point.level;
        products += weight * point.level * variance;
    }
    double const slope =
        (weights * products - levels * variances) / (weights * squares - levels * levels);
    double const offset = (variances - slope * levels) / weights;
    return offset >= 0 ? Line{offset, slope} : Line{0, products / squares};
}

void check_levels(std::vector<Photon_transfer_point> const& points) {
    std::size_t distinct = 0;
    double last = 0;
    for (Photon_transfer_point const& point : points) {
        if (distinct == 0 || point.level - last >= least_step * points.back().level) {
            ++distinct;
            last = point.level;
        }
    }
    if (distinct < least_levels) {
        throw Argument_error("number of levels", std::to_string(distinct), levels_remedy);
    }
    if (!(points.front().level <= largest_lowest_level * points.back().level)) {
        throw Argument_error(
            "range of levels",
            text_of(points.front().level) + " to " + text_of(points.back().level), levels_remedy);
    }
}

// Largest distance of a variance from the line, as a fraction of the line's.
double checked_deviation(std::vector<Photon_transfer_point> const& points, Line const& line) {
    auto const deviation = [&line](Photon_transfer_point const& point) {
        return std::abs(point.variance / line(point.level) - 1);
    };
    Photon_transfer_point const& farthest = *std::ranges::max_element(points, {}, deviation);
    double const expected = line(farthest.level);
    double const distance = std::abs(farthest.variance - expected);
    if (distance > tolerated_deviation * expected &&
        distance > tolerated_errors * farthest.standard_error) {
        throw Argument_error(
            "variance" + place_of(farthest.source),
            text_of(farthest.variance) + " at the level " + text_of(farthest.level) +
                ", where all together let expect " + text_of(expected),
            "leave out pairs that are nearly saturated or whose light was not steady");
    }
    return deviation(farthest);
}

} // namespace

Photon_transfer_point measure_pair(Flat_pair const& pair, Photon_transfer_options const& options) {
    Region const region = checked_region(pair, options);
    std::uint32_t const full_scale = (1U << options.bit_depth) - 1;
    double sum = 0;
    double dark_sum = 0;
    double differences = 0;
    double squares = 0;
    double count = 0;
    for (std::size_t row = region.row; row < region.row + region.height; ++row) {
        for (std::size_t column = region.column; column < region.column + region.width; ++column) {
            std::uint16_t const first = pair.first(row, column);
            std::uint16_t const second = pair.second(row, column);
            if (std::min(first, second) == 0 || std::max(first, second) >= full_scale) {
                continue;
            }
            double const difference = static_cast<double>(first) - static_cast<double>(second);
            sum += static_cast<double>(first) + static_cast<double>(second);
            dark_sum += options.dark_levels[cell_position(row, column)];
            differences += difference;
            squares += difference * difference;
            ++count;
        }
    }
    auto const pixels = static_cast<double>(region.width * region.height);
    if (count < least_pixels) {
        throw Argument_error(
            "number of pixels that are not clipped" + place_of(pair.source), text_of(count),
            "give at least 100, without light too above 0");
    }
    double const level = sum / count / 2 - dark_sum / count;
    double const drift = std::abs(differences / count);
    if (drift > largest_drift * level + least_drift) {
        throw Argument_error(
            "difference of the two means" + place_of(pair.source), text_of(drift),
            "take both frames in the same steady light, of level " + text_of(level) + " here");
    }
    double const variance = (squares - differences * differences / count) / (count - 1) / 2;
    return {
        level, variance, variance * std::sqrt(2 / (count - 1)), 1 - count / pixels, pair.source};
}

Photon_transfer fit_photon_transfer(std::span<Photon_transfer_point const> points) {
    Photon_transfer transfer;
    for (Photon_transfer_point const& point : points) {
        if (!std::isfinite(point.level) || !(point.standard_error > 0)) {
            throw Argument_error(
                "variance" + place_of(point.source), text_of(point.variance),
                "give two frames of the same light, not one frame twice");
        }
        bool const is_clipped = point.clipped_share > largest_clipped_share;
        (is_clipped ? transfer.clipped : transfer.points).push_back(point);
    }
    std::ranges::stable_sort(transfer.points, {}, &Photon_transfer_point::level);
    check_levels(transfer.points);
    Line const line = fitted_line(transfer.points);
    if (!(line.slope > 0)) {
        throw Argument_error(
            "growth of the variance with the level", text_of(line.slope),
            "give raw frames of several levels, neither averaged nor compressed");
    }
    transfer.largest_deviation = checked_deviation(transfer.points, line);
    transfer.noise.electrons_per_count = 1 / line.slope;
    transfer.noise.read_noise = std::sqrt(line.offset) / line.slope;
    return transfer;
}

} // namespace veldrane_mrv::polarization
