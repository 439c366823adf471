#include "veldrane_mrv/polarization/calibration_estimate.hpp"

#include "series_fit.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/units.hpp"

#include <Eigen/Dense>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <sstream>
#include <vector>

namespace veldrane_mrv::polarization {
namespace {

constexpr double least_diattenuation = 0.05;

constexpr std::size_t frames_for_good_residuals = 6;
constexpr double wide_gap = 60;
constexpr double weak_diattenuation = 0.5;
constexpr double impossible_diattenuation = 1.01;
constexpr double poor_condition_number = 3;
// A polariser that is off by 2 degrees is measured as a few hundredths more or less.
constexpr double large_offset = 1.95;

using Angles = std::array<double, 4>;

std::string text_of(double number) {
    std::ostringstream text;
    text.precision(4);
    text << number;
    return text.str();
}

// From -90 to 90.
double axis_difference(double left, double right) {
    return within_half_turn(left - right + 90) - 90;
}

std::vector<double> angles_of(std::span<Series_point const> series) {
    std::vector<double> angles;
    std::ranges::transform(series, std::back_inserter(angles), &Series_point::polariser_angle);
    return angles;
}

void check_numbers(Series_point const& point, std::size_t index) {
    std::string const place =
        point.source.empty() ? " of frame " + std::to_string(index) : " of " + point.source;
    if (!std::isfinite(point.polariser_angle)) {
        throw Argument_error(
            "polariser angle" + place, text_of(point.polariser_angle), "give it in degrees");
    }
    if (!std::isfinite(point.source_intensity) || point.source_intensity <= 0) {
        throw Argument_error(
            "source intensity" + place, text_of(point.source_intensity),
            "give a number above 0, or 1 for all frames of a steady source");
    }
    if (!std::ranges::all_of(point.means, [](double mean) { return std::isfinite(mean); })) {
        throw Argument_error("mean" + place, "not finite", "measure it from a frame");
    }
}

void check_series(std::span<Series_point const> series, Estimation_options const& options) {
    if (!(options.source_degree > 0 && options.source_degree <= 1)) {
        throw Argument_error(
            "source degree", text_of(options.source_degree),
            "give the degree of polarisation behind the polariser, above 0 and at most 1");
    }
    if (!(options.largest_misalignment > 0 &&
          options.largest_misalignment <= farthest_orientation)) {
        throw Argument_error(
            "largest misalignment", text_of(options.largest_misalignment),
            "give degrees above 0 and at most 22.5, half the distance between polarisers");
    }
    for (std::size_t index = 0; index < series.size(); ++index) {
        check_numbers(series[index], index);
        Series_point const& first = series.front();
        if (series[index].size != first.size) {
            throw Argument_error(
                "size of frame " + std::to_string(index), to_string(series[index].size),
                "give frames of the size of the first one, " + to_string(first.size));
        }
    }
    std::vector<double> const gaps = gaps_of(angles_of(series));
    std::size_t const distinct = distinct_angles(gaps);
    if (distinct < parameters_per_position) {
        throw Argument_error(
            "number of different polariser angles", std::to_string(distinct),
            "give frames at three angles or more; angles 180 degrees apart count once");
    }
    double const worst = std::ranges::max(gaps);
    if (worst > largest_gap) {
        throw Argument_error(
            "largest gap between polariser angles", text_of(worst) + " degrees",
            "give angles spread over 180 degrees, at most 120 apart");
    }
}

struct Fit {
    double twice_level = 0;
    double diattenuation = 0;
    double orientation = 0;
    double squared_residuals = 0;
};

Fit fit_position(Series_equations const& equations, std::size_t position) {
    Eigen::VectorXd const measured = equations.means.col(static_cast<Eigen::Index>(position));
    Eigen::Vector3d const solution = equations.design.colPivHouseholderQr().solve(measured);
    Eigen::VectorXd const residuals = measured - equations.design * solution;
    return {
        2 * solution(0), std::hypot(solution(1), solution(2)) / solution(0),
        within_half_turn(std::atan2(solution(2), solution(1)) * 90 / std::numbers::pi),
        residuals.squaredNorm()};
}

bool fits(Angles const& orientations, Mosaic const& mosaic, double sense, double limit) {
    for (std::size_t position = 0; position < orientations.size(); ++position) {
        double const angle = sense * orientations[position];
        if (std::abs(axis_difference(angle, mosaic.layout()[position])) > limit) {
            return false;
        }
    }
    return true;
}

// The common turn that brings all orientations to the mosaic, if there is one.
std::optional<double> common_turn(Angles const& orientations, Mosaic const& mosaic, double limit) {
    double const first = axis_difference(orientations[0], mosaic.layout()[0]);
    Angles turned = orientations;
    std::ranges::for_each(turned, [first](double& angle) { angle -= first; });
    return fits(turned, mosaic, 1, limit) ? std::optional{first} : std::nullopt;
}

std::string remedy_for(Angles const& orientations, Mosaic const& mosaic, double limit) {
    for (Mosaic const& other : all_mosaics()) {
        if (fits(orientations, other, 1, limit)) {
            return "give the mosaic " + other.to_string() + ", or check the polariser's zero";
        }
    }
    if (fits(orientations, mosaic, -1, limit)) {
        return "count the polariser's angles in the other sense";
    }
    if (auto const turn = common_turn(orientations, mosaic, limit)) {
        return "check the polariser's zero, which seems to be off by " + text_of(*turn) +
               " degrees";
    }
    return "check the mosaic and the angles of the frames";
}

void check_fits(
    std::array<Fit, 4> const& fitted, Mosaic const& mosaic, Estimation_options const& options) {
    Angles orientations{};
    for (std::size_t position = 0; position < fitted.size(); ++position) {
        Fit const& fit = fitted[position];
        if (!(fit.twice_level > 0) || !(fit.diattenuation >= least_diattenuation)) {
            throw Argument_error(
                "diattenuation of position " + std::to_string(position), text_of(fit.diattenuation),
                "give frames of a source behind a polariser that turns, with their true angles");
        }
        orientations[position] = fit.orientation;
    }
    if (!fits(orientations, mosaic, 1, options.largest_misalignment)) {
        std::string found;
        for (double const angle : orientations) {
            found += (found.empty() ? "" : ", ") + text_of(angle);
        }
        throw Argument_error(
            "fitted orientation of the mosaic " + mosaic.to_string(), found,
            remedy_for(orientations, mosaic, options.largest_misalignment));
    }
}

std::vector<Quality_flag> flags_of(
    Calibration_quality const& quality, std::array<Analyser, 4> const& analysers,
    Mosaic const& mosaic) {
    auto const any_diattenuation = [&](auto const& is) {
        return std::ranges::any_of(analysers, is, &Analyser::diattenuation);
    };
    std::vector<Quality_flag> flags;
    auto const raise = [&](Quality_flag flag, bool raised) {
        if (raised) {
            flags.push_back(flag);
        }
    };
    raise(Quality_flag::few_frames, quality.frame_count < frames_for_good_residuals);
    raise(Quality_flag::wide_angle_gap, quality.worst_angle_gap > wide_gap);
    raise(Quality_flag::large_residual, quality.rms_residual > large_residual);
    raise(Quality_flag::weak_diattenuation, any_diattenuation([](double value) {
              return value < weak_diattenuation;
          }));
    raise(Quality_flag::diattenuation_above_one, any_diattenuation([](double value) {
              return value > impossible_diattenuation;
          }));
    raise(Quality_flag::poor_conditioning, quality.condition_number > poor_condition_number);
    raise(Quality_flag::dark_level_unknown, !analysers[0].dark_level);
    raise(
        Quality_flag::orientation_offset,
        std::abs(common_offset(analysers, mosaic)) >= large_offset);
    return flags;
}

} // namespace

Calibration estimate_calibration(
    std::span<Series_point const> series, Mosaic const& mosaic, Estimation_options const& options) {
    check_series(series, options);
    Series_equations const equations = equations_of(series, options);
    std::array<Fit, 4> fitted;
    Calibration_quality quality;
    double squared_residuals = 0;
    for (std::size_t position = 0; position < fitted.size(); ++position) {
        fitted[position] = fit_position(equations, position);
        quality.source_level += fitted[position].twice_level / 4;
        squared_residuals += fitted[position].squared_residuals;
    }
    check_fits(fitted, mosaic, options);

    std::size_t const freedom = series.size() - parameters_per_position;
    double const mean_signal = quality.source_level / 2;
    auto const relative_rms = [&](double squares, std::size_t degrees) {
        return degrees == 0 ? 0.0 : std::sqrt(squares / static_cast<double>(degrees)) / mean_signal;
    };
    std::array<Analyser, 4> analysers;
    for (std::size_t position = 0; position < fitted.size(); ++position) {
        Fit const& fit = fitted[position];
        analysers[position] = {
            fit.twice_level / quality.source_level, fit.diattenuation, fit.orientation,
            options.dark_levels ? std::optional{options.dark_levels->at(position)} : std::nullopt,
            relative_rms(fit.squared_residuals, freedom)};
    }
    quality.rms_residual = relative_rms(squared_residuals, 4 * freedom);
    quality.condition_number = condition_number(analysers);
    quality.frame_count = series.size();
    quality.worst_angle_gap = std::ranges::max(gaps_of(angles_of(series)));
    quality.flags = flags_of(quality, analysers, mosaic);
    quality.outlying_frames = find_outlying_frames(series, equations);

    Provenance provenance{std::string{software_version()}, current_time(), {}, options.sensor};
    for (Series_point const& point : series) {
        provenance.sources.push_back(point.source);
    }
    return {mosaic, matrices_of(analysers), analysers, quality, provenance};
}

Calibration estimate_calibration(
    std::span<Uniform_frame const> frames, Mosaic const& mosaic,
    Estimation_options const& options) {
    std::vector<Series_point> series;
    series.reserve(frames.size());
    for (Uniform_frame const& frame : frames) {
        series.push_back(measure(frame, options));
    }
    return estimate_calibration(series, mosaic, options);
}

} // namespace veldrane_mrv::polarization
