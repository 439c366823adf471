/// @file
/// The parts of the native module; each adds its names to it.
#ifndef VELDRANE_PYTHON_BINDINGS_HPP
#define VELDRANE_PYTHON_BINDINGS_HPP

#include <pybind11/pybind11.h>

namespace veldrane_python {

void bind_calibration(pybind11::module_& module);
void bind_pixel_formats(pybind11::module_& module);
void bind_plan(pybind11::module_& module);
void bind_simulation(pybind11::module_& module);
void bind_units(pybind11::module_& module);

} // namespace veldrane_python

#endif
