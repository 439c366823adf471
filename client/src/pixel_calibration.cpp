#include "veldrane_mrv/polarization/pixel_calibration.hpp"

#include "bad_pixels.hpp"
#include "model_quality.hpp"
#include "pixel_fit.hpp"
#include "series_fit.hpp"
#include "watched_pixels.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/calibration_estimate.hpp"
#include "veldrane_mrv/polarization/units.hpp"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <sstream>
#include <string>
#include <utility>

namespace veldrane_mrv::polarization {
namespace {

std::string pixel_name(std::size_t pixel, std::size_t width) {
    return "row " + std::to_string(pixel / width) + ", column " + std::to_string(pixel % width);
}

void check_dark_levels(Pixel_calibration_options const& options) {
    std::size_t const pixels = options.region.width * options.region.height;
    if (options.dark_levels.empty()) {
        return;
    }
    if (options.dark_levels.size() != pixels) {
        throw Argument_error(
            "number of dark levels", std::to_string(options.dark_levels.size()),
            "give one for each of the " + to_string(options.region.size()) + " pixels");
    }
    auto const largest = static_cast<float>((1U << options.estimation.bit_depth) - 1);
    // Written so that a NaN is found.
    auto const wrong = std::ranges::find_if_not(
        options.dark_levels, [largest](float level) { return level >= 0 && level <= largest; });
    if (wrong != options.dark_levels.end()) {
        throw Argument_error(
            "dark level of " + pixel_name(
                                   static_cast<std::size_t>(wrong - options.dark_levels.begin()),
                                   options.region.width),
            std::to_string(*wrong),
            "give levels of 0 to " + std::to_string((1U << options.estimation.bit_depth) - 1) +
                ", from dark frames of this sensor");
    }
}

Pixel_calibration_options checked(Pixel_calibration_options options) {
    Region const& region = options.region;
    if (!fits(region, options.sensor) || region.height < 2 || region.width < 2) {
        throw Argument_error(
            "region", to_string(region),
            "give at least 2 x 2 within the sensor's " + to_string(options.sensor));
    }
    if (options.estimation.bit_depth < 1 || options.estimation.bit_depth > 16) {
        throw Argument_error(
            "bit depth", std::to_string(options.estimation.bit_depth), "give 1 to 16");
    }
    check_dark_levels(options);
    for (std::uint32_t const pixel : options.bad_pixels) {
        if (pixel >= region.width * region.height) {
            throw Argument_error(
                "bad pixel", std::to_string(pixel),
                "give row * " + std::to_string(region.width) + " + column of pixels in " +
                    to_string(region.size()));
        }
    }
    return options;
}

// Mean by position over the part of the frames in which the four positions are measured.
std::array<double, 4> mean_dark_levels(Pixel_calibration_options const& options) {
    std::size_t const width = options.region.width;
    Region const part = options.estimation.region.value_or(region_of(options.region.size()));
    std::array<double, 4> sums{};
    std::array<double, 4> counts{};
    if (fits(part, options.region.size())) { // refused with the first frame otherwise
        for (std::size_t row = part.row; row < part.row + part.height; ++row) {
            for (std::size_t column = part.column; column < part.column + part.width; ++column) {
                std::size_t const position = cell_position(row, column);
                sums[position] += static_cast<double>(options.dark_levels[row * width + column]);
                ++counts[position];
            }
        }
    }
    for (std::size_t position = 0; position < sums.size(); ++position) {
        sums[position] /= std::max(counts[position], 1.0);
    }
    return sums;
}

float orientation_of(Eigen::Vector3d const& row) {
    auto const degrees =
        static_cast<float>(within_half_turn(std::atan2(row(2), row(1)) * 90 / std::numbers::pi));
    return degrees < 180 ? degrees : 0; // a double just below 180 is 180 as a float
}

} // namespace

std::optional<std::size_t> frame_to_hold_out(std::span<double const> polariser_angles) {
    std::vector<std::size_t> order(polariser_angles.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::ranges::stable_sort(
        order, {}, [&](std::size_t frame) { return within_half_turn(polariser_angles[frame]); });
    // The middle, then the one behind it, the one before it, and so on outwards.
    for (std::size_t step = 0; step < order.size(); ++step) {
        std::size_t const middle = order.size() / 2;
        std::size_t const place = step % 2 == 1 ? middle + (step + 1) / 2 : middle - step / 2;
        std::size_t const frame = order[place % order.size()];
        std::vector<double> others(polariser_angles.begin(), polariser_angles.end());
        others.erase(others.begin() + static_cast<std::ptrdiff_t>(frame));
        if (tell_analysers(others)) {
            return frame;
        }
    }
    return std::nullopt;
}

// Everything in here counts rows and columns, and so positions, from the region's corner.
class Pixel_calibration::State {
public:
    State(Mosaic const& mosaic, Pixel_calibration_options options)
        : options_{checked(std::move(options))}, mosaic_{mosaic.of_region(
                                                     options_.region.row, options_.region.column)},
          marks_(pixels(), Pixel_mark::none), sums_{pixels()}, watched_{pixels()} {
        if (options_.dark_levels.empty()) {
            options_.dark_levels.assign(pixels(), 0.0F);
        } else if (!options_.estimation.dark_levels) {
            options_.estimation.dark_levels = mean_dark_levels(options_);
        }
        for (std::uint32_t const pixel : options_.bad_pixels) {
            marks_[pixel] = Pixel_mark::known;
        }
    }

    Series_point const& add(Uniform_frame const& frame) {
        sums_.add(frame.frame.samples(), options_.dark_levels, check_and_note(frame));
        return series_.back();
    }

    Series_point const& hold_out(Uniform_frame const& frame) {
        if (held_out_) {
            throw Argument_error(
                "frame to hold out besides " + series_[held_out_index_].source, frame.source,
                "hold out one");
        }
        auto const samples = frame.frame.samples();
        std::vector<std::uint16_t> copy(samples.begin(), samples.end());
        Eigen::Vector3d const design = check_and_note(frame);
        held_out_ =
            Held_out_frame{std::move(copy), frame.frame.width(), frame.polariser_angle, design};
        held_out_index_ = series_.size() - 1;
        return series_.back();
    }

    std::span<Series_point const> series() const { return series_; }

    Measured_calibration finish(Calibration_model model) {
        Calibration calibration = estimate_calibration(series_, mosaic_, options_.estimation);
        if (model != Calibration_model::position) {
            refuse_odd_frame();
        }
        if (held_out_) {
            calibration.quality.models = judged_models();
            calibration.quality.held_out_frame = series_[held_out_index_].source;
            sums_.add(held_out_->samples, options_.dark_levels, held_out_->design);
            held_out_.reset();
        }
        double const level = calibration.quality.source_level;
        Pixel_fits fits = sums_.fits(level);
        Bad_pixels const bad = bad_pixels_of(fits, calibration);
        std::shared_ptr<Calibration_maps const> maps;
        if (model != Calibration_model::position) {
            maps = std::make_shared<Calibration_maps const>(
                maps_of(model, calibration.analysers, fits, bad.mask));
        }
        std::ranges::for_each(fits.residuals, [level](float& residual) {
            residual = static_cast<float>(2 * static_cast<double>(residual) / level);
        });
        calibration = of_region(calibration, options_.region.row, options_.region.column);
        calibration.model = model;
        calibration.maps = std::move(maps);
        return {std::move(calibration), std::move(fits.residuals), bad.counts};
    }

private:
    std::size_t pixels() const { return options_.region.width * options_.region.height; }
    double source_degree() const { return options_.estimation.source_degree; }

    // Gives the frame's row of the fit.
    Eigen::Vector3d check_and_note(Uniform_frame const& frame) {
        std::string const of_frame = frame.source.empty() ? "" : " of " + frame.source;
        if (frame.frame.size() != options_.region.size()) {
            throw Argument_error(
                "size" + of_frame, to_string(frame.frame.size()),
                "give frames of " + to_string(options_.region.size()) +
                    ", as the others of the series");
        }
        auto const samples = frame.frame.samples();
        std::uint16_t const largest = std::ranges::max(samples);
        unsigned const full_scale = (1U << options_.estimation.bit_depth) - 1;
        if (largest > full_scale) {
            throw Argument_error(
                "largest sample" + of_frame, std::to_string(largest),
                "give frames of " + std::to_string(options_.estimation.bit_depth) +
                    " bits, or the bit depth that all of them have");
        }
        series_.push_back(measure(frame, options_.estimation));
        if (largest == full_scale) {
            for (std::size_t pixel = 0; pixel < samples.size(); ++pixel) {
                if (samples[pixel] == full_scale && marks_[pixel] == Pixel_mark::none) {
                    marks_[pixel] = Pixel_mark::saturated;
                }
            }
        }
        Eigen::Vector3d const design =
            design_row(frame.polariser_angle, frame.source_intensity, source_degree());
        watched_.add(samples, options_.dark_levels, design);
        return design;
    }

    // The means of four positions can bear one, a pixel's own samples cannot.
    void refuse_odd_frame() const {
        if (auto const odd = watched_.odd_frame()) {
            std::string const& source = series_[odd->index].source;
            auto const percent = [](double fraction) {
                std::ostringstream text;
                text.precision(2);
                text << 100 * fraction << " %";
                return text.str();
            };
            throw Argument_error(
                "distance of " + (source.empty() ? "frame " + std::to_string(odd->index) : source) +
                    " from the other frames",
                percent(odd->distance) + " of the mean signal where " +
                    percent(odd->usual_distance) + " is usual",
                "leave it out or correct its angle; neither camera, light nor exposure may change "
                "within a series");
        }
    }

    Bad_pixels bad_pixels_of(Pixel_fits const& fits, Calibration const& calibration) const {
        return find_bad_pixels(
            fits, rows_of(calibration.analysers), options_.dark_levels, marks_,
            options_.region.width);
    }

    std::vector<Model_quality> judged_models() const {
        std::vector<Series_point> others = series_;
        others.erase(others.begin() + static_cast<std::ptrdiff_t>(held_out_index_));
        std::vector<double> angles;
        std::ranges::transform(others, std::back_inserter(angles), &Series_point::polariser_angle);
        if (!tell_analysers(angles)) {
            throw Argument_error(
                "frame to hold out", series_[held_out_index_].source,
                "hold out another one or none, or give more angles: the others do not tell the "
                "analysers");
        }
        Calibration const calibration = estimate_calibration(others, mosaic_, options_.estimation);
        Pixel_fits const fits = sums_.fits(calibration.quality.source_level);
        Bad_pixels const bad = bad_pixels_of(fits, calibration);
        return judge_models(
            {calibration, fits, options_.dark_levels, bad.mask}, *held_out_, source_degree());
    }

    // Bad pixels get the figures of their position.
    Calibration_maps maps_of(
        Calibration_model model, std::array<Analyser, 4> const& analysers, Pixel_fits const& fits,
        std::vector<std::uint8_t> const& bad) const {
        Calibration_maps maps{
            options_.sensor, options_.region, options_.estimation.bit_depth, options_.dark_levels};
        bool const by_pixel = model == Calibration_model::pixel;
        Position_rows const positions = rows_of(analysers);
        maps.gain.resize(by_pixel ? 0 : pixels());
        maps.throughput.resize(by_pixel ? pixels() : 0);
        maps.diattenuation.resize(by_pixel ? pixels() : 0);
        maps.orientation.resize(by_pixel ? pixels() : 0);
        for (std::size_t pixel = 0; pixel < pixels(); ++pixel) {
            std::size_t const position =
                cell_position(pixel / options_.region.width, pixel % options_.region.width);
            Eigen::Vector3d row = fits.row(pixel);
            if (bad[pixel]) {
                row = positions[position];
                maps.dark_level[pixel] =
                    static_cast<float>(analysers[position].dark_level.value_or(0));
                maps.bad_pixels.push_back(static_cast<std::uint32_t>(pixel));
            }
            if (by_pixel) {
                maps.throughput[pixel] = static_cast<float>(2 * row(0));
                maps.diattenuation[pixel] = static_cast<float>(row.tail<2>().norm() / row(0));
                maps.orientation[pixel] = orientation_of(row);
            } else {
                maps.gain[pixel] = static_cast<float>(positions[position](0) / row(0));
            }
        }
        return maps;
    }

    Pixel_calibration_options options_;
    Mosaic mosaic_;
    std::vector<Pixel_mark> marks_;
    Pixel_sums sums_;
    Watched_pixels watched_;
    std::vector<Series_point> series_;
    std::optional<Held_out_frame> held_out_;
    std::size_t held_out_index_ = 0;
};

Pixel_calibration::Pixel_calibration(Mosaic const& mosaic, Pixel_calibration_options options)
    : state_{std::make_unique<State>(mosaic, std::move(options))} {}
Pixel_calibration::~Pixel_calibration() = default;
Pixel_calibration::Pixel_calibration(Pixel_calibration&&) noexcept = default;
Pixel_calibration& Pixel_calibration::operator=(Pixel_calibration&&) noexcept = default;

Series_point const& Pixel_calibration::add(Uniform_frame const& frame) {
    return state_->add(frame);
}

Series_point const& Pixel_calibration::hold_out(Uniform_frame const& frame) {
    return state_->hold_out(frame);
}

std::span<Series_point const> Pixel_calibration::series() const {
    return state_->series();
}

Measured_calibration Pixel_calibration::finish(Calibration_model model) {
    return state_->finish(model);
}

} // namespace veldrane_mrv::polarization
