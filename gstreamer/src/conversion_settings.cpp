#include "conversion_settings.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/sensor_tables.hpp"

#include <optional>

namespace polarization_element {
namespace {

using polarization::Argument_error;
using polarization::Calibration;
using polarization::Mode;
using polarization::Mosaic;
using polarization::Plane;
using polarization::Plane_set;

using Shared_calibration = std::shared_ptr<Calibration const>;

Mosaic parsed(std::string const& layout) {
    bool const is_phase = layout.size() == 1 && layout[0] >= '0' && layout[0] <= '9';
    return is_phase ? Mosaic::from_phase(layout[0] - '0') : Mosaic::parse(layout);
}

Mosaic mosaic_of(Options const& options, Shared_calibration const& calibration) {
    if (options.layout.empty()) {
        if (!calibration) {
            throw Argument_error(
                "layout", "not given",
                "give the polariser angles of the top-left cell row by row, such as "
                "layout=90,45,135,0, or a calibration");
        }
        return calibration->mosaic;
    }
    Mosaic const given = parsed(options.layout);
    if (calibration && given != calibration->mosaic) {
        throw Argument_error(
            "layout",
            given.to_string() + ", but " + options.calibration + " is for " +
                calibration->mosaic.to_string(),
            "leave it out");
    }
    return given;
}

int bit_depth_of(
    Options const& options, Shared_calibration const& calibration, Samples const samples) {
    bool const has_maps = calibration && calibration->maps;
    if (options.bit_depth == 0 && samples == Samples::of_16_bits && !has_maps) {
        throw Argument_error(
            "bit-depth", "not given",
            "give the significant bits of a sample, such as bit-depth=12: 16-bit frames do not "
            "tell them");
    }
    int const in_frames = samples == Samples::of_8_bits ? 8
                          : has_maps                    ? calibration->maps->bit_depth
                                                        : 16;
    int const depth = options.bit_depth == 0 ? in_frames : static_cast<int>(options.bit_depth);
    if (has_maps && depth != calibration->maps->bit_depth) {
        std::string const expected = std::to_string(calibration->maps->bit_depth);
        throw Argument_error(
            "bit-depth",
            std::to_string(depth) + ", but the maps of " + options.calibration +
                " are for samples of " + expected + " bits",
            "give frames as they were for the calibration");
    }
    if (samples == Samples::of_8_bits && depth > 8) {
        throw Argument_error(
            "bit-depth", std::to_string(depth) + ", but the frames are of 8 bits (GRAY8)",
            "put video/x-raw,format=GRAY16_LE before the element, or give bit-depth=8");
    }
    return depth;
}

Mode mode_of(Options const& options) {
    bool const has_calibration = !options.calibration.empty();
    if (has_calibration && options.mode == Mode_choice::fast) {
        throw Argument_error(
            "mode", "fast, which applies the weights of a calibration to few pixels only",
            "leave out mode or calibration");
    }
    bool const is_calibrated = has_calibration || options.mode == Mode_choice::calibrated;
    return is_calibrated ? Mode::calibrated : Mode::fast;
}

} // namespace

Transform_choice transform_choice(
    Options const& options, Shared_calibration const& calibration, Samples samples) {
    Mosaic const mosaic = mosaic_of(options, calibration);
    Mode const mode = mode_of(options);
    polarization::Scale const scale(
        bit_depth_of(options, calibration, samples),
        options.full_scale == 0 ? std::nullopt : std::optional(options.full_scale));
    polarization::Settings settings = ideal_settings(mosaic, scale);
    if (calibration) {
        settings.matrices = calibration->matrices;
        settings.noise = calibration->noise;
        if (calibration->maps) {
            polarization::Region const& part = calibration->maps->region;
            settings.mosaic = mosaic.of_region(part.row, part.column);
            settings.tables = std::make_shared<polarization::Sensor_tables>(*calibration, part);
            settings.matrices = settings.tables->position_matrices();
        }
    }
    return {settings, mode};
}

Plane_set planes_of(Options const& options) {
    switch (options.output) {
    case Output::angle:
        return options.is_masked ? Plane_set{Plane::azimuth, Plane::dolp, Plane::validity}
                                 : Plane_set{Plane::azimuth, Plane::dolp};
    case Output::degree:
        return options.is_masked ? Plane_set{Plane::dolp, Plane::validity} : Plane_set{Plane::dolp};
    case Output::intensity:
    case Output::s0:
        return {Plane::s0};
    case Output::s1:
        return {Plane::s1};
    case Output::s2:
        return {Plane::s2};
    case Output::azimuth:
        return {Plane::azimuth};
    case Output::dolp:
        break;
    }
    return {Plane::dolp};
}

} // namespace polarization_element
