#include "input/transform_settings.hpp"

#include "terminal/failure.hpp"
#include "veldrane_mrv/polarization/calibration_file.hpp"

namespace polarize_tool {

Transform_settings transform_settings(
    Mosaic_options const& mosaic, std::filesystem::path const& calibration_file,
    std::optional<unsigned> full_scale, Frame_preparation const& preparation) {
    polarization::Scale const scale(preparation.bit_depth(), full_scale);
    auto const region = preparation.region().value_or(polarization::Region());
    if (calibration_file.empty()) {
        return {
            polarization::ideal_settings(
                mosaic.required().of_region(region.row, region.column), scale),
            std::nullopt};
    }
    auto const calibration = polarization::load_calibration(calibration_file);
    auto const given = mosaic.given();
    if (given && *given != calibration.mosaic) {
        throw Usage_error(
            "--phase or --layout is " + given->to_string() + ", but " + calibration_file.string() +
            " is for " + calibration.mosaic.to_string() + "; leave the option out");
    }
    auto const of_frame = of_region(calibration, region.row, region.column);
    return {{of_frame.mosaic, scale, of_frame.matrices}, calibration};
}

} // namespace polarize_tool
