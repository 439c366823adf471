#include "input/settings_rows.hpp"

#include "veldrane_mrv/polarization/calibration_file.hpp"

namespace polarize_tool {

Rows settings_rows(
    Frame_preparation const& preparation, Transform_settings const& transform,
    polarization::Mode mode, std::filesystem::path const& calibration_file,
    std::string const& of_dark) {
    auto const& [settings, calibration] = transform;
    Rows rows;
    if (auto const& region = preparation.region()) {
        rows.emplace_back(
            "Region", "from column " + std::to_string(region->column) + ", row " +
                          std::to_string(region->row));
    }
    rows.emplace_back(
        "Mosaic", "phase " + std::to_string(settings.mosaic.phase()) + " (" +
                      settings.mosaic.to_string() + ")");
    rows.emplace_back("Bit depth", std::to_string(preparation.bit_depth()));
    if (preparation.shift() > 0) {
        rows.emplace_back("Samples moved down by", std::to_string(preparation.shift()) + " bits");
    }
    rows.emplace_back("Dark frame", preparation.subtracts_dark() ? of_dark : "none");
    rows.emplace_back("Mode", mode == polarization::Mode::fast ? "fast" : "calibrated");
    if (!calibration_file.empty()) {
        rows.emplace_back("Calibration", calibration_file.string());
    }
    if (calibration) {
        rows.emplace_back("Calibration model", name_of(calibration->model));
    }
    if (calibration && calibration->maps) {
        rows.emplace_back("Calibration maps", polarization::hash_of_maps(*calibration));
    }
    rows.emplace_back("Full scale of the planes", std::to_string(settings.scale.full_scale()));
    return rows;
}

} // namespace polarize_tool
