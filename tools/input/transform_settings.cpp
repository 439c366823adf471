#include "input/transform_settings.hpp"

#include "terminal/failure.hpp"
#include "veldrane_mrv/polarization/calibration_file.hpp"
#include "veldrane_mrv/polarization/sensor_tables.hpp"

#include <algorithm>
#include <memory>

namespace polarize_tool {
namespace {

namespace fs = std::filesystem;
using polarization::Calibration_maps;
using polarization::Region;

std::string region_option(Region const& region) {
    return "--region " + std::to_string(region.column) + "," + std::to_string(region.row) + "," +
           std::to_string(region.width) + "," + std::to_string(region.height);
}

void check_options(
    Calibration_maps const& maps, fs::path const& file, Frame_preparation const& preparation) {
    std::string const depth = std::to_string(preparation.bit_depth());
    if (preparation.bit_depth() != maps.bit_depth) {
        throw Usage_error(
            "--bit-depth is " + depth + ", but the maps of " + file.string() +
            " are for samples of " + std::to_string(maps.bit_depth) +
            " bits; give the frames as they were for calibrate, or calibrate with samples of " +
            depth + " bits");
    }
    bool const has_dark_levels =
        std::ranges::any_of(maps.dark_level, [](float level) { return level > 0; });
    if (preparation.subtracts_dark() && has_dark_levels) {
        throw Usage_error(
            "--dark would take the dark level off twice, since " + file.string() +
            " has that of every pixel; leave --dark out");
    }
    auto const region = preparation.region_on_sensor();
    Region const& covered = maps.region;
    bool const is_covered =
        !region || (region->column >= covered.column && region->row >= covered.row &&
                    fits(
                        Region{
                            region->column - covered.column, region->row - covered.row,
                            region->width, region->height},
                        covered.size()));
    if (!is_covered) {
        throw Usage_error(
            "--region is " + to_string(*region) + ", but the maps of " + file.string() + " cover " +
            to_string(covered) + "; give a part of it, such as " + region_option(covered));
    }
}

// By 0 not a sign of a zero changes.
polarization::Matrices turned_by(double zero_direction, polarization::Matrices const& matrices) {
    return zero_direction == 0 ? matrices : turned(matrices, zero_direction);
}

} // namespace

Transform_settings transform_settings(
    Mosaic_options const& mosaic, std::filesystem::path const& calibration_file,
    std::optional<unsigned> full_scale, Frame_preparation const& preparation,
    double zero_direction) {
    polarization::Scale const scale(preparation.bit_depth(), full_scale);
    auto const region = preparation.region_on_sensor().value_or(Region());
    if (calibration_file.empty()) {
        auto settings = polarization::ideal_settings(
            mosaic.required().of_region(region.row, region.column), scale);
        settings.matrices = turned_by(zero_direction, settings.matrices);
        return {settings, std::nullopt};
    }
    auto const calibration = polarization::load_calibration(calibration_file);
    auto const given = mosaic.given();
    if (given && *given != calibration.mosaic && !mosaic.told_by.empty()) {
        throw Usage_error(
            mosaic.told_by.string() + " tells the layout " + given->to_string() + ", but " +
            calibration_file.string() + " is for " + calibration.mosaic.to_string() +
            "; give a calibration of this part of the sensor, or --layout " +
            calibration.mosaic.to_string() + " if that is right");
    }
    if (given && *given != calibration.mosaic) {
        throw Usage_error(
            "--phase or --layout is " + given->to_string() + ", but " + calibration_file.string() +
            " is for " + calibration.mosaic.to_string() + "; leave the option out");
    }
    polarization::Settings settings{
        calibration.mosaic.of_region(region.row, region.column), scale,
        turned_by(zero_direction, of_region(calibration.matrices, region.row, region.column))};
    settings.noise = calibration.noise;
    if (calibration.maps) {
        check_options(*calibration.maps, calibration_file, preparation);
        Region const part = preparation.region_on_sensor().value_or(calibration.maps->region);
        settings.tables =
            std::make_shared<polarization::Sensor_tables>(calibration, part, zero_direction);
        settings.mosaic = calibration.mosaic.of_region(part.row, part.column);
        settings.matrices = settings.tables->position_matrices();
    }
    return {settings, calibration};
}

void check_sensor(
    polarization::Size const& frame, std::string const& name,
    polarization::Calibration const& calibration, fs::path const& calibration_file,
    bool has_region) {
    if (!calibration.maps) {
        return;
    }
    Calibration_maps const& maps = *calibration.maps;
    polarization::Size const expected = has_region ? maps.sensor : maps.region.size();
    if (frame == expected) {
        return;
    }
    bool const is_whole = !has_region && frame == maps.sensor;
    throw File_failure(
        name, "has " + to_string(frame) + " pixels, but the maps of " + calibration_file.string() +
                  " are for " +
                  (is_whole ? "a part of them; give " + region_option(maps.region)
                            : "frames of " + to_string(expected) +
                                  "; give such frames, or calibrate with frames like this one"));
}

} // namespace polarize_tool
