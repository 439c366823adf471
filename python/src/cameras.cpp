// A module of its own, so that the package can be imported where Aravis is not.
#include "bindings.hpp"
#include "calls_under_way.hpp"
#include "frame_rooms.hpp"

#include "veldrane_mrv/polarization/camera.hpp"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <pybind11/stl.h>
#include <stdexcept>
#include <string>
#include <thread>
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

class Camera;

/// What the cameras of a process have in common. With the interpreter's lock only.
struct Open_cameras {
    Calls_under_way calls;
    std::vector<Camera*> cameras;

    /// Gives all back, before the interpreter ends.
    void end();
    /// In the child of a fork, to which none of them belongs.
    void forget();
};

/// A camera that sends, until `stop`. Threads that ask for a frame wait for each other.
class Camera {
public:
    Camera(polarization::Camera_options options, std::shared_ptr<Open_cameras> all)
        : rooms_{std::make_shared<Frame_rooms>(rooms)}, all_{std::move(all)} {
        options.live.stop_requested = [this] { return is_to_stop(); };
        {
            Calls_under_way::Unlocked const unlocked{all_->calls};
            source_ = polarization::open_camera(options);
            description_ = source_->description();
            settings_ = source_->settings();
        }
        all_->cameras.push_back(this);
    }
    ~Camera() {
        std::erase(all_->cameras, this);
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
            Calls_under_way::Unlocked const unlocked{all_->calls};
            if (read_next(*slot)) {
                slot->frame(); // unpacks
            } else {
                slot.reset();
            }
        }
        if (!slot) {
            return py::none();
        }
        polarization::Capture const capture = slot->place().capture.value();
        return py::make_tuple(
            lend_frame(rooms_, std::move(slot)), capture.frame_number, capture.camera_time_ns,
            capture.host_time_ns);
    }

    /// Gives the camera back. Several times, any thread; in the handler of a signal that came while
    /// its thread waits for a frame, this waiting ends first.
    void stop() {
        is_stopped_ = true;
        Calls_under_way::Unlocked const unlocked{all_->calls};
        if (!is_in_turn()) {
            Turn const turn{*this, [] { return false; }};
            give_back();
        }
    }

    py::tuple counts() {
        polarization::Live_counts counts;
        {
            Calls_under_way::Unlocked const unlocked{all_->calls};
            std::lock_guard const lock{mutex_};
            counts = source_ ? source_->counts() : last_counts_;
        }
        return as_tuple(counts);
    }
    py::tuple description() const { return as_tuple(description_); }
    py::tuple settings() const { return as_tuple(settings_); }

    void forget() {
        static_cast<void>(source_.release()); // whose thread could not be waited for
        in_turn_ = {};
    }

private:
    // Those that arrays hold come and go; more are for the system to give.
    static constexpr std::size_t rooms = 4;

    /// The right of one thread to use the source.
    class Turn {
    public:
        /// Waits for it until `is_to_stop`, which is asked several times a second.
        template <class Is_to_stop>
        Turn(Camera& camera, Is_to_stop const& is_to_stop) : camera_{camera} {
            constexpr std::chrono::milliseconds patience{50};
            std::unique_lock lock{camera_.mutex_};
            while (camera_.in_turn_ != std::thread::id{}) {
                camera_.turn_ended_.wait_for(lock, patience);
                lock.unlock(); // handlers of signals ask this camera
                if (is_to_stop()) {
                    return;
                }
                lock.lock();
            }
            camera_.in_turn_ = std::this_thread::get_id();
            has_come_ = true;
        }
        ~Turn() {
            if (has_come_) {
                std::lock_guard const lock{camera_.mutex_};
                camera_.in_turn_ = {};
                camera_.turn_ended_.notify_all();
            }
        }
        Turn(Turn const&) = delete;
        Turn& operator=(Turn const&) = delete;

        bool has_come() const { return has_come_; }

    private:
        Camera& camera_;
        bool has_come_ = false;
    };

    bool is_in_turn() {
        std::lock_guard const lock{mutex_};
        return in_turn_ == std::this_thread::get_id();
    }

    bool read_next(polarization::Frame_slot& slot) {
        if (is_in_turn()) {
            throw std::runtime_error(
                "the camera is asked for a frame in the handler of a signal that came while it was "
                "asked for one; ask outside the handler");
        }
        Turn const turn{*this, [this] { return is_to_stop(); }};
        if (!turn.has_come() || !source_) {
            return false;
        }
        bool is_there = false;
        try {
            is_there = source_->has_frame(number_);
            if (is_there) {
                source_->read(number_++, slot);
            }
        } catch (...) {
            give_back_if_stopped();
            throw;
        }
        give_back_if_stopped();
        return is_there;
    }

    // A handler of a signal has stopped it in the middle.
    void give_back_if_stopped() {
        if (is_stopped_) {
            give_back();
        }
    }

    // In turn.
    void give_back() {
        if (!source_) {
            return;
        }
        std::uint64_t let_go = 0;
        while (source_->has_frame(number_)) {
            ++number_;
            ++let_go;
        }
        std::unique_ptr<polarization::Camera_source> gone;
        std::lock_guard const lock{mutex_};
        last_counts_ = source_->counts();
        last_counts_.dropped += let_go;
        gone = std::move(source_); // ends behind the lock: a camera that is silent takes seconds
    }

    bool is_to_stop() {
        if (is_stopped_ || all_->calls.are_ending()) {
            return true;
        }
        py::gil_scoped_acquire const locked;
        if (PyErr_CheckSignals() != 0) {
            throw py::error_already_set{};
        }
        return is_stopped_;
    }

    std::shared_ptr<Frame_rooms> rooms_;
    std::shared_ptr<Open_cameras> all_;
    std::atomic<bool> is_stopped_ = false;
    std::mutex mutex_; // never held while anything is waited for
    std::condition_variable turn_ended_;
    std::thread::id in_turn_;
    std::unique_ptr<polarization::Camera_source> source_; // changes in turn, with the mutex
    polarization::Camera_description description_;
    polarization::Camera_settings settings_;
    polarization::Live_counts last_counts_;
    std::size_t number_ = 0;
};

void Open_cameras::end() {
    calls.end();
    for (Camera* const camera : cameras) {
        camera->stop();
    }
}

void Open_cameras::forget() {
    calls.forget();
    for (Camera* const camera : cameras) {
        camera->forget();
    }
}

py::list list_cameras(std::shared_ptr<Open_cameras> const& all) {
    std::vector<polarization::Camera_description> cameras;
    {
        Calls_under_way::Unlocked const unlocked{all->calls};
        cameras = polarization::list_cameras();
    }
    py::list result;
    for (polarization::Camera_description const& camera : cameras) {
        result.append(as_tuple(camera));
    }
    return result;
}

std::unique_ptr<Camera> open_camera(
    std::shared_ptr<Open_cameras> const& all, std::string const& id,
    std::string const& pixel_format, std::optional<double> exposure_us, std::optional<double> gain,
    std::optional<double> frame_rate, std::optional<Rows_first> const& region,
    std::optional<std::size_t> frames, std::optional<double> seconds, std::string const& drop,
    std::size_t waiting_frames, double reconnect_seconds, bool packet_socket) {
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
    return std::make_unique<Camera>(std::move(options), all);
}

/// A function for Python, to which `all` is given behind the scenes.
template <class Result, class... Arguments>
auto bound(
    Result (*function)(std::shared_ptr<Open_cameras> const&, Arguments...),
    std::shared_ptr<Open_cameras> const& all) {
    return [function, all](Arguments... arguments) {
        return function(all, std::forward<Arguments>(arguments)...);
    };
}

} // namespace
} // namespace veldrane_python

PYBIND11_MODULE(_native_cameras, module) {
    namespace py = pybind11;
    using veldrane_python::bound;
    using veldrane_python::Camera;
    module.doc() = "What the package veldrane_polarization does with cameras in C++.";
    py::register_local_exception_translator(&veldrane_python::translate_camera_error);
    veldrane_python::bound_class<Camera>(module, "Native_camera")
        .def("next", &Camera::next)
        .def("stop", &Camera::stop)
        .def("counts", &Camera::counts)
        .def("description", &Camera::description)
        .def("settings", &Camera::settings);

    auto const all = std::make_shared<veldrane_python::Open_cameras>();
    py::module_::import("atexit").attr("register")(py::cpp_function([all] { all->end(); }));
    py::module_::import("os").attr("register_at_fork")(
        py::arg("after_in_child") = py::cpp_function([all] { all->forget(); }));
    module.def("list_cameras", bound(&veldrane_python::list_cameras, all));
    module.def("open_camera", bound(&veldrane_python::open_camera, all));
}
