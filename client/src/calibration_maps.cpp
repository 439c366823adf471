#include "veldrane_mrv/polarization/calibration_maps.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

#include <algorithm>
#include <string>

namespace veldrane_mrv::polarization {

Calibration_model parse_calibration_model(std::string_view name) {
    auto const found = std::ranges::find(
        all_calibration_models, name, [](Calibration_model model) { return name_of(model); });
    if (found == all_calibration_models.end()) {
        throw Argument_error(
            "calibration model", std::string{name}, "give position, gain or pixel");
    }
    return *found;
}

Calibration_maps of_region(Calibration_maps const& maps, Region const& region) {
    Region const& covered = maps.region;
    Region const part{
        region.column - covered.column, region.row - covered.row, region.width, region.height};
    if (region.column < covered.column || region.row < covered.row || !fits(part, covered.size())) {
        throw Argument_error(
            "the region", to_string(region),
            "give one inside that of the maps, " + to_string(covered));
    }
    Calibration_maps result{region.size(), region_of(region.size()), maps.bit_depth};
    for (auto const numbers :
         {&Calibration_maps::dark_level, &Calibration_maps::gain, &Calibration_maps::throughput,
          &Calibration_maps::diattenuation, &Calibration_maps::orientation}) {
        if ((maps.*numbers).empty()) {
            continue;
        }
        (result.*numbers).reserve(region.width * region.height);
        for (std::size_t row = part.row; row < part.row + part.height; ++row) {
            auto const from = (maps.*numbers).begin() +
                              static_cast<std::ptrdiff_t>(row * covered.width + part.column);
            (result.*numbers)
                .insert(
                    (result.*numbers).end(), from, from + static_cast<std::ptrdiff_t>(part.width));
        }
    }
    for (std::uint32_t const pixel : maps.bad_pixels) {
        // What lies before the part has wrapped around.
        std::size_t const row = pixel / covered.width - part.row;
        std::size_t const column = pixel % covered.width - part.column;
        if (row < part.height && column < part.width) {
            result.bad_pixels.push_back(static_cast<std::uint32_t>(row * part.width + column));
        }
    }
    return result;
}

} // namespace veldrane_mrv::polarization
