#include "report/report_statistics.hpp"

#include "veldrane_mrv/polarization/units.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace polarize_tool {

Element_counts::Element_counts(std::span<std::uint16_t const> plane)
    : counts_(65536, 0), total_{plane.size()} {
    for (std::uint16_t const element : plane) {
        ++counts_[element];
    }
}

double Element_counts::mean() const {
    double sum = 0.0;
    for (std::size_t element = 0; element < counts_.size(); ++element) {
        sum += static_cast<double>(element) * static_cast<double>(counts_[element]);
    }
    return sum / static_cast<double>(total_);
}

unsigned Element_counts::largest() const {
    auto const found =
        std::find_if(counts_.rbegin(), counts_.rend(), [](std::size_t count) { return count > 0; });
    return found == counts_.rend() ? 0 : static_cast<unsigned>(counts_.rend() - found - 1);
}

unsigned Element_counts::quantile(double share) const {
    double const wanted = share * static_cast<double>(total_);
    std::size_t sum = 0;
    for (unsigned element = 0; element < counts_.size(); ++element) {
        sum += counts_[element];
        if (sum > 0 && static_cast<double>(sum) >= wanted) {
            return element;
        }
    }
    return largest();
}

double Element_counts::share_above(unsigned element) const {
    std::size_t above = 0;
    for (std::size_t other = std::size_t{element} + 1; other < counts_.size(); ++other) {
        above += counts_[other];
    }
    return static_cast<double>(above) / static_cast<double>(total_);
}

std::vector<double> Element_counts::histogram(std::size_t steps, unsigned end) const {
    std::vector<double> result(steps, 0.0);
    for (std::size_t element = 0; element < counts_.size(); ++element) {
        result[std::min(element * steps / end, steps - 1)] += static_cast<double>(counts_[element]);
    }
    return result;
}

Angle_statistics angle_statistics(Report_planes const& planes, std::size_t steps) {
    // One sum for each element saves a sine and a cosine for each pixel.
    std::vector<double> weights(std::size_t{planes.full_scale} + 1, 0.0);
    std::size_t without = 0;
    double total = 0.0;
    for (std::size_t index = 0; index < planes.azimuth.size(); ++index) {
        double const degree = planes.dolp[index];
        weights[planes.azimuth[index]] += degree;
        total += degree;
        without += planes.dolp[index] == 0 ? 1U : 0U;
    }
    Angle_statistics result{0.0, 0.0, 0.0, std::vector<double>(steps, 0.0)};
    result.without_angle =
        static_cast<double>(without) / static_cast<double>(planes.azimuth.size());
    double sum_cosine = 0.0;
    double sum_sine = 0.0;
    for (std::size_t element = 0; element < weights.size(); ++element) {
        // The azimuth runs half its range, 90 degrees, ahead of the angle.
        double const turn = std::fmod(static_cast<double>(element) / planes.full_scale + 0.5, 1.0);
        double const direction = 2.0 * std::numbers::pi * turn;
        sum_cosine += weights[element] * std::cos(direction);
        sum_sine += weights[element] * std::sin(direction);
        auto const step = static_cast<std::size_t>(turn * static_cast<double>(steps));
        result.histogram[std::min(step, steps - 1)] += weights[element];
    }
    if (total > 0.0) {
        result.mean = veldrane_mrv::polarization::within_half_turn(
            std::atan2(sum_sine, sum_cosine) * 90.0 / std::numbers::pi);
        result.concentration = std::hypot(sum_cosine, sum_sine) / total;
    }
    return result;
}

} // namespace polarize_tool
