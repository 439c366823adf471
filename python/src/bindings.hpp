/// @file
/// What the modules have in common, and the parts of the native one; each adds its names to it.
#pragma once

#include <chrono>
#include <cstddef>
#include <exception>
#include <pybind11/pybind11.h>
#include <string>
#include <string_view>

namespace veldrane_python {

/// Lets Ctrl-C end a call that has given the interpreter's lock away. Looks ten times a second at
/// most: to get the lock back can take milliseconds.
class Interruption_check {
public:
    /// @throws pybind11::error_already_set with what the signal's handler raised
    void operator()();

private:
    std::chrono::steady_clock::time_point next_look_ = std::chrono::steady_clock::now();
};

/// Turns what the libraries throw into what Python knows.
void translate_error(std::exception_ptr pending);

/// Text of any bytes, as Python holds names of files that are no UTF-8.
pybind11::str text_of_bytes(std::string_view bytes);

/// A whole number from Python, with a message of the package's kind.
/// @throws pybind11::type_error, pybind11::value_error
long whole_number(char const* name, pybind11::handle value, long lowest, long highest);

/// A class for Python.
///
/// An object of it that `__new__` alone made has nothing in it. pybind11 would give it memory with
/// whatever is there at its first use, as argument or self, and asks the class for that memory.
template <class Type, class... Extra>
pybind11::class_<Type> bound_class(
    pybind11::module_& module, char const* name, Extra const&... extra) {
    pybind11::class_<Type> result{module, name, extra...};
    pybind11::detail::get_type_info(typeid(Type))->operator_new = [](std::size_t) -> void* {
        std::string const of_class = pybind11::str(pybind11::type::of<Type>().attr("__name__"));
        throw pybind11::type_error{
            "the " + of_class + " was never initialised; make it as help(" + of_class + ") says"};
    };
    return result;
}

void bind_calibration(pybind11::module_& module);
void bind_pictures(pybind11::module_& module);
void bind_pixel_calibration(pybind11::module_& module);
void bind_pixel_formats(pybind11::module_& module);
void bind_plan(pybind11::module_& module);
void bind_recordings(pybind11::module_& module);
void bind_simulation(pybind11::module_& module);
void bind_units(pybind11::module_& module);

} // namespace veldrane_python
