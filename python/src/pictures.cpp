#include "bindings.hpp"

#include "veldrane_mrv/polarization/number_meaning.hpp"
#include "veldrane_mrv/polarization/pictures.hpp"

#include <algorithm>
#include <cstdint>
#include <pybind11/numpy.h>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace veldrane_python {
namespace {

namespace py = pybind11;
namespace polarization = veldrane_mrv::polarization;

// (..., 3), red, green and blue.
template <class Level>
py::array_t<Level> array_of(
    std::span<std::array<Level, 3> const> colours, std::vector<std::size_t> shape) {
    shape.push_back(3);
    py::array_t<Level> result{shape};
    Level* target = result.mutable_data();
    for (auto const& colour : colours) {
        target = std::copy(colour.begin(), colour.end(), target);
    }
    return result;
}

py::object text_of(std::string_view text) {
    return text.empty() ? py::object{py::none()} : py::str{std::string{text}};
}

polarization::Plane plane_of(std::string const& name) {
    return polarization::parse_planes(name).list().front();
}

// Of a plane of scaled numbers.
py::dict number_meaning(
    std::string const& plane, polarization::Scale const& scale, bool is_calibrated_mode,
    bool is_signed, std::size_t height, std::size_t width) {
    auto const meaning = polarization::meaning_of(
        plane_of(plane),
        {.units = polarization::Units::scaled,
         .scale = scale,
         .mode = is_calibrated_mode ? polarization::Mode::calibrated : polarization::Mode::fast,
         .is_signed = is_signed,
         .size = {.width = width, .height = height}});
    py::dict result;
    result["unit"] = text_of(meaning.unit);
    result["step"] = meaning.step;
    result["value"] = text_of(polarization::value_rule);
    result["offset"] = meaning.offset;
    result["full_scale"] = py::none();
    if (meaning.full_scale) {
        result["full_scale"] = scale.full_scale();
    }
    result["range"] = text_of(meaning.range);
    result["undefined"] = text_of(meaning.undefined);
    result["placement"] = text_of(meaning.placement);
    result["final_pixel"] = text_of(meaning.final_pixel);
    return result;
}

} // namespace

void bind_pictures(py::module_& module) {
    module.def("angle_colours", [] {
        auto const colours = polarization::angle_colours();
        return array_of<double>(colours, {colours.size()});
    });
    module.def("angle_degree_colours", [] {
        return array_of<std::uint8_t>(
            polarization::angle_degree_colours(),
            {polarization::hue_count, polarization::level_count});
    });
    module.def("degree_colours", [] {
        return array_of<double>(polarization::degree_colours(), {polarization::level_count});
    });
    module.def("colour_wheel", [](std::size_t side) {
        return array_of<std::uint8_t>(polarization::colour_wheel(side).pixels, {side, side});
    });
    module.def("number_meaning", &number_meaning);
    module.def("described_zero_direction", &polarization::described_zero_direction);
    module.attr("sense") = text_of(polarization::sense);
    module.attr("no_calibration") = text_of(polarization::no_calibration);
}

} // namespace veldrane_python
