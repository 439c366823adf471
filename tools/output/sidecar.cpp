#include "output/sidecar.hpp"

#include "terminal/visible_text.hpp"
#include "veldrane_mrv/polarization/build_identification.hpp"

#include <nlohmann/json.hpp>
#include <numbers>

namespace polarize_tool {
namespace {

using Json = nlohmann::ordered_json;
using polarization::Element_type;
using polarization::Mode;
using polarization::Plane;

/// value = number * step - offset, in `unit`. `full_scale` is the largest number that stands for a
/// value, null where there is none.
struct Numbers {
    std::string unit;
    double step;
    double offset;
    Json full_scale;
};

Numbers numbers_of(Plane plane, Processing const& processing) {
    polarization::Scale const& scale = processing.settings.scale;
    bool const is_scaled = processing.units == Units::scaled;
    double const full_scale = scale.full_scale();
    auto const& about = description_of(plane);
    std::string const unit(about.unit);
    if (about.element == Element_type::float32) {
        return {unit, 1.0, 0.0, nullptr};
    }
    switch (plane) {
    case Plane::azimuth:
        if (is_scaled) {
            return {unit, 180.0 / full_scale, 90.0, scale.full_scale()};
        }
        return processing.units == Units::degrees ? Numbers{unit, 1.0, 0.0, 180.0}
                                                  : Numbers{"radian", 1.0, 0.0, std::numbers::pi};
    case Plane::dolp:
        return is_scaled ? Numbers{unit, 1.0 / full_scale, 0.0, scale.full_scale()}
                         : Numbers{unit, 1.0, 0.0, 1.0};
    default:
        return is_scaled ? Numbers{unit, scale.sample_units_per_step(), 0.0, scale.full_scale()}
                         : Numbers{unit, 1.0, 0.0, scale.sample_units_per_step() * full_scale};
    }
}

Json range_of(Plane plane, Processing const& processing) {
    if (plane == Plane::azimuth) {
        return "angle modulo 180 degrees; number 0 and the full scale are the same angle";
    }
    if (plane == Plane::s1 || plane == Plane::s2) {
        return processing.is_signed ? "signed" : "positive half; a negative value is stored as 0";
    }
    return plane == Plane::s0 ? "cut off at the full scale" : Json(nullptr);
}

// What a pixel holds where the quantity has no value, null if it always has one.
Json undefined_of(Plane plane, Processing const& processing) {
    if (processing.is_converted(plane) && plane == Plane::azimuth) {
        return "NaN where the degree is stored as 0";
    }
    if (processing.is_converted(plane) && plane == Plane::dolp) {
        return "NaN where S0 is stored as 0";
    }
    std::string_view const text = description_of(plane).undefined;
    return text.empty() ? Json(nullptr) : Json(text);
}

// In frames whose height and width differ in parity the processor takes the last pixel for one in
// an even row and column.
char const* final_pixel_of(Array_view const& array, Mode mode) {
    bool const is_misplaced = array.height() % 2 != array.width() % 2;
    if (!is_misplaced) {
        return "computed with the weights of its position";
    }
    return mode == Mode::calibrated
               ? "mended: computed once more with the weights of its position"
               : "computed with the weights of an even row and column, not those of its position";
}

Json placement_of(Plane plane, Processing const& processing) {
    bool const is_packed = description_of(plane).is_packed && processing.mode == Mode::fast;
    return is_packed
               ? "as the processor packs them; at the pixel's own place only in frames of two "
                 "rows or fewer than 32 columns; NaN where nothing is stored"
               : "row by row, each number at its pixel";
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
        return "ideal analysers";
    }
    return {
        {"file", utf8(origin.calibration_file.string())},
        {"time", origin.calibration->provenance.time},
        {"sensor", origin.calibration->provenance.sensor},
        {"rms_residual", origin.calibration->quality.rms_residual}};
}

} // namespace

std::string sidecar(
    Plane plane, std::filesystem::path const& file, Array_view const& array,
    Frame_place const& place, Processing const& processing, Origin const& origin) {
    Numbers const numbers = numbers_of(plane, processing);
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
        {"unit", numbers.unit},
        {"step", numbers.step},
        {"offset", numbers.offset},
        {"value", "number * step - offset"},
        {"full_scale", numbers.full_scale},
        {"range", range_of(plane, processing)},
        {"undefined", undefined_of(plane, processing)},
        {"placement", placement_of(plane, processing)},
        {"final_pixel", final_pixel_of(array, processing.mode)},
        {"zero_direction", "along the rows, towards growing columns"},
        {"sense", "counter-clockwise on a picture whose row 0 is at the top"},
        {"mosaic", {{"phase", mosaic.phase()}, {"layout", mosaic.layout()}}},
        {"bit_depth", processing.settings.scale.bit_depth()},
        {"mode", processing.mode == Mode::fast ? "fast" : "calibrated"},
        {"calibration", calibration_of(origin)},
        {"source", source_of(place, origin)},
        {"software",
         {{"name", "veldrane-polarize"},
          {"version", polarization::software_version()},
          {"processor", polarization::processor_identification()}}}};
    return json.dump(2) + "\n";
}

} // namespace polarize_tool
