#include "camera_stream.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <optional>
#include <system_error>
#include <utility>

namespace veldrane_mrv::polarization::aravis {
namespace {

constexpr guint64 patience_us = 50'000;
constexpr guint64 patience_for_room_us = 1'000;
constexpr std::size_t least_socket_bytes = 4U << 20U;
constexpr std::size_t most_socket_bytes = 256U << 20U;

Incomplete_cause cause_of(ArvBufferStatus status) {
    switch (status) {
    case ARV_BUFFER_STATUS_TIMEOUT:
        return Incomplete_cause::time_out;
    case ARV_BUFFER_STATUS_MISSING_PACKETS:
    case ARV_BUFFER_STATUS_WRONG_PACKET_ID:
        return Incomplete_cause::missing_packets;
    case ARV_BUFFER_STATUS_SIZE_MISMATCH:
        return Incomplete_cause::size_mismatch;
    default:
        return Incomplete_cause::other;
    }
}

bool is_loopback(GSocketAddress* address) {
    return G_IS_INET_SOCKET_ADDRESS(address) &&
           g_inet_address_get_is_loopback(
               g_inet_socket_address_get_address(G_INET_SOCKET_ADDRESS(address))) != FALSE;
}

// A packet socket on loopback receives nothing and says nothing about it. A camera on this machine
// may be found by way of another interface, though what it sends does not come that way.
bool is_on_loopback(ArvCamera* camera) {
    ArvGvDevice* const device = ARV_GV_DEVICE(arv_camera_get_device(camera));
    return is_loopback(arv_gv_device_get_device_address(device)) ||
           is_loopback(arv_gv_device_get_interface_address(device));
}

void choose_socket(ArvCamera* camera, bool may_use_packet_socket) {
    if (!may_use_packet_socket || is_on_loopback(camera)) {
        arv_camera_gv_set_stream_options(camera, ARV_GV_STREAM_OPTION_PACKET_SOCKET_DISABLED);
    }
}

void set_up_network(ArvCamera* camera, bool may_use_packet_socket) {
    if (arv_camera_is_gv_device(camera) == FALSE) {
        return;
    }
    choose_socket(camera, may_use_packet_socket);
    // The largest that get through, found by trial in some tenths of a second: each packet costs
    // the receiver an interruption.
    arv_camera_gv_set_packet_size_adjustment(camera, ARV_GV_PACKET_SIZE_ADJUSTMENT_ALWAYS);
}

// The system's default holds a fraction of a large frame, Aravis' automatic size less than one
// small frame, since the system counts about twice a packet's bytes. The system cuts off what it
// does not allow (net.core.rmem_max).
void widen_socket(ArvStream* stream, std::size_t frame_bytes) {
    if (ARV_IS_GV_STREAM(stream)) {
        auto const bytes = std::clamp(4 * frame_bytes, least_socket_bytes, most_socket_bytes);
        g_object_set(
            stream, "socket-buffer", ARV_GV_STREAM_SOCKET_BUFFER_FIXED, "socket-buffer-size",
            static_cast<gint>(bytes), nullptr);
    }
}

bool is_as_set_up(ArvBuffer* buffer, Ready_camera const& camera) {
    Size const size = camera.settings.region.size();
    return arv_buffer_get_payload_type(buffer) == ARV_BUFFER_PAYLOAD_TYPE_IMAGE &&
           arv_buffer_get_image_width(buffer) == static_cast<gint>(size.width) &&
           arv_buffer_get_image_height(buffer) == static_cast<gint>(size.height) &&
           arv_buffer_get_image_pixel_format(buffer) == camera.pixel_format;
}

} // namespace

Camera_stream::Camera_stream(Ready_camera camera, Camera_options options, Live_feed& feed)
    : ready_{std::move(camera)}, options_{std::move(options)}, feed_{feed} {
    try {
        start_sending();
    } catch (Failure const&) {
        let_go();
        throw File_failure(
            "camera " + ready_.description.id,
            "does not begin to send; check its cable, and whether another program uses it");
    }
    try {
        thread_ = std::thread([this] { receive(); });
    } catch (std::system_error const&) {
        stop_sending();
        let_go();
        throw File_failure(
            "camera " + ready_.description.id,
            "cannot be received from, since the system has no thread left; end other programs");
    }
}

Camera_stream::~Camera_stream() {
    stop();
    let_go();
}

void Camera_stream::stop() {
    is_stopping_ = true;
    if (thread_.joinable()) {
        thread_.join();
    }
}

void Camera_stream::note_loss(ArvDevice*, void* stream) {
    static_cast<Camera_stream*>(stream)->is_lost_ = true;
}

void Camera_stream::start_sending() {
    ArvCamera* const camera = ready_.camera.get();
    set_up_network(camera, options_.may_use_packet_socket);
    stream_.reset(call(arv_camera_create_stream, camera, ArvStreamCallback{}, gpointer{}));
    is_lost_ = false;
    loss_handler_ = g_signal_connect(
        arv_camera_get_device(camera), "control-lost", G_CALLBACK(&Camera_stream::note_loss), this);
    guint const payload = call(arv_camera_get_payload, camera);
    widen_socket(stream_.get(), payload);
    for (int i = 0; i < buffers; ++i) {
        arv_stream_push_buffer(stream_.get(), arv_buffer_new_allocate(payload));
    }
    call(arv_camera_start_acquisition, camera);
}

void Camera_stream::stop_sending() {
    if (ready_.camera && !is_lost_) {
        Error error; // of a camera that goes at this moment
        arv_camera_stop_acquisition(ready_.camera.get(), error.slot());
    }
}

void Camera_stream::let_go() {
    if (ready_.camera && loss_handler_ != 0) {
        g_signal_handler_disconnect(arv_camera_get_device(ready_.camera.get()), loss_handler_);
    }
    loss_handler_ = 0;
    for (Arrived_buffer const& arrived : arrived_) {
        g_object_unref(arrived.buffer);
    }
    arrived_.clear();
    stream_.reset(); // ends its thread, which uses the camera
    ready_.camera.reset();
}

// Null if none arrives, or in time.
ArvBuffer* Camera_stream::pop(bool waits) {
    // Those that arrive while the feed is full are taken at once, so that each is given its time.
    guint64 const patience = arrived_.empty() ? patience_us : patience_for_room_us;
    ArvBuffer* const buffer = waits ? arv_stream_timeout_pop_buffer(stream_.get(), patience)
                                    : arv_stream_try_pop_buffer(stream_.get());
    if (buffer != nullptr) {
        arrived_.push_back({buffer, std::chrono::steady_clock::now()});
    }
    return buffer;
}

// False once nobody takes frames.
bool Camera_stream::hand_on_first() {
    auto const [buffer, arrival] = arrived_.front();
    arrived_.pop_front();
    // Of a buffer that is not whole nothing but status and number may be asked.
    ArvBufferStatus const status = arv_buffer_get_status(buffer);
    std::uint64_t const number = arv_buffer_get_frame_id(buffer);
    bool goes_on = true;
    if (status != ARV_BUFFER_STATUS_SUCCESS) {
        feed_.note_incomplete(cause_of(status), number > 0 ? std::optional{number} : std::nullopt);
    } else if (!is_as_set_up(buffer, ready_)) {
        feed_.note_incomplete(Incomplete_cause::size_mismatch, number);
    } else {
        std::size_t size = 0;
        void const* const data = arv_buffer_get_image_data(buffer, &size);
        goes_on = feed_.give(
            {static_cast<char const*>(data), size},
            {number, arv_buffer_get_timestamp(buffer), arv_buffer_get_system_timestamp(buffer)},
            arrival);
    }
    // The number comes with the first packet: where that is missing, there would be one from
    // before.
    arv_buffer_set_frame_id(buffer, 0);
    arv_stream_push_buffer(stream_.get(), buffer);
    return goes_on;
}

bool Camera_stream::hand_on_what_fits() {
    while (!arrived_.empty() && !feed_.would_wait()) {
        if (!hand_on_first()) {
            return false;
        }
    }
    return true;
}

// What arrived whole before the camera stopped.
void Camera_stream::hand_on_rest() {
    while (pop(false) != nullptr) {
    }
    while (!arrived_.empty() && hand_on_first()) {
    }
}

// True if the camera went away.
bool Camera_stream::receive_until_loss() {
    while (!is_stopping_) {
        bool const is_there = pop(true) != nullptr;
        if (!hand_on_what_fits()) {
            return false;
        }
        if (!is_there && is_lost_ && arrived_.empty()) {
            return true;
        }
    }
    return false;
}

bool Camera_stream::find_again() {
    let_go();
    auto const end = std::chrono::steady_clock::now() +
                     std::chrono::milliseconds(std::llround(options_.reconnect_seconds * 1e3));
    Camera_options again = options_;
    again.id = ready_.description.id;
    while (!is_stopping_ && std::chrono::steady_clock::now() < end) {
        try {
            Ready_camera found = ready_camera(again);
            if (found.layout.frame_bytes() != ready_.layout.frame_bytes() ||
                found.settings.region != ready_.settings.region ||
                found.settings.pixel_format != ready_.settings.pixel_format) {
                return false;
            }
            ready_ = std::move(found);
            start_sending();
            feed_.note_reconnection();
            return true;
        } catch (std::exception const&) { // not yet
            let_go();
            std::this_thread::sleep_for(std::chrono::microseconds(patience_us));
        }
    }
    return false;
}

void Camera_stream::receive() {
    std::string failure;
    try {
        while (receive_until_loss()) {
            if (options_.reconnect_seconds > 0 && find_again()) {
                continue;
            }
            failure = options_.reconnect_seconds > 0
                          ? "went away and did not come back in time as it was; check its power "
                            "and its cable"
                          : "went away; check its power and its cable";
            break;
        }
        stop_sending();
        if (stream_) {
            hand_on_rest();
        }
    } catch (std::exception const&) { // memory
        failure = "cannot be received from any more, since memory is short; end other programs";
    }
    feed_.end(is_stopping_ ? std::string() : failure);
}

} // namespace veldrane_mrv::polarization::aravis
