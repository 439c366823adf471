#include "bindings.hpp"

#include "veldrane_mrv/polarization/build_identification.hpp"
#include "veldrane_mrv/polarization/calibration.hpp"
#include "veldrane_mrv/polarization/mosaic.hpp"

#include <pybind11/stl.h>
#include <string>

namespace polarization = veldrane_mrv::polarization;

PYBIND11_MODULE(_native, module) {
    module.doc() = "What the package veldrane_polarization does in C++.";
    pybind11::register_exception_translator(&veldrane_python::translate_error);
    module.def("software_version", [] { return std::string{polarization::software_version()}; });
    module.def("processor_identification", &polarization::processor_identification);
    module.def("whole_number", &veldrane_python::whole_number);
    module.def("phase_of_text", [](std::string const& layout) {
        return polarization::Mosaic::parse(layout).phase();
    });
    module.def("layout_of_phase", [](int phase) {
        return polarization::Mosaic::from_phase(phase).layout();
    });
    veldrane_python::bind_pixel_calibration(module);
    veldrane_python::bind_calibration(module);
    veldrane_python::bind_units(module);
    veldrane_python::bind_plan(module);
    veldrane_python::bind_pictures(module);
    veldrane_python::bind_pixel_formats(module);
    veldrane_python::bind_recordings(module);
    veldrane_python::bind_simulation(module);
}
