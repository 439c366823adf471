#include "output/sidecar.hpp"

#include "terminal/visible_text.hpp"
#include "veldrane_mrv/polarization/build_identification.hpp"
#include "veldrane_mrv/polarization/number_meaning.hpp"

#include <algorithm>
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

// Behind what says which frame it is.
Json source_of(Json source, Origin const& origin) {
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

Json meaning_json(
    polarization::Plane plane, std::filesystem::path const& file, polarization::Size const& size,
    Processing const& processing) {
    polarization::Number_meaning const meaning = polarization::meaning_of(
        plane, {.units = processing.units,
                .scale = processing.settings.scale,
                .mode = processing.mode,
                .is_signed = processing.is_signed,
                .size = size});
    return {
        {"file", utf8(file.filename().string())},
        {"plane", name_of(plane)},
        {"meaning", description_of(plane).meaning},
        {"width", size.width},
        {"height", size.height},
        {"channels", polarization::elements_per_pixel(plane)},
        {"sample_type", name_of(processing.kind_of(plane))},
        {"byte_order", "little"},
        {"unit", meaning.unit},
        {"step", meaning.step},
        {"offset", meaning.offset},
        {"value", polarization::value_rule},
        {"full_scale", full_scale_of(meaning, processing.units)},
        {"range", told(meaning.range)},
        {"undefined", told(meaning.undefined)},
        {"placement", meaning.placement},
        {"final_pixel", meaning.final_pixel}};
}

// What all planes of a run have in common.
Json circumstances_json(Json const& source, Processing const& processing, Origin const& origin) {
    polarization::Mosaic const& mosaic = processing.settings.mosaic;
    return {
        {"zero_direction", polarization::described_zero_direction(processing.zero_direction)},
        {"zero_direction_degrees", processing.zero_direction},
        {"sense", polarization::sense},
        {"mosaic", {{"phase", mosaic.phase()}, {"layout", mosaic.layout()}}},
        {"bit_depth", processing.settings.scale.bit_depth()},
        {"mode", processing.mode == polarization::Mode::fast ? "fast" : "calibrated"},
        {"calibration", calibration_of(origin)},
        {"noise", noise_of(processing.settings.noise)},
        {"source", source_of(source, origin)},
        {"software",
         {{"name", "veldrane-polarize"},
          {"version", polarization::software_version()},
          {"processor", polarization::processor_identification()}}}};
}

Json pixel_format_of(std::optional<Raw_layout> const& layout) {
    if (!layout) {
        return nullptr;
    }
    return {
        {"name", name_of(layout->format)},
        {"width", layout->width},
        {"height", layout->height},
        {"header_bytes", layout->header_bytes},
        {"stride", layout->stride}};
}

// A recording of any length is one run; a line a frame would be most of the file.
Json runs_of(std::vector<Frame_place> const& frames) {
    Json runs = Json::array();
    for (std::size_t begin = 0; begin < frames.size();) {
        Frame_place const& first = frames[begin];
        std::size_t step = 1;
        std::size_t end = begin + 1;
        for (; end < frames.size() && frames[end].file == first.file; ++end) {
            if (end == begin + 1 && frames[end].index > first.index) {
                step = frames[end].index - first.index;
            }
            if (frames[end].index != first.index + (end - begin) * step) {
                break;
            }
        }
        runs.push_back(
            {{"file", utf8(first.file.string())},
             {"first", first.index},
             {"step", step},
             {"count", end - begin}});
        begin = end;
    }
    return runs;
}

Json captures_of(std::vector<Frame_place> const& frames) {
    Json captures = {
        {"frame_number", Json::array()},
        {"camera_time_ns", Json::array()},
        {"host_time_ns", Json::array()}};
    auto const told_of = [](Frame_place const& place, auto member) {
        return place.capture ? Json((*place.capture).*member) : Json(nullptr);
    };
    for (Frame_place const& place : frames) { // some of which may not have come
        captures["frame_number"].push_back(told_of(place, &polarization::Capture::frame_number));
        captures["camera_time_ns"].push_back(
            told_of(place, &polarization::Capture::camera_time_ns));
        captures["host_time_ns"].push_back(told_of(place, &polarization::Capture::host_time_ns));
    }
    return captures;
}

} // namespace

std::string sidecar(
    polarization::Plane plane, std::filesystem::path const& file, Array_view const& array,
    Frame_place const& place, Processing const& processing, Origin const& origin) {
    Json json = meaning_json(plane, file, {array.width(), array.height()}, processing);
    Json const source = {{"file", utf8(place.file.string())}, {"frame", place.index}};
    json.update(circumstances_json(source, processing, origin));
    if (auto const& capture = place.capture) {
        json["capture"] = {
            {"frame_number", capture->frame_number},
            {"camera_time_ns", capture->camera_time_ns},
            {"host_time_ns", capture->host_time_ns}};
    }
    return json.dump(2) + "\n";
}

nlohmann::ordered_json stack_description(
    std::vector<std::filesystem::path> const& files, std::vector<Frame_place> const& frames,
    polarization::Size const& size, Processing const& processing, Origin const& origin) {
    Json json = {{"planes", Json::array()}};
    auto file = files.begin();
    for (polarization::Plane const plane : processing.planes.list()) {
        json["planes"].push_back(meaning_json(plane, *file++, size, processing));
    }
    json.update(circumstances_json(
        {{"pixel_format", pixel_format_of(origin.pixel_format)}}, processing, origin));
    json["missing"] = Json::array();
    json["frames"] = runs_of(frames);
    if (std::ranges::any_of(
            frames, [](Frame_place const& place) { return place.capture.has_value(); })) {
        json["capture"] = captures_of(frames);
    }
    return json;
}

} // namespace polarize_tool
