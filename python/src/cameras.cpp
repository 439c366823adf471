// A module of its own, so that the package can be imported where Aravis is not.
#include "bindings.hpp"
#include "frame_rooms.hpp"

#include "veldrane_mrv/polarization/camera.hpp"

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <pybind11/stl.h>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace veldrane_python {
namespace {

namespace py = pybind11;
namespace polarization = veldrane_mrv::polarization;

/// Row, column, height, width: the order of arrays.
using Rows_first = std::tuple<std::size_t, std::size_t, std::size_t, std::size_t>;

void translate_camera_error(std::exception_ptr pending) {
    try {
        if (pending) {
            std::rethrow_exception(std::move(pending));
        }
    } catch (polarization::File_failure const& error) {
        py::object const of_cameras =
            py::module_::import("veldrane_polarization._camera_error").attr("Camera_error");
        PyErr_SetObject(of_cameras.ptr(), text_of_bytes(error.what()).ptr());
    } catch (...) {
        translate_error(std::current_exception());
    }
}

py::tuple as_tuple(polarization::Camera_description const& camera) {
    return py::make_tuple(
        text_of_bytes(camera.id), text_of_bytes(camera.vendor), text_of_bytes(camera.model),
        text_of_bytes(camera.serial), text_of_bytes(camera.address),
        text_of_bytes(camera.protocol));
}

py::tuple as_tuple(polarization::Camera_settings const& settings) {
    polarization::Region const& region = settings.region;
    return py::make_tuple(
        text_of_bytes(name_of(settings.pixel_format)),
        Rows_first{region.row, region.column, region.height, region.width},
        std::pair{settings.sensor.height, settings.sensor.width}, settings.exposure_us,
        settings.gain, settings.frame_rate);
}

py::tuple as_tuple(polarization::Live_counts const& counts) {
    py::dict incomplete;
    for (polarization::Incomplete_cause const cause : polarization::all_incomplete_causes) {
        incomplete[text_of_bytes(name_of(cause))] = counts.of(cause);
    }
    return py::make_tuple(
        counts.received, counts.dropped, counts.lost, incomplete, counts.reconnections);
}

polarization::Drop_policy drop_policy(std::string const& name) {
    if (name == "oldest") {
        return polarization::Drop_policy::oldest;
    }
    return name == "none" ? polarization::Drop_policy::none : polarization::Drop_policy::newest;
}

/// A camera that sends, until `stop`. Threads that ask for a frame wait for each other.
class Camera {
public:
    explicit Camera(polarization::Camera_options options)
        : rooms_{std::make_shared<Frame_rooms>(rooms)} {
        options.live.stop_requested = [this] { return is_to_stop(); };
        py::gil_scoped_release const unlocked;
        source_ = polarization::open_camera(options);
        description_ = source_->description();
        settings_ = source_->settings();
    }
    ~Camera() {
        try {
            stop();
        } catch (...) { // memory; the source ends with this object in any case
        }
    }
    Camera(Camera const&) = delete;
    Camera& operator=(Camera const&) = delete;

    /// Samples, frame number, time by the camera and time by this machine; None behind the last.
    py::object next() {
        auto slot = rooms_->take();
        {
            py::gil_scoped_release const unlocked;
            std::lock_guard const lock{receiving_};
            if (!source_ || !source_->has_frame(number_)) {
                slot.reset();
            } else {
                source_->read(number_++, *slot);
            }
        }
        if (!slot) {
            return py::none();
        }
        {
            py::gil_scoped_release const unlocked;
            slot->frame(); // unpacks
        }
        polarization::Capture const capture = slot->place().capture.value();
        return py::make_tuple(
            lend_frame(rooms_, std::move(slot)), capture.frame_number, capture.camera_time_ns,
            capture.host_time_ns);
    }

    /// Gives the camera back. Several times, any thread.
    void stop() {
        is_stopped_ = true;
        py::gil_scoped_release const unlocked;
        std::lock_guard const lock{receiving_};
        if (!source_) {
            return;
        }
        while (source_->has_frame(number_)) {
            ++number_;
        }
        std::lock_guard const counting{counting_};
        last_counts_ = source_->counts();
        source_.reset();
    }

    py::tuple counts() {
        std::lock_guard const counting{counting_};
        return as_tuple(source_ ? source_->counts() : last_counts_);
    }
    py::tuple description() const { return as_tuple(description_); }
    py::tuple settings() const { return as_tuple(settings_); }

private:
    // Those that arrays hold come and go; more are for the system to give.
    static constexpr std::size_t rooms = 4;

    bool is_to_stop() {
        if (is_stopped_) {
            return true;
        }
        py::gil_scoped_acquire const locked;
        if (PyErr_CheckSignals() != 0) {
            throw py::error_already_set{};
        }
        return false;
    }

    std::shared_ptr<Frame_rooms> rooms_;
    std::atomic<bool> is_stopped_ = false;
    std::mutex receiving_;
    std::mutex counting_;
    std::unique_ptr<polarization::Camera_source> source_;
    polarization::Camera_description description_;
    polarization::Camera_settings settings_;
    polarization::Live_counts last_counts_;
    std::size_t number_ = 0;
};

py::list list_cameras() {
    std::vector<polarization::Camera_description> cameras;
    {
        py::gil_scoped_release const unlocked;
        cameras = polarization::list_cameras();
    }
    py::list result;
    for (polarization::Camera_description const& camera : cameras) {
        result.append(as_tuple(camera));
    }
    return result;
}

std::unique_ptr<Camera> open_camera(
    std::string const& id, std::string const& pixel_format, std::optional<double> exposure_us,
    std::optional<double> gain, std::optional<double> frame_rate,
    std::optional<Rows_first> const& region, std::optional<std::size_t> frames,
    std::optional<double> seconds, std::string const& drop, std::size_t waiting_frames,
    double reconnect_seconds, bool packet_socket) {
    polarization::Camera_options options;
    options.id = id;
    options.pixel_format = pixel_format;
    options.exposure_us = exposure_us;
    options.gain = gain;
    options.frame_rate = frame_rate;
    if (region) {
        auto const& [row, column, height, width] = *region;
        options.region = polarization::Region{column, row, width, height};
    }
    options.reconnect_seconds = reconnect_seconds;
    options.may_use_packet_socket = packet_socket;
    options.live.frames = frames;
    options.live.seconds = seconds;
    options.live.drop = drop_policy(drop);
    options.live.waiting_frames = waiting_frames;
    return std::make_unique<Camera>(std::move(options));
}

} // namespace
} // namespace veldrane_python

PYBIND11_MODULE(_native_cameras, module) {
    namespace py = pybind11;
    using veldrane_python::Camera;
    module.doc() = "What the package veldrane_polarization does with cameras in C++.";
    py::register_local_exception_translator(&veldrane_python::translate_camera_error);
    veldrane_python::bound_class<Camera>(module, "Native_camera")
        .def("next", &Camera::next)
        .def("stop", &Camera::stop)
        .def("counts", &Camera::counts)
        .def("description", &Camera::description)
        .def("settings", &Camera::settings);
    module.def("list_cameras", &veldrane_python::list_cameras);
    module.def("open_camera", &veldrane_python::open_camera);
}
