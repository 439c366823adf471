#include "veldrane_mrv/polarization/camera.hpp"

#include "camera_setup.hpp"
#include "camera_stream.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

#include <optional>
#include <utility>

namespace veldrane_mrv::polarization {
namespace {

class Running_camera : public Camera_source {
public:
    Running_camera(aravis::Ready_camera camera, Camera_options const& options)
        : Camera_source(camera.layout, options, camera.description, camera.settings),
          camera_{std::move(camera)}, options_{options} {
        if (options.sends_at_once) {
            send();
        }
    }
    ~Running_camera() override {
        feed().close(); // for a stream that waits for room
    }
    Running_camera(Running_camera const&) = delete;
    Running_camera& operator=(Running_camera const&) = delete;

private:
    void send() { stream_.emplace(std::move(camera_), options_, feed()); }
    void begin_receiving() override {
        if (!stream_) {
            send();
        }
    }
    void stop_receiving() override {
        if (stream_) {
            stream_->stop();
        }
    }

    aravis::Ready_camera camera_; // until it sends
    Camera_options options_;
    std::optional<aravis::Camera_stream> stream_;
};

} // namespace

std::unique_ptr<Camera_source> open_camera(Camera_options const& options) {
    constexpr double longest_wait = 1e6;
    if (!(options.reconnect_seconds >= 0 && options.reconnect_seconds <= longest_wait)) {
        throw Argument_error(
            "time to wait for a camera in seconds", std::to_string(options.reconnect_seconds),
            "give 0 to 1000000");
    }
    return std::make_unique<Running_camera>(aravis::ready_camera(options), options);
}

} // namespace veldrane_mrv::polarization
