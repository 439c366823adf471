#include "bindings.hpp"

#include "veldrane_mrv/polarization/scale.hpp"
#include "veldrane_mrv/polarization/units.hpp"

#include <cstdint>
#include <optional>
#include <pybind11/numpy.h>
#include <pybind11/stl.h>
#include <span>
#include <string>
#include <vector>

namespace veldrane_python {
namespace {

namespace py = pybind11;
namespace polarization = veldrane_mrv::polarization;

template <class Element>
using Plane_array = py::array_t<Element, py::array::c_style>;

template <class Element>
std::span<Element const> elements_of(Plane_array<Element> const& array) {
    return {array.data(), static_cast<std::size_t>(array.size())};
}

std::span<std::uint16_t const> elements_of(std::optional<Plane_array<std::uint16_t>> const& array) {
    return array ? elements_of(*array) : std::span<std::uint16_t const>{};
}

template <class Element>
py::array_t<float> empty_like(Plane_array<Element> const& array) {
    return py::array_t<float>{
        std::vector<py::ssize_t>(array.shape(), array.shape() + array.ndim())};
}

// Calls `fill` with the elements of a new array, without the interpreter's lock.
template <class Element, class Fill>
py::array_t<float> converted(Plane_array<Element> const& plane, Fill const& fill) {
    py::array_t<float> result = empty_like(plane);
    std::span<float> const target{result.mutable_data(), static_cast<std::size_t>(result.size())};
    py::gil_scoped_release const unlocked;
    fill(target);
    return result;
}

py::array_t<float> angles(
    Plane_array<std::uint16_t> const& azimuth,
    std::optional<Plane_array<std::uint16_t>> const& dolp, polarization::Scale const& scale,
    bool in_degrees) {
    auto const unit =
        in_degrees ? polarization::Angle_unit::degrees : polarization::Angle_unit::radians;
    auto const elements = elements_of(azimuth);
    auto const companion = elements_of(dolp);
    return converted(azimuth, [&](std::span<float> target) {
        polarization::angles(elements, companion, scale, unit, target);
    });
}

py::array_t<float> degrees_of_polarization(
    Plane_array<std::uint16_t> const& dolp, std::optional<Plane_array<std::uint16_t>> const& s0,
    polarization::Scale const& scale) {
    auto const elements = elements_of(dolp);
    auto const companion = elements_of(s0);
    return converted(dolp, [&](std::span<float> target) {
        polarization::degrees_of_polarization(elements, companion, scale, target);
    });
}

template <class Element>
py::array_t<float> stokes_in_samples(
    Plane_array<Element> const& stokes, polarization::Scale const& scale) {
    auto const elements = elements_of(stokes);
    return converted(stokes, [&](std::span<float> target) {
        polarization::stokes_in_samples(elements, scale, target);
    });
}

py::tuple state_of(polarization::Scale const& scale) {
    return py::make_tuple(scale.bit_depth(), scale.full_scale(), scale.rescaled());
}

polarization::Scale scale_of_state(py::tuple const& state) {
    if (state.size() == 3) {
        auto const depth = static_cast<int>(whole_number("bit_depth", state[0], 1, 16));
        auto const full_scale =
            static_cast<unsigned>(whole_number("full_scale", state[1], 1, 65535));
        for (auto const& scale :
             {polarization::Scale{depth}, polarization::Scale{depth, full_scale},
              polarization::Scale::in_sample_units(depth, full_scale)}) {
            if (state_of(scale).equal(state)) {
                return scale;
            }
        }
    }
    throw py::value_error{
        "the pickled scale is " + std::string{py::repr(state)} +
        "; pickle it with this version of the package"};
}

// As the constructor takes it. Of 16 bits that fill the planes rescaled, the two numbers would be
// another scale.
std::string described(polarization::Scale const& scale) {
    bool const is_of_both = scale == polarization::Scale{scale.bit_depth(), scale.full_scale()};
    return "Scale(" + std::to_string(scale.bit_depth()) +
           (is_of_both ? ", " + std::to_string(scale.full_scale()) : std::string{}) + ")";
}

} // namespace

void bind_units(py::module_& module) {
    bound_class<polarization::Scale>(
        module, "Scale",
        "How elements of the 16-bit planes relate to samples, degrees and fractions.\n\n"
        "Parameters\n----------\nbit_depth : int\n    Significant bits of a sample, 1 to 16.\n"
        "full_scale : int, optional\n    Largest element of the planes, 1 to 65535 (default "
        "65535).\n"
        "    2**bit_depth - 1 keeps the Stokes planes in sample units.\n\n"
        "Raises\n------\nValueError\n    If a number is out of its range.\n\n"
        "Examples\n--------\n>>> Scale(12, 4095).sample_units_per_step\n1.0\n")
        .def(
            py::init([](py::object const& bit_depth, py::object const& full_scale) {
                auto const depth = static_cast<int>(whole_number("bit_depth", bit_depth, 1, 16));
                return full_scale.is_none() ? polarization::Scale{depth}
                                            : polarization::Scale{
                                                  depth, static_cast<unsigned>(whole_number(
                                                             "full_scale", full_scale, 1, 65535))};
            }),
            py::arg("bit_depth"), py::arg("full_scale") = py::none())
        .def_property_readonly("bit_depth", &polarization::Scale::bit_depth)
        .def_property_readonly("full_scale", &polarization::Scale::full_scale)
        .def_property_readonly("largest_sample", &polarization::Scale::largest_sample)
        .def_property_readonly("rescaled", &polarization::Scale::rescaled)
        .def_property_readonly("sample_units_per_step", &polarization::Scale::sample_units_per_step)
        .def(
            "__eq__",
            [](polarization::Scale const& a, polarization::Scale const& b) { return a == b; },
            py::is_operator())
        .def("__hash__", [](polarization::Scale const& scale) { return py::hash(state_of(scale)); })
        .def("__repr__", &described)
        .def(py::pickle(&state_of, &scale_of_state));
    module.def(
        "angles", &angles, py::arg("azimuth").noconvert(), py::arg("dolp").noconvert(),
        py::arg("scale"), py::arg("in_degrees"));
    module.def(
        "degrees_of_polarization", &degrees_of_polarization, py::arg("dolp").noconvert(),
        py::arg("s0").noconvert(), py::arg("scale"));
    module.def(
        "stokes_in_samples", &stokes_in_samples<std::uint16_t>, py::arg("stokes").noconvert(),
        py::arg("scale"));
    module.def(
        "stokes_in_samples", &stokes_in_samples<std::int32_t>, py::arg("stokes").noconvert(),
        py::arg("scale"));
}

} // namespace veldrane_python
