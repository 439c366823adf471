#include "bindings.hpp"

#include "veldrane_mrv/polarization/pixel_format.hpp"

#include <cstddef>
#include <cstdint>
#include <pybind11/numpy.h>
#include <pybind11/stl.h>
#include <span>
#include <string>
#include <vector>

namespace veldrane_python {
namespace {

namespace py = pybind11;
namespace polarization = veldrane_mrv::polarization;

using Bytes = py::array_t<std::uint8_t, py::array::c_style>;
using Samples = py::array_t<std::uint16_t, py::array::c_style>;

// `data` holds whole frames one behind the other, as Python has checked.
Samples unpack(
    Bytes const& data, std::string const& format_name, std::size_t count, std::size_t height,
    std::size_t width, std::size_t stride, std::size_t bytes_between) {
    polarization::Pixel_format const format = polarization::parse_pixel_format(format_name);
    std::size_t const bytes = polarization::bytes_per_frame(format, height, width, stride);
    Samples result{std::vector<std::size_t>{count, height, width}};
    std::uint16_t* const target = result.mutable_data();
    auto const source =
        std::as_bytes(std::span{data.data(), static_cast<std::size_t>(data.size())});
    py::gil_scoped_release const unlocked;
    for (std::size_t frame = 0; frame < count; ++frame) {
        polarization::unpack_frame(
            format, source.subspan(frame * bytes_between, bytes), width,
            {target + frame * height * width, height * width}, stride);
    }
    return result;
}

Bytes pack(Samples const& samples, std::string const& format_name) {
    polarization::Pixel_format const format = polarization::parse_pixel_format(format_name);
    auto const height = static_cast<std::size_t>(samples.shape(0));
    auto const width = static_cast<std::size_t>(samples.shape(1));
    Bytes result{std::vector<std::size_t>{polarization::bytes_per_frame(format, height, width)}};
    auto const target = std::as_writable_bytes(
        std::span{result.mutable_data(), static_cast<std::size_t>(result.size())});
    py::gil_scoped_release const unlocked;
    polarization::pack_frame(format, {samples.data(), height * width}, width, target);
    return result;
}

std::vector<std::string> names() {
    std::vector<std::string> list;
    for (polarization::Pixel_format const format : polarization::all_pixel_formats) {
        list.emplace_back(polarization::name_of(format));
    }
    return list;
}

} // namespace

void bind_pixel_formats(py::module_& module) {
    module.def("pixel_format_names", &names);
    module.def("bit_depth_of_format", [](std::string const& name) {
        return polarization::bit_depth_of(polarization::parse_pixel_format(name));
    });
    module.def(
        "bytes_per_frame",
        [](std::string const& name, std::size_t height, std::size_t width, std::size_t stride) {
            return polarization::bytes_per_frame(
                polarization::parse_pixel_format(name), height, width, stride);
        });
    module.def("unpack", &unpack);
    module.def("pack", &pack);
}

} // namespace veldrane_python
