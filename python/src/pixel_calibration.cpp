#include "bindings.hpp"
#include "raw_frames.hpp"

#include "veldrane_mrv/polarization/dark_frame.hpp"
#include "veldrane_mrv/polarization/photon_transfer.hpp"
#include "veldrane_mrv/polarization/pixel_calibration.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <pybind11/numpy.h>
#include <pybind11/stl.h>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace veldrane_python {
namespace {

namespace py = pybind11;
namespace polarization = veldrane_mrv::polarization;

template <class Number>
std::vector<Number> numbers_of(py::array_t<Number, py::array::c_style> const& array) {
    return {array.data(), array.data() + array.size()};
}

template <class Number>
py::array_t<Number> array_of(std::vector<Number> const& numbers) {
    return py::array_t<Number>{static_cast<py::ssize_t>(numbers.size()), numbers.data()};
}

polarization::Pixel_calibration pixel_calibration(
    std::size_t height, std::size_t width, int phase, int bit_depth,
    py::array_t<float, py::array::c_style> const& dark_levels,
    py::array_t<std::uint32_t, py::array::c_style> const& bad_pixels, double source_degree,
    bool trimmed, std::string const& sensor) {
    polarization::Pixel_calibration_options options;
    options.estimation.bit_depth = bit_depth;
    options.estimation.source_degree = source_degree;
    options.estimation.average =
        trimmed ? polarization::Average::trimmed_mean : polarization::Average::mean;
    options.estimation.sensor = sensor;
    options.sensor = {width, height};
    options.region = region_of(options.sensor);
    options.dark_levels = numbers_of(dark_levels);
    options.bad_pixels = numbers_of(bad_pixels);
    return {polarization::Mosaic::from_phase(phase), std::move(options)};
}

void add(
    polarization::Pixel_calibration& series, py::array const& raw, double angle, double intensity,
    std::string const& source, bool is_held_out) {
    Raw_frames const frames{raw};
    py::gil_scoped_release const unlocked;
    std::vector<std::uint16_t> memory;
    polarization::Uniform_frame const frame{frames.frame(0, memory), angle, intensity, source};
    is_held_out ? series.hold_out(frame) : series.add(frame);
}

// The calibration, and the residual of every pixel.
py::tuple finish(polarization::Pixel_calibration& series, std::string const& model) {
    auto measured = [&] {
        py::gil_scoped_release const unlocked;
        return series.finish(polarization::parse_calibration_model(model));
    }();
    return py::make_tuple(std::move(measured.calibration), array_of(measured.residuals));
}

void add_dark(polarization::Dark_frame_average& average, py::array const& raw) {
    Raw_frames const frames{raw};
    py::gil_scoped_release const unlocked;
    std::vector<std::uint16_t> memory;
    average.add(frames.frame(0, memory));
}

polarization::Photon_transfer_point measured_pair(
    py::array const& first, py::array const& second, std::string const& source, int bit_depth,
    std::array<double, 4> const& dark_levels) {
    Raw_frames const first_frames{first};
    Raw_frames const second_frames{second};
    py::gil_scoped_release const unlocked;
    std::vector<std::uint16_t> first_memory;
    std::vector<std::uint16_t> second_memory;
    return polarization::measure_pair(
        {first_frames.frame(0, first_memory), second_frames.frame(0, second_memory), source},
        {.bit_depth = bit_depth, .dark_levels = dark_levels});
}

// Electrons per count, and read noise in electrons.
std::pair<double, double> noise_of(std::vector<polarization::Photon_transfer_point> const& points) {
    auto const noise = polarization::fit_photon_transfer(points).noise;
    return {noise.electrons_per_count, noise.read_noise};
}

polarization::Calibration with_noise(
    polarization::Calibration calibration, double electrons_per_count, double read_noise) {
    calibration.noise = polarization::Noise_model{electrons_per_count, read_noise};
    return calibration;
}

} // namespace

void bind_pixel_calibration(py::module_& module) {
    bound_class<polarization::Model_quality>(
        module, "Model_quality",
        "What a model makes of the frame of the series that was held out.\n\n"
        "Attributes\n----------\nmodel : str\n    ``'position'``, ``'gain'`` or ``'pixel'``.\n"
        "rms_degree_error : float\n    Of the degree of polarisation less the source's.\n"
        "rms_angle_error_degrees : float\n    Of the angle less the polariser's.\n"
        "rms_sample_residual : float\n    Of samples less predicted ones, over the mean signal.\n\n"
        "Examples\n--------\n>>> Calibration.ideal(0).models\n()\n")
        .def_property_readonly(
            "model",
            [](polarization::Model_quality const& quality) { return name_of(quality.model); })
        .def_readonly("rms_degree_error", &polarization::Model_quality::rms_degree_error)
        .def_readonly(
            "rms_angle_error_degrees", &polarization::Model_quality::rms_angle_error_degrees)
        .def_readonly("rms_sample_residual", &polarization::Model_quality::rms_sample_residual)
        .def("__repr__", [](polarization::Model_quality const& quality) {
            return "<Model_quality " + std::string{name_of(quality.model)} + ": degree off by " +
                   std::to_string(quality.rms_degree_error) + ", angle by " +
                   std::to_string(quality.rms_angle_error_degrees) + " degrees>";
        });
    bound_class<polarization::Pixel_calibration>(module, "Pixel_calibration")
        .def(py::init(&pixel_calibration))
        .def("add", &add)
        .def("finish", &finish);
    bound_class<polarization::Dark_frame_average>(module, "Dark_frame_average")
        .def(py::init<>())
        .def("add", &add_dark)
        .def(
            "means",
            [](polarization::Dark_frame_average const& average) {
                return array_of(average.means());
            })
        .def("position_means", [](polarization::Dark_frame_average const& average) {
            return average.result().means();
        });
    bound_class<polarization::Photon_transfer_point>(module, "Photon_transfer_point");
    module.def("frame_to_hold_out", [](std::vector<double> const& angles) {
        return polarization::frame_to_hold_out(angles);
    });
    module.def("measure_pair", &measured_pair);
    module.def("fit_photon_transfer", &noise_of);
    module.def("with_noise", &with_noise);
}

} // namespace veldrane_python
