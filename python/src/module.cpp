#include "bindings.hpp"

#include "veldrane_mrv/polarization/calibration.hpp"
#include "veldrane_mrv/polarization/calibration_file.hpp"
#include "veldrane_mrv/polarization/mosaic.hpp"

#include <exception>
#include <pybind11/stl.h>
#include <string>

namespace {

namespace mrv = veldrane_mrv::polarization;

// `Argument_error` is a std::invalid_argument, which arrives as ValueError without help.
void translate_file_error(std::exception_ptr const pending) {
    try {
        if (pending) {
            std::rethrow_exception(pending);
        }
    } catch (mrv::File_error const& error) {
        PyErr_SetString(PyExc_ValueError, error.what());
    }
}

} // namespace

PYBIND11_MODULE(_native, module) {
    module.doc() = "What the package veldrane_polarization does in C++.";
    pybind11::register_exception_translator(&translate_file_error);
    module.def("software_version", [] { return std::string{mrv::software_version()}; });
    module.def("phase_of_text", [](std::string const& layout) {
        return mrv::Mosaic::parse(layout).phase();
    });
    module.def(
        "layout_of_phase", [](int phase) { return mrv::Mosaic::from_phase(phase).layout(); });
    veldrane_python::bind_calibration(module);
    veldrane_python::bind_units(module);
    veldrane_python::bind_plan(module);
    veldrane_python::bind_pixel_formats(module);
    veldrane_python::bind_simulation(module);
}
