#include "bindings.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/calibration_file.hpp"
#include "veldrane_mrv/polarization/file_failure.hpp"

#include <exception>
#include <new>
#include <utility>

namespace veldrane_python {

namespace polarization = veldrane_mrv::polarization;

// What they say may hold the name of a file, which pybind11 takes for UTF-8.
void translate_error(std::exception_ptr pending) {
    try {
        if (pending) {
            std::rethrow_exception(std::move(pending));
        }
    } catch (polarization::Argument_error const& error) {
        PyErr_SetObject(PyExc_ValueError, text_of_bytes(error.what()).ptr());
    } catch (polarization::File_error const& error) {
        PyErr_SetObject(PyExc_ValueError, text_of_bytes(error.what()).ptr());
    } catch (polarization::File_failure const& error) {
        PyErr_SetObject(PyExc_ValueError, text_of_bytes(error.what()).ptr());
    } catch (std::bad_alloc const&) {
        PyErr_SetString(
            PyExc_MemoryError,
            "the memory that is left is too little for this call; give fewer frames at once, "
            "smaller ones or fewer threads");
    }
}

void Interruption_check::operator()() {
    auto const now = std::chrono::steady_clock::now();
    if (now < next_look_) {
        return;
    }
    next_look_ = now + std::chrono::milliseconds{100};
    pybind11::gil_scoped_acquire const locked;
    if (PyErr_CheckSignals() != 0) {
        throw pybind11::error_already_set{};
    }
}

pybind11::str text_of_bytes(std::string_view bytes) {
    return pybind11::reinterpret_steal<pybind11::str>(
        PyUnicode_DecodeFSDefaultAndSize(bytes.data(), static_cast<Py_ssize_t>(bytes.size())));
}

long whole_number(char const* name, pybind11::handle value, long lowest, long highest) {
    std::string const given = std::string{name} + " is " + std::string{pybind11::repr(value)};
    std::string const remedy =
        "; give a whole number from " + std::to_string(lowest) + " to " + std::to_string(highest);
    bool const is_whole = !PyBool_Check(value.ptr()) && PyIndex_Check(value.ptr()) != 0;
    if (!is_whole) {
        throw pybind11::type_error{given + remedy};
    }
    int too_large = 0;
    long const number = PyLong_AsLongAndOverflow(
        pybind11::reinterpret_steal<pybind11::object>(PyNumber_Index(value.ptr())).ptr(),
        &too_large);
    if (too_large != 0 || number < lowest || number > highest) {
        throw pybind11::value_error{given + remedy};
    }
    return number;
}

} // namespace veldrane_python
