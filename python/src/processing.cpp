#include "bindings.hpp"
#include "raw_frames.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/calibration.hpp"
#include "veldrane_mrv/polarization/pipeline.hpp"
#include "veldrane_mrv/polarization/transform.hpp"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <pybind11/numpy.h>
#include <pybind11/stl.h>
#include <span>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace veldrane_python {
namespace {

namespace py = pybind11;
namespace mrv = veldrane_mrv::polarization;

/// A plane of all frames, one frame's elements behind the other's.
template <class Element>
struct Frame_series {
    Element* data = nullptr;
    std::size_t elements_per_frame = 0;

    std::span<Element> frame(std::size_t index) const {
        return {data + index * elements_per_frame, elements_per_frame};
    }
};

struct Targets {
    std::array<Frame_series<std::uint16_t>, 5> integer_planes;
    Frame_series<float> normalized_stokes;
    Frame_series<std::int32_t> signed_s1;
    Frame_series<std::int32_t> signed_s2;

    mrv::Plane_views planes(std::size_t index) const {
        auto const& of = integer_planes;
        return {of[0].frame(index), of[1].frame(index), of[2].frame(index),
                of[3].frame(index), of[4].frame(index), normalized_stokes.frame(index)};
    }
    mrv::Signed_views signed_planes(std::size_t index) const {
        return {signed_s1.frame(index), signed_s2.frame(index)};
    }
    bool has_signed() const { return signed_s1.data != nullptr || signed_s2.data != nullptr; }
};

template <class Element>
Frame_series<Element> series_of(
    std::string const& name, py::array& array, Raw_frames const& raw, std::size_t elements) {
    std::size_t const per_frame = raw.height() * raw.width() * elements;
    bool const is_dense = (array.flags() & py::array::c_style) != 0;
    if (!py::isinstance<py::array_t<Element>>(array) || !is_dense ||
        static_cast<std::size_t>(array.size()) != raw.count() * per_frame) {
        throw mrv::Argument_error{
            "the array for the plane " + name, "of another type, order or size",
            "give a dense one of the plane's type and the frames' size"};
    }
    return {static_cast<Element*>(array.mutable_data()), per_frame};
}

Targets targets_of(
    std::map<std::string, py::array>& arrays, Raw_frames const& raw, bool is_signed) {
    Targets targets;
    for (auto& [name, array] : arrays) {
        if (is_signed && name == "s1") {
            targets.signed_s1 = series_of<std::int32_t>(name, array, raw, 1);
        } else if (is_signed && name == "s2") {
            targets.signed_s2 = series_of<std::int32_t>(name, array, raw, 1);
        } else if (name == name_of(mrv::Plane::normalized_stokes)) {
            targets.normalized_stokes = series_of<float>(name, array, raw, 2);
        } else {
            auto const plane = mrv::parse_planes(name).list().front();
            targets.integer_planes[static_cast<std::size_t>(plane)] =
                series_of<std::uint16_t>(name, array, raw, 1);
        }
    }
    return targets;
}

struct Bytes {
    std::uintptr_t begin;
    std::uintptr_t end;
};

// From the lowest to behind the highest byte of an array that is not empty.
Bytes bytes_of(py::array const& array) {
    auto const first = reinterpret_cast<std::uintptr_t>(array.data());
    Bytes bytes{first, first + static_cast<std::uintptr_t>(array.itemsize())};
    for (py::ssize_t axis = 0; axis < array.ndim(); ++axis) {
        py::ssize_t const reach = array.strides(axis) * (array.shape(axis) - 1);
        (reach < 0 ? bytes.begin : bytes.end) += static_cast<std::uintptr_t>(reach);
    }
    return bytes;
}

bool has_type_of_plane(std::string const& name, py::array const& array, bool is_signed) {
    if (name == name_of(mrv::Plane::normalized_stokes)) {
        return py::isinstance<py::array_t<float>>(array);
    }
    return is_signed && (name == "s1" || name == "s2")
               ? py::isinstance<py::array_t<std::int32_t>>(array)
               : py::isinstance<py::array_t<std::uint16_t>>(array);
}

bool has_shape_of_plane(std::string const& name, py::array const& array, py::array const& raw) {
    bool const is_pair = name == name_of(mrv::Plane::normalized_stokes);
    return array.ndim() == raw.ndim() + (is_pair ? 1 : 0) &&
           std::equal(raw.shape(), raw.shape() + raw.ndim(), array.shape()) &&
           (!is_pair || array.shape(raw.ndim()) == 2);
}

// Whether the arrays can take their planes beyond doubt. If not, Python finds out what is wrong, if
// anything: its code for that is long enough to be felt in every call.
bool plainly_fits(
    py::array const& raw, py::dict const& out, py::tuple const& planes, bool is_signed) {
    if (out.size() != planes.size() || raw.size() == 0) {
        return false;
    }
    std::vector<Bytes> taken{bytes_of(raw)};
    for (py::handle const plane : planes) {
        if (!out.contains(plane) || !py::isinstance<py::array>(out[plane])) {
            return false;
        }
        auto const array = py::reinterpret_borrow<py::array>(out[plane]);
        auto const name = plane.cast<std::string>();
        constexpr int wanted = +py::array::c_style | +py::detail::npy_api::NPY_ARRAY_ALIGNED_ |
                               py::detail::npy_api::NPY_ARRAY_WRITEABLE_;
        if ((array.flags() & wanted) != wanted || !has_type_of_plane(name, array, is_signed) ||
            !has_shape_of_plane(name, array, raw)) {
            return false;
        }
        taken.push_back(bytes_of(array));
    }
    std::ranges::sort(taken, {}, &Bytes::begin);
    auto const meet = [](Bytes const& lower, Bytes const& upper) {
        return upper.begin < lower.end;
    };
    return std::ranges::adjacent_find(taken, meet) == taken.end();
}

/// What one frame in flight needs.
class Worker {
public:
    Worker(mrv::Settings const& settings, mrv::Mode mode, bool is_signed)
        : settings_{settings}, mode_{mode} {
        if (is_signed) {
            signed_.emplace(settings, mode);
        } else if (mode == mrv::Mode::calibrated) {
            calibrated_.emplace(settings);
        }
    }

    void process(Raw_frames const& raw, Targets const& targets, std::size_t index) {
        mrv::Frame_view const frame = raw.frame(index, memory_);
        if (signed_) {
            (*signed_)(frame, targets.planes(index), targets.signed_planes(index));
        } else if (calibrated_) {
            (*calibrated_)(frame, targets.planes(index));
        } else {
            mrv::transform(frame, settings_, targets.planes(index));
        }
    }

private:
    mrv::Settings settings_;
    mrv::Mode mode_;
    std::optional<mrv::Calibrated_transform> calibrated_;
    std::optional<mrv::Signed_transform> signed_;
    std::vector<std::uint16_t> memory_;
};

// The first frame alone: what is wrong with a call is wrong with it, and nothing is written then.
// One frame, or one thread, does without a pipeline.
void run(
    Raw_frames const& raw, Targets const& targets, mrv::Settings const& settings, mrv::Mode mode,
    unsigned threads) {
    bool const is_signed = targets.has_signed();
    // Asking for the number of processors reads a file of the system's, too long for one frame.
    if (raw.count() == 1 || threads == 1) {
        Worker worker{settings, mode, is_signed};
        for (std::size_t index = 0; index < raw.count(); ++index) {
            worker.process(raw, targets, index);
        }
        return;
    }
    unsigned const wanted =
        threads == 0 ? std::max(1U, std::thread::hardware_concurrency()) : threads;
    auto const used = static_cast<unsigned>(std::min<std::size_t>(wanted, raw.count()));
    mrv::Pipeline_result const result = mrv::run_pipeline(
        {.threads = used, .frames_in_flight = used, .stop_requested = {}},
        [&] {
            return Worker{settings, mode, is_signed};
        },
        [&](std::size_t index, Worker&) { return index < raw.count(); },
        [&](std::size_t index, Worker& worker) { worker.process(raw, targets, index); },
        [](std::size_t, Worker&) {});
    if (!result.failed.empty()) {
        throw std::invalid_argument{result.failed.front().message};
    }
}

void process(
    py::array const& raw_array, std::map<std::string, py::array> arrays, int phase,
    mrv::Scale const& scale, mrv::Calibration const* calibration, bool is_calibrated_mode,
    bool is_signed, unsigned threads) {
    Raw_frames const raw{raw_array};
    if (raw.count() == 0 || arrays.empty()) {
        return;
    }
    Targets const targets = targets_of(arrays, raw, is_signed);
    mrv::Mosaic const mosaic = mrv::Mosaic::from_phase(phase);
    mrv::Settings const settings = calibration != nullptr
                                       ? mrv::Settings{mosaic, scale, calibration->matrices}
                                       : mrv::ideal_settings(mosaic, scale);
    mrv::Mode const mode = is_calibrated_mode ? mrv::Mode::calibrated : mrv::Mode::fast;
    py::gil_scoped_release const unlocked;
    run(raw, targets, settings, mode, threads);
}

} // namespace

void bind_processing(py::module_& module) {
    module.def("plainly_fits", &plainly_fits);
    module.def(
        "process", &process, py::arg("raw").noconvert(), py::arg("arrays"), py::arg("phase"),
        py::arg("scale"), py::arg("calibration").none(true), py::arg("is_calibrated_mode"),
        py::arg("is_signed"), py::arg("threads"));
}

} // namespace veldrane_python
