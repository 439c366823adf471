#include "bindings.hpp"
#include "raw_frames.hpp"

#include "veldrane_mrv/polarization/calibration.hpp"
#include "veldrane_mrv/polarization/calibration_estimate.hpp"
#include "veldrane_mrv/polarization/calibration_file.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <pybind11/numpy.h>
#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>
#include <span>
#include <string>
#include <tuple>
#include <vector>

namespace veldrane_python {
namespace {

namespace py = pybind11;
namespace polarization = veldrane_mrv::polarization;

py::array_t<float> matrices_of(polarization::Calibration const& calibration) {
    py::array_t<float> result{std::vector<py::ssize_t>{4, 4, 4}};
    float* target = result.mutable_data();
    for (auto const& matrix : calibration.matrices.by_position) {
        target = std::ranges::copy(matrix, target).out;
    }
    return result;
}

using Maps = std::shared_ptr<polarization::Calibration_maps const>;

// Of the maps' own memory, which nobody may change.
template <class Number>
py::array read_only(Maps const& maps, std::vector<Number> const& numbers, bool is_map) {
    auto const width = static_cast<py::ssize_t>(maps->region.width);
    auto const height = static_cast<py::ssize_t>(maps->region.height);
    std::vector<py::ssize_t> shape{static_cast<py::ssize_t>(numbers.size())};
    if (is_map) {
        shape = {height, width};
    }
    py::capsule const owner{new Maps{maps}, [](void* kept) { delete static_cast<Maps*>(kept); }};
    py::array_t<Number> array{shape, numbers.data(), owner};
    array.attr("flags").attr("writeable") = false;
    return array;
}

py::dict maps_of(polarization::Calibration const& calibration) {
    py::dict result;
    for (auto const& map : polarization::maps_of(calibration.model)) {
        result[py::str{map.name}] =
            read_only(calibration.maps, (*calibration.maps).*map.numbers, true);
    }
    if (calibration.maps) {
        result["bad_pixels"] = read_only(calibration.maps, calibration.maps->bad_pixels, false);
    }
    return result;
}

py::object noise_of(polarization::Calibration const& calibration) {
    return calibration.noise
               ? py::make_tuple(
                     calibration.noise->electrons_per_count, calibration.noise->read_noise)
               : py::object{py::none{}};
}

// The text, and the numbers that it does not hold.
py::tuple pickled(polarization::Calibration const& calibration) {
    py::list maps;
    for (auto const& map : polarization::maps_of(calibration.model)) {
        maps.append(read_only(calibration.maps, (*calibration.maps).*map.numbers, true));
    }
    return py::make_tuple(polarization::calibration_to_json(calibration), maps);
}

polarization::Calibration unpickled(
    std::string const& text, std::vector<py::array_t<float, py::array::c_style>> const& maps) {
    std::vector<std::span<float const>> numbers;
    for (auto const& map : maps) {
        numbers.emplace_back(map.data(), static_cast<std::size_t>(map.size()));
    }
    return polarization::calibration_from_json(text, "the pickled calibration", numbers);
}

std::vector<std::string> flags_of(polarization::Calibration const& calibration) {
    std::vector<std::string> names;
    for (polarization::Quality_flag const flag : calibration.quality.flags) {
        names.emplace_back(polarization::name_of(flag));
    }
    return names;
}

double offset_of(polarization::Calibration const& calibration) {
    return polarization::common_offset(calibration.analysers, calibration.mosaic);
}

std::vector<std::tuple<std::string, double, double>> outlying_frames_of(
    polarization::Calibration const& calibration) {
    std::vector<std::tuple<std::string, double, double>> frames;
    for (polarization::Outlying_frame const& frame : calibration.quality.outlying_frames) {
        frames.emplace_back(frame.source, frame.polariser_angle, frame.residual);
    }
    return frames;
}

std::string described(polarization::Calibration const& calibration) {
    char figures[80];
    std::snprintf(
        figures, sizeof figures, ", residual %.2f %%, offset %+.2f degrees",
        100 * calibration.quality.rms_residual, offset_of(calibration));
    std::string flags;
    for (std::string const& flag : flags_of(calibration)) {
        flags.append(flags.empty() ? ", flags " : " ").append(flag);
    }
    return "<Calibration of the layout " + calibration.mosaic.to_string() + ", " +
           std::to_string(calibration.quality.frame_count) + " frames" + figures + flags + ">";
}

polarization::Series_point measured(
    py::array const& raw, double angle, double intensity, std::string const& source, int bit_depth,
    bool trimmed) {
    Raw_frames const frames{raw};
    polarization::Estimation_options options;
    options.bit_depth = bit_depth;
    options.average = trimmed ? polarization::Average::trimmed_mean : polarization::Average::mean;
    py::gil_scoped_release const unlocked;
    std::vector<std::uint16_t> memory;
    return polarization::measure({frames.frame(0, memory), angle, intensity, source}, options);
}

polarization::Calibration estimated(
    std::vector<polarization::Series_point> const& series, int phase, int bit_depth,
    std::optional<std::array<double, 4>> const& dark_levels, double source_degree,
    std::string const& sensor) {
    polarization::Estimation_options options;
    options.bit_depth = bit_depth;
    options.dark_levels = dark_levels;
    options.source_degree = source_degree;
    options.sensor = sensor;
    return polarization::estimate_calibration(
        series, polarization::Mosaic::from_phase(phase), options);
}

void bind_analyser(py::module_& module) {
    bound_class<polarization::Analyser>(
        module, "Analyser",
        "One of the four positions of the mosaic's cell.\n\n"
        "Attributes\n----------\nthroughput : float\n    Relative to the mean of the four.\n"
        "diattenuation : float\n    Contrast; 1 lets nothing of the crossed light through.\n"
        "orientation : float\n    Degrees in [0, 180).\n"
        "dark_level : float or None\n    Mean sample without light.\n"
        "residual : float\n    Root mean square of the fit's residuals over the mean signal.\n")
        .def_readonly("throughput", &polarization::Analyser::throughput)
        .def_readonly("diattenuation", &polarization::Analyser::diattenuation)
        .def_readonly("orientation", &polarization::Analyser::orientation)
        .def_readonly("dark_level", &polarization::Analyser::dark_level)
        .def_readonly("residual", &polarization::Analyser::residual)
        .def("__repr__", [](polarization::Analyser const& analyser) {
            return "<Analyser throughput " + std::to_string(analyser.throughput) +
                   ", diattenuation " + std::to_string(analyser.diattenuation) + ", orientation " +
                   std::to_string(analyser.orientation) + ">";
        });
}

} // namespace

void bind_calibration(py::module_& module) {
    bind_analyser(module);
    bound_class<polarization::Series_point>(module, "Series_point")
        .def_readonly("means", &polarization::Series_point::means);
    bound_class<polarization::Calibration>(
        module, "Calibration",
        "What is known of a sensor's analysers, and the weights that undo their faults.\n\n"
        "Made by `calibrate`, `Calibration.load` or `Calibration.ideal`; never changed.\n\n"
        "Examples\n--------\n"
        ">>> ideal = Calibration.ideal((90, 45, 135, 0))\n"
        ">>> ideal.matrices.shape, ideal.matrices.dtype\n((4, 4, 4), dtype('float32'))\n")
        .def_static(
            "_ideal",
            [](int phase) {
                return polarization::ideal_calibration(polarization::Mosaic::from_phase(phase));
            })
        .def_static("_load", &polarization::load_calibration)
        .def_static(
            "_from_json",
            [](std::string const& text) {
                return polarization::calibration_from_json(text, "the text");
            })
        .def(
            "to_json",
            [](polarization::Calibration const& c) { return polarization::calibration_to_json(c); },
            "The text of the file that `save` writes.\n\nReturns\n-------\nstr\n\n"
            "Examples\n--------\n>>> Calibration.ideal(0).to_json()[0]\n'{'\n")
        .def(
            "_save",
            [](polarization::Calibration const& c, std::filesystem::path const& path,
               bool overwrite) {
                polarization::save(
                    c, path,
                    overwrite ? polarization::Existing_files::replace
                              : polarization::Existing_files::keep);
            })
        .def_property_readonly(
            "phase", [](polarization::Calibration const& c) { return c.mosaic.phase(); },
            "Number of the layout, 0 to 3.")
        .def_property_readonly(
            "layout",
            [](polarization::Calibration const& c) {
                return py::tuple(py::cast(c.mosaic.layout()));
            },
            "Polariser angles in degrees of the top-left cell, row by row.")
        .def_property_readonly(
            "matrices", &matrices_of,
            "Weights, (4, 4, 4) float32: position in the cell, quantity (twice S0, S1, S2, "
            "unused),\n"
            "sample (own, horizontal, vertical, diagonal neighbour). A copy.")
        .def_property_readonly(
            "analysers",
            [](polarization::Calibration const& c) { return py::tuple(py::cast(c.analysers)); },
            "The four `Analyser`, in the order of `layout`.")
        .def_property_readonly(
            "rms_residual",
            [](polarization::Calibration const& c) { return c.quality.rms_residual; },
            "Root mean square of measured minus fitted means over the mean signal.")
        .def_property_readonly(
            "condition_number",
            [](polarization::Calibration const& c) { return c.quality.condition_number; },
            "Of the instrument matrix; 1.414 for an ideal sensor.")
        .def_property_readonly(
            "common_offset", &offset_of,
            "Mean distance in degrees of the orientations from the layout's, counter-clockwise;\n"
            "calibrated angles are turned by it.")
        .def_property_readonly(
            "outlying_frames", &outlying_frames_of,
            "Frames that do not go with the others, the worst first: (name, polariser angle,\n"
            "residual without it over the mean signal) of each.")
        .def_property_readonly(
            "models",
            [](polarization::Calibration const& c) {
                return py::tuple(py::cast(c.quality.models));
            },
            "What each model makes of the frame held out, a `Model_quality` each: `position`,\n"
            "`gain`, `pixel`. Empty if none was held out.")
        .def_property_readonly(
            "held_out_frame",
            [](polarization::Calibration const& c) { return c.quality.held_out_frame; },
            "Name of the frame that the models were judged by, or empty.")
        .def_property_readonly(
            "frame_count", [](polarization::Calibration const& c) { return c.quality.frame_count; },
            "Frames that the estimate rests on.")
        .def_property_readonly(
            "flags", &flags_of, "Names of what a reader should know before trusting it.")
        .def_property_readonly(
            "sensor", [](polarization::Calibration const& c) { return c.provenance.sensor; },
            "As given to `calibrate`.")
        .def_property_readonly(
            "time", [](polarization::Calibration const& c) { return c.provenance.time; },
            "When it was made, UTC.")
        .def_property_readonly(
            "model", [](polarization::Calibration const& c) { return name_of(c.model); },
            "What differs from pixel to pixel: ``'position'`` (nothing), ``'gain'`` or "
            "``'pixel'``.")
        .def_property_readonly(
            "maps", &maps_of,
            "What differs from pixel to pixel, by name: float32 arrays (H, W), read-only.\n\n"
            "Model ``'gain'`` has dark_level and gain, ``'pixel'`` has dark_level, throughput,\n"
            "diattenuation and orientation in degrees. Both have bad_pixels, uint32: the pixels\n"
            "that tell nothing, as row * W + column. Empty for ``'position'``.\n\n"
            "Examples\n--------\n>>> Calibration.ideal(0).maps\n{}\n")
        .def_property_readonly(
            "bit_depth",
            [](polarization::Calibration const& c) {
                return c.maps ? std::optional{c.maps->bit_depth} : std::nullopt;
            },
            "Of the samples that the maps are for; None without maps.")
        .def_property_readonly(
            "noise", &noise_of,
            "Electrons per count and read noise in electrons, or None if they are not known.")
        .def(
            "_of_region",
            [](polarization::Calibration const& c, std::size_t row, std::size_t column,
               std::optional<std::size_t> height, std::optional<std::size_t> width) {
                py::gil_scoped_release const unlocked;
                return height ? polarization::of_region(
                                    c, polarization::Region{column, row, *width, *height})
                              : polarization::of_region(c, row, column);
            })
        .def(
            "__eq__",
            [](polarization::Calibration const& a, polarization::Calibration const& b) {
                return a == b;
            },
            py::is_operator())
        .def("__repr__", &described)
        .def(py::pickle(&pickled, [](py::tuple const& state) {
            return unpickled(
                state[0].cast<std::string>(),
                state[1].cast<std::vector<py::array_t<float, py::array::c_style>>>());
        }));
    module.def(
        "measure", &measured, py::arg("raw").noconvert(), py::arg("angle"), py::arg("intensity"),
        py::arg("source"), py::arg("bit_depth"), py::arg("trimmed"));
    module.def(
        "estimate", &estimated, py::arg("series"), py::arg("phase"), py::arg("bit_depth"),
        py::arg("dark_levels"), py::arg("source_degree"), py::arg("sensor"));
}

} // namespace veldrane_python
