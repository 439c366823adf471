#include "output/sidecar.hpp"

#include "terminal/visible_text.hpp"
#include "veldrane_mrv/polarization/build_identification.hpp"
#include "veldrane_mrv/polarization/number_meaning.hpp"

#include <nlohmann/json.hpp>

namespace polarize_tool {
namespace {

using Json = nlohmann::ordered_json;

Json told(std::string_view text) {
    return text.empty() ? Json(nullptr) : Json(text);
}

// Steps of a scale are whole.
Json full_scale_of(polarization::Number_meaning const& meaning, polarization::Units units) {
    if (!meaning.full_scale) {
        return nullptr;
    }
    return units == polarization::Units::scaled ? Json(static_cast<unsigned>(*meaning.full_scale))
                                                : Json(*meaning.full_scale);
}

Json source_of(Frame_place const& place, Origin const& origin) {
    Json source = {{"file", utf8(place.file.string())}, {"frame", place.index}};
    if (origin.region) {
        source["region"] = {
            {"column", origin.region->column},
            {"row", origin.region->row},
            {"width", origin.region->width},
            {"height", origin.region->height}};
    }
    source["shift"] = origin.shift;
    source["dark_frame_subtracted"] = !origin.dark_files.empty();
    source["dark_frames"] = Json::array();
    for (std::filesystem::path const& file : origin.dark_files) {
        source["dark_frames"].push_back(utf8(file.string()));
    }
    return source;
}

Json calibration_of(Origin const& origin) {
    if (!origin.calibration) {
        return polarization::no_calibration;
    }
    Json calibration = {
        {"file", utf8(origin.calibration_file.string())},
        {"model", name_of(origin.calibration->model)},
        {"time", origin.calibration->provenance.time},
        {"sensor", origin.calibration->provenance.sensor},
        {"rms_residual", origin.calibration->quality.rms_residual}};
    if (!origin.maps_hash.empty()) {
        calibration["maps_hash"] = origin.maps_hash;
    }
    return calibration;
}

Json noise_of(std::optional<polarization::Noise_model> const& noise) {
    if (!noise) {
        return nullptr;
    }
    return {
        {"electrons_per_count", noise->electrons_per_count},
        {"read_noise_electrons", noise->read_noise}};
}

} // namespace

std::string sidecar(
    polarization::Plane plane, std::filesystem::path const& file, Array_view const& array,
    Frame_place const& place, Processing const& processing, Origin const& origin) {
    polarization::Number_meaning const meaning = polarization::meaning_of(
        plane, {.units = processing.units,
                .scale = processing.settings.scale,
                .mode = processing.mode,
                .is_signed = processing.is_signed,
                .size = {.width = array.width(), .height = array.height()}});
    polarization::Mosaic const& mosaic = processing.settings.mosaic;
    Json json = {
        {"file", utf8(file.filename().string())},
        {"plane", name_of(plane)},
        {"meaning", description_of(plane).meaning},
        {"width", array.width()},
        {"height", array.height()},
        {"channels", array.channels()},
        {"sample_type", name_of(array.kind())},
        {"byte_order", "little"},
        {"unit", meaning.unit},
        {"step", meaning.step},
        {"offset", meaning.offset},
        {"value", polarization::value_rule},
        {"full_scale", full_scale_of(meaning, processing.units)},
        {"range", told(meaning.range)},
        {"undefined", told(meaning.undefined)},
        {"placement", meaning.placement},
        {"final_pixel", meaning.final_pixel},
        {"zero_direction", polarization::described_zero_direction(processing.zero_direction)},
        {"zero_direction_degrees", processing.zero_direction},
        {"sense", polarization::sense},
        {"mosaic", {{"phase", mosaic.phase()}, {"layout", mosaic.layout()}}},
        {"bit_depth", processing.settings.scale.bit_depth()},
        {"mode", processing.mode == polarization::Mode::fast ? "fast" : "calibrated"},
        {"calibration", calibration_of(origin)},
        {"noise", noise_of(processing.settings.noise)},
        {"source", source_of(place, origin)},
        {"software",
         {{"name", "veldrane-polarize"},
          {"version", polarization::software_version()},
          {"processor", polarization::processor_identification()}}}};
    return json.dump(2) + "\n";
}

} // namespace polarize_tool
