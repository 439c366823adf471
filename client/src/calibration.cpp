#include "veldrane_mrv/polarization/calibration.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

#include <Eigen/Dense>

#include <chrono>
#include <cmath>
#include <ctime>
#include <numbers>
#include <string>

namespace veldrane_mrv::polarization {
namespace {

using Instrument_matrix = Eigen::Matrix<double, 4, 3>;

// Beyond it S1 and S2 are noise, whatever the light.
constexpr double largest_condition_number = 100;

double radians(double degrees) {
    return degrees * std::numbers::pi / 180;
}

Eigen::RowVector3d instrument_row(Analyser const& analyser) {
    double const twice = 2 * radians(analyser.orientation);
    return analyser.throughput / 2 *
           Eigen::RowVector3d{
               1, analyser.diattenuation * std::cos(twice),
               analyser.diattenuation * std::sin(twice)};
}

// Rows in the order of the quartet at a position. Neighbours to the left and above lie under the
// same analysers as those to the right and below.
Instrument_matrix instrument_matrix(
    std::array<Analyser, 4> const& analysers, std::size_t position) {
    Instrument_matrix matrix;
    for (std::size_t sample = 0; sample < analysers.size(); ++sample) {
        matrix.row(static_cast<Eigen::Index>(sample)) =
            instrument_row(analysers[position ^ sample]);
    }
    return matrix;
}

void check_usable(std::array<Analyser, 4> const& analysers) {
    for (std::size_t position = 0; position < analysers.size(); ++position) {
        Analyser const& analyser = analysers[position];
        std::string const place = " of position " + std::to_string(position);
        // Written so that a NaN fails.
        if (!(analyser.throughput >= least_throughput &&
              analyser.throughput <= largest_throughput)) {
            throw Argument_error(
                "throughput" + place, std::to_string(analyser.throughput),
                "give one of 0.01 to 4, relative to the mean of the four");
        }
        if (!std::isfinite(analyser.diattenuation) || analyser.diattenuation < 0) {
            throw Argument_error(
                "diattenuation" + place, std::to_string(analyser.diattenuation),
                "give one of 0 to 1");
        }
        if (!std::isfinite(analyser.orientation)) {
            throw Argument_error(
                "orientation" + place, std::to_string(analyser.orientation), "give degrees");
        }
    }
}

} // namespace

std::string_view name_of(Quality_flag flag) {
    constexpr std::array<std::string_view, all_quality_flags.size()> names = {
        "few_frames",         "wide_angle_gap",          "large_residual",
        "weak_diattenuation", "diattenuation_above_one", "poor_conditioning",
        "dark_level_unknown", "orientation_offset"};
    return names.at(static_cast<std::size_t>(flag));
}

std::string_view explanation_of(Quality_flag flag) {
    constexpr std::array<std::string_view, all_quality_flags.size()> explanations = {
        "Fewer than six frames were given, so the residuals say little; take one every 10 degrees.",
        "Neighbouring polariser angles lie more than 60 degrees apart; take frames in between.",
        "The samples depart from the fit by more than 1 %; check the angles, the source's "
        "steadiness and the dark level.",
        "An analyser's diattenuation is below 0.5; check the dark level, the lens and the "
        "wavelength.",
        "An analyser's diattenuation is above 1, which no polariser has; check the dark level and "
        "the exposure.",
        "The analysers tell S1 and S2 apart poorly, so noise grows in both; check the mosaic and "
        "the diattenuations.",
        "No dark level was known, and an unknown one lowers the diattenuations; subtract dark "
        "frames.",
        "The four orientations are off by 2 degrees or more in common, so all calibrated angles "
        "will be turned by as much; check the polariser's zero."};
    return explanations.at(static_cast<std::size_t>(flag));
}

bool Calibration::operator==(Calibration const& other) const {
    bool const has_equal_maps = maps == other.maps || (maps && other.maps && *maps == *other.maps);
    return has_equal_maps && model == other.model && mosaic == other.mosaic &&
           matrices == other.matrices && analysers == other.analysers && quality == other.quality &&
           provenance == other.provenance && noise == other.noise;
}

Calibration ideal_calibration(Mosaic const& mosaic) {
    std::array<Analyser, 4> analysers;
    for (std::size_t position = 0; position < analysers.size(); ++position) {
        analysers[position].orientation = mosaic.layout()[position];
        analysers[position].dark_level = 0;
    }
    Calibration_quality quality;
    quality.condition_number = condition_number(analysers);
    return {
        mosaic,
        ideal_matrices(mosaic),
        analysers,
        quality,
        {std::string{software_version()}, current_time(), {}, "ideal sensor"}};
}

Matrices matrices_of(std::array<Analyser, 4> const& analysers) {
    double const condition = condition_number(analysers);
    if (!(condition <= largest_condition_number)) {
        throw Argument_error(
            "condition number of the analysers", std::to_string(condition),
            "give orientations about 45 degrees apart and diattenuations well above 0");
    }
    Matrices matrices{};
    for (std::size_t position = 0; position < analysers.size(); ++position) {
        Eigen::Matrix<double, 3, 4> weights = instrument_matrix(analysers, position)
                                                  .completeOrthogonalDecomposition()
                                                  .pseudoInverse();
        // The processor halves its first estimate.
        weights.row(0) *= 2;
        for (Eigen::Index element = 0; element < weights.size(); ++element) {
            matrices.by_position[position][static_cast<std::size_t>(element)] =
                static_cast<float>(weights(element / 4, element % 4));
        }
    }
    return matrices;
}

double condition_number(std::array<Analyser, 4> const& analysers) {
    check_usable(analysers);
    Eigen::JacobiSVD<Eigen::MatrixXd> const decomposition{instrument_matrix(analysers, 0)};
    auto const& values = decomposition.singularValues();
    return values(0) / values(2);
}

double common_offset(std::array<Analyser, 4> const& analysers, Mosaic const& mosaic) {
    double offset = 0;
    for (std::size_t position = 0; position < analysers.size(); ++position) {
        offset +=
            std::remainder(analysers[position].orientation - mosaic.layout()[position], 180) / 4;
    }
    return offset;
}

double expected_mean(
    Calibration const& calibration, std::size_t position, double polariser_angle,
    double source_intensity, double source_degree) {
    Analyser const& analyser = calibration.analysers.at(position);
    double const twice = 2 * radians(polariser_angle);
    Eigen::Vector3d const light{
        1, source_degree * std::cos(twice), source_degree * std::sin(twice)};
    return source_intensity * calibration.quality.source_level *
               instrument_row(analyser).dot(light) +
           analyser.dark_level.value_or(0);
}

Calibration of_region(
    Calibration const& calibration, std::size_t row_offset, std::size_t column_offset) {
    if (calibration.maps) {
        throw Argument_error(
            "the calibration's model", std::string{name_of(calibration.model)},
            "give the width and height of the region too, since its maps are cut");
    }
    Calibration region = calibration;
    region.mosaic = calibration.mosaic.of_region(row_offset, column_offset);
    region.matrices = of_region(calibration.matrices, row_offset, column_offset);
    std::size_t const moved = cell_position(row_offset, column_offset);
    for (std::size_t position = 0; position < calibration.analysers.size(); ++position) {
        region.analysers[position] = calibration.analysers[position ^ moved];
    }
    return region;
}

Calibration of_region(Calibration const& calibration, Region const& region) {
    Calibration result = calibration;
    result.maps = nullptr;
    result = of_region(result, region.row, region.column);
    if (calibration.maps) {
        result.maps =
            std::make_shared<Calibration_maps const>(of_region(*calibration.maps, region));
    }
    return result;
}

std::string_view software_version() {
    return VELDRANE_MRV_VERSION;
}

std::string current_time() {
    std::time_t const now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    std::tm broken_down{};
    gmtime_r(&now, &broken_down);
    std::array<char, 32> text{};
    std::size_t const length =
        std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &broken_down);
    return {text.data(), length};
}

} // namespace veldrane_mrv::polarization
