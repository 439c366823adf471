#include "contradiction.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <sstream>

namespace veldrane_mrv::polarization {
namespace {

// S0 is as far off as the mean throughput.
constexpr double mean_throughput_tolerance = 0.01;

template <class Number>
std::string text_of(Number number) {
    std::ostringstream text;
    text.precision(std::numeric_limits<Number>::max_digits10);
    text << number;
    return text.str();
}

std::string key_of(std::size_t position, std::string const& figure) {
    return "analysers/" + std::to_string(position) + "/" + figure;
}

std::optional<Contradiction> throughput_contradiction(Calibration const& calibration) {
    double mean = 0;
    for (std::size_t position = 0; position < calibration.analysers.size(); ++position) {
        double const throughput = calibration.analysers[position].throughput;
        if (throughput < least_throughput || throughput > largest_throughput) {
            return Contradiction{
                key_of(position, "throughput"),
                text_of(throughput) + ", not within 0.01 to 4, relative to the mean of the four"};
        }
        mean += throughput / 4;
    }
    if (std::abs(mean - 1) > mean_throughput_tolerance) {
        return Contradiction{"analysers", text_of(mean) + " in mean throughput, not 1"};
    }
    return std::nullopt;
}

bool is_aligned(Analyser const& analyser, int polariser) {
    return !(
        std::abs(std::remainder(analyser.orientation - polariser, 180)) > farthest_orientation);
}

std::optional<Contradiction> mosaic_contradiction(Calibration const& calibration) {
    auto const fits = [&](Mosaic const& mosaic) {
        return std::ranges::equal(calibration.analysers, mosaic.layout(), is_aligned);
    };
    if (fits(calibration.mosaic)) {
        return std::nullopt;
    }
    auto const all = all_mosaics();
    if (auto const other = std::ranges::find_if(all, fits); other != all.end()) {
        return Contradiction{
            "mosaic", calibration.mosaic.to_string() +
                          ", but the orientations of the analysers are those of " +
                          other->to_string()};
    }
    auto const [analyser, polariser] =
        std::ranges::mismatch(calibration.analysers, calibration.mosaic.layout(), is_aligned);
    auto const position = static_cast<std::size_t>(analyser - calibration.analysers.begin());
    return Contradiction{
        key_of(position, "orientation_degrees"), text_of(analyser->orientation) +
                                                     ", not within 22.5 degrees of the " +
                                                     std::to_string(*polariser) + " of the mosaic"};
}

// Weights are computed in double precision and rounded to float, so another compiler or processor
// may round the last bit of one to its neighbour; of weights that are 0 but for cancellation the
// largest of the row sets the scale. Anything else is another number than the analysers give.
std::optional<Contradiction> weight_contradiction(Matrices const& is, Matrices const& expected) {
    for (std::size_t position = 0; position < is.by_position.size(); ++position) {
        auto const& weights = expected.by_position[position];
        for (std::size_t element = 0; element < weights.size(); ++element) {
            std::size_t const row = element / 4;
            float largest = 0;
            for (std::size_t column = 0; column < 4; ++column) {
                largest = std::max(largest, std::abs(weights[4 * row + column]));
            }
            float const weight = is.by_position[position][element];
            if (std::abs(weight - weights[element]) >
                std::numeric_limits<float>::epsilon() * largest) {
                return Contradiction{
                    "matrices/" + std::to_string(position) + "/" + std::to_string(row) + "/" +
                        std::to_string(element % 4),
                    text_of(weight) + ", not the " + text_of(weights[element]) +
                        " that the analysers give"};
            }
        }
    }
    return std::nullopt;
}

} // namespace

std::optional<Contradiction> find_contradiction(Calibration const& calibration) {
    if (auto found = throughput_contradiction(calibration)) {
        return found;
    }
    if (auto found = mosaic_contradiction(calibration)) {
        return found;
    }
    try {
        return weight_contradiction(calibration.matrices, matrices_of(calibration.analysers));
    } catch (Argument_error const& error) {
        return Contradiction{"analysers", error.value() + " in " + error.argument()};
    }
}

} // namespace veldrane_mrv::polarization
