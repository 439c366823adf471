#include "commands/calibration_series.hpp"

#include "commands/calibration_messages.hpp"
#include "input/option_values.hpp"
#include "terminal/failure.hpp"
#include "terminal/interruption.hpp"
#include "terminal/messages.hpp"
#include "terminal/progress.hpp"
#include "terminal/visible_text.hpp"
#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/calibration_estimate.hpp"

#include <algorithm>
#include <utility>

namespace polarize_tool {
namespace {

using polarization::Region;
using polarization::Series_point;
using polarization::Size;

// A frame of the region keeps the numbers of its positions, the mosaic those of the whole sensor.
Series_point of_sensor(Series_point point, Region const& region) {
    std::array<double, 4> const means = point.means;
    for (std::size_t position = 0; position < means.size(); ++position) {
        point.means[position] = means[polarization::cell_position(
            position / 2 + region.row, position % 2 + region.column)];
    }
    return point;
}

std::vector<float> part_of(std::vector<float> const& levels, Size const& size, Region const& part) {
    std::vector<float> result;
    result.reserve(levels.empty() ? 0 : part.width * part.height);
    for (std::size_t row = 0; row < part.height && !levels.empty(); ++row) {
        auto const first = levels.begin() +
                           static_cast<std::ptrdiff_t>((part.row + row) * size.width + part.column);
        result.insert(result.end(), first, first + static_cast<std::ptrdiff_t>(part.width));
    }
    return result;
}

/// Means of four positions, or sums of every pixel.
class Measurement {
public:
    explicit Measurement(Calibration_series const& series)
        : series_{series}, source_{series.places, series.raw} {
        if (series.model != polarization::Calibration_model::position) {
            prepare_pixels();
        }
    }

    /// @return how many pixels were measured
    std::size_t take(std::size_t number) {
        source_.read(number, slot_);
        Frame& frame = slot_.frame();
        std::string const name = slot_.place().name();
        // The dark level is taken off the means: saturation shows only while it is in the samples.
        Sample_warnings const warnings = series_.preparation.apply(frame, name, Dark_level::kept);
        if (!warnings.dark.empty() && !std::exchange(has_warned_of_dark_, true)) {
            warn(warnings.dark);
        }
        Polariser_setting const& setting = series_.settings[number];
        if (pixels_) {
            require_size(frame.size(), name);
            cut(frame, region_);
            polarization::Uniform_frame const uniform{
                frame.view(), setting.angle, setting.intensity, utf8(name)};
            number == series_.held_out ? pixels_->hold_out(uniform) : pixels_->add(uniform);
        } else {
            points_.push_back(polarization::measure(
                {frame.view(), setting.angle, setting.intensity, utf8(name)}, series_.estimation));
        }
        return frame.samples.size();
    }

    Measured_series finish() {
        if (!pixels_) {
            return {
                {estimate_calibration(points_, series_.mosaic, series_.estimation), {}, {}},
                std::move(points_)};
        }
        for (Series_point const& point : pixels_->series()) {
            points_.push_back(of_sensor(point, region_));
        }
        return {pixels_->finish(series_.model), std::move(points_)};
    }

private:
    // If no frame can be read, there is nothing to prepare for.
    void prepare_pixels() {
        for (std::size_t number = 0; number < series_.places.size() && !pixels_; ++number) {
            try {
                source_.read(number, slot_);
                sensor_ = slot_.frame().size();
            } catch (File_failure const&) {
                continue; // told when its turn comes
            }
            region_ = series_.estimation.region.value_or(region_of(sensor_));
            pixels_.emplace(series_.mosaic, pixel_options());
        }
    }

    polarization::Pixel_calibration_options pixel_options() const {
        polarization::Pixel_calibration_options options{
            series_.estimation, sensor_, region_, {}, {}};
        // Frames are cut, so that all of them is the region, and positions are counted from there.
        options.estimation.region.reset();
        options.estimation.dark_levels.reset();
        auto const& dark = series_.preparation.dark();
        if (fits(region_, sensor_)) {
            if (dark && dark->size() == sensor_) {
                options.dark_levels = part_of(series_.preparation.dark_means(), sensor_, region_);
            }
            options.bad_pixels = series_.bad_pixels.indices(sensor_, region_);
        }
        return options;
    }

    void require_size(Size const& size, std::string const& name) const {
        if (size != sensor_) {
            throw polarization::Argument_error(
                "size of " + name, to_string(size),
                "give frames of " + to_string(sensor_) + ", as the others of the series");
        }
    }

    Calibration_series const& series_;
    Frame_list source_;
    Frame_slot slot_;
    bool has_warned_of_dark_ = false;
    std::vector<Series_point> points_;
    Size sensor_;
    Region region_;
    std::optional<polarization::Pixel_calibration> pixels_;
};

Frame_failures take_all(Measurement& measurement, Calibration_series const& series) {
    Frame_failures failures;
    Progress progress(series.places.size(), series.shows_progress);
    for (std::size_t number = 0; number < series.places.size(); ++number) {
        throw_if_interrupted();
        Frame_place const& place = series.places[number];
        std::string const name = place.name() + ": ";
        try {
            progress.add(measurement.take(number));
        } catch (polarization::Argument_error const& error) {
            bool const names_it = error.argument().find(place.name()) != std::string::npos;
            failures.add(place, (names_it ? "" : name) + error.what(), error.remedy());
        } catch (File_failure const& failure) {
            std::string const message = failure.what();
            failures.add(
                place, message, message.starts_with(name) ? message.substr(name.size()) : message);
        } catch (std::exception const& error) {
            failures.add(place, name + reason_of(error), reason_of(error));
        }
    }
    return failures;
}

} // namespace

std::array<double, 4> dark_levels_in(
    polarization::Dark_frame const& dark, std::optional<Region> const& region) {
    // Written without sums, which could wrap.
    bool const fits = region && region->height >= 2 && region->width >= 2 && dark.height() >= 2 &&
                      region->row <= dark.height() - 2 && dark.width() >= 2 &&
                      region->column <= dark.width() - 2;
    if (!fits) {
        return dark.means(); // a region that fits no frame is refused when the first is measured
    }
    std::size_t const end_row = region->row + std::min(region->height, dark.height() - region->row);
    std::size_t const end_column =
        region->column + std::min(region->width, dark.width() - region->column);
    std::array<double, 4> sums{};
    std::array<double, 4> counts{};
    for (std::size_t row = region->row; row < end_row; ++row) {
        for (std::size_t column = region->column; column < end_column; ++column) {
            std::size_t const position = polarization::cell_position(row, column);
            sums[position] += dark.levels()[row * dark.width() + column];
            counts[position] += 1.0;
        }
    }
    for (std::size_t position = 0; position < sums.size(); ++position) {
        sums[position] /= counts[position];
    }
    return sums;
}

std::optional<std::size_t> frame_held_out(
    std::string const& wanted, std::vector<Frame_place> const& places,
    std::vector<Polariser_setting> const& settings) {
    if (wanted.empty()) {
        std::vector<double> angles;
        std::ranges::transform(settings, std::back_inserter(angles), &Polariser_setting::angle);
        return polarization::frame_to_hold_out(angles);
    }
    if (wanted == "none") {
        return std::nullopt;
    }
    if (auto const number = whole_number(wanted); number && *number < places.size()) {
        return *number;
    }
    auto const is_wanted = [&wanted](Frame_place const& place) {
        return place.name() == wanted || place.file.filename() == wanted;
    };
    auto const found = std::ranges::find_if(places, is_wanted);
    auto const count = std::ranges::count_if(places, is_wanted);
    if (count != 1) {
        throw Usage_error(
            "--hold-out is " + wanted +
            (count == 0 ? ", which is no frame of the series"
                        : ", which is the name of " + std::to_string(count) + " frames") +
            "; give a frame's number from 0 to " + std::to_string(places.size() - 1) +
            ", a name that one of them has, or none");
    }
    return static_cast<std::size_t>(found - places.begin());
}

Measured_series measure_series(
    Calibration_series const& series, std::filesystem::path const& output) {
    Measurement measurement(series);
    Frame_failures const failures = take_all(measurement, series);
    for (std::string const& failure : failures.lines()) {
        complain(failure);
    }
    if (failures.count() > 0) {
        throw File_failure(
            output, "not written, since " + std::to_string(failures.count()) + " of " +
                        std::to_string(series.places.size()) +
                        " frames cannot be used; correct or leave them out");
    }
    return measurement.finish();
}

} // namespace polarize_tool
