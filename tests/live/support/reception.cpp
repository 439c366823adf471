#include "reception.hpp"

#include <arv.h>
#include <stdexcept>

namespace reception {
namespace {

constexpr guint64 longest_wait = 1000000; // microseconds
constexpr int buffers = 16;
constexpr int socket_bytes = 1 << 20;

struct Unreference {
    void operator()(void* object) const { g_object_unref(object); }
};
template <class Object>
using Owned = std::unique_ptr<Object, Unreference>;

void require(GError* error) {
    if (error != nullptr) {
        std::string const text = error->message;
        g_error_free(error);
        throw std::runtime_error(text);
    }
}

void set_up(ArvCamera* camera, Wish const& wish) {
    GError* error = nullptr;
    // To root a packet socket is open, which sees nothing of 127.0.0.1.
    arv_camera_gv_set_stream_options(camera, ARV_GV_STREAM_OPTION_PACKET_SOCKET_DISABLED);
    arv_camera_gv_set_packet_size(camera, static_cast<gint>(wish.packet_size), &error);
    require(error);
    if (!wish.pixel_format.empty()) {
        arv_camera_set_pixel_format_from_string(camera, wish.pixel_format.c_str(), &error);
        require(error);
    }
    if (wish.region.width > 0) {
        arv_camera_set_region(
            camera, static_cast<gint>(wish.region.column), static_cast<gint>(wish.region.row),
            static_cast<gint>(wish.region.width), static_cast<gint>(wish.region.height), &error);
        require(error);
    }
}

Received received(ArvBuffer* buffer, std::string const& pixel_format) {
    Received result;
    result.is_complete = arv_buffer_get_status(buffer) == ARV_BUFFER_STATUS_SUCCESS;
    result.number = arv_buffer_get_frame_id(buffer);
    if (result.is_complete) {
        result.nanoseconds = arv_buffer_get_timestamp(buffer);
        gint column = 0;
        gint row = 0;
        gint width = 0;
        gint height = 0;
        arv_buffer_get_image_region(buffer, &column, &row, &width, &height);
        result.region = {
            static_cast<std::size_t>(column), static_cast<std::size_t>(row),
            static_cast<std::size_t>(width), static_cast<std::size_t>(height)};
        result.pixel_format = pixel_format;
        std::size_t size = 0;
        auto const* const data = static_cast<std::byte const*>(arv_buffer_get_data(buffer, &size));
        result.data.assign(data, data + size);
    }
    return result;
}

} // namespace

std::vector<Received> receive(std::string const& id, Wish const& wish) {
    GError* error = nullptr;
    Owned<ArvCamera> const camera(arv_camera_new(id.c_str(), &error));
    require(error);
    set_up(camera.get(), wish);
    std::string const format = arv_camera_get_pixel_format_as_string(camera.get(), &error);
    require(error);
    guint const payload = arv_camera_get_payload(camera.get(), &error);
    require(error);
    Owned<ArvStream> const stream(arv_camera_create_stream(camera.get(), nullptr, nullptr, &error));
    require(error);
    // Automatic, it would have room for a single frame.
    g_object_set(
        stream.get(), "socket-buffer", ARV_GV_STREAM_SOCKET_BUFFER_FIXED, "socket-buffer-size",
        socket_bytes, nullptr);
    for (int number = 0; number < buffers; ++number) {
        arv_stream_push_buffer(stream.get(), arv_buffer_new(payload, nullptr));
    }
    arv_camera_start_acquisition(camera.get(), &error);
    require(error);
    std::vector<Received> frames;
    while (frames.size() < wish.frames) {
        ArvBuffer* const buffer = arv_stream_timeout_pop_buffer(stream.get(), longest_wait);
        if (buffer == nullptr) {
            break;
        }
        frames.push_back(received(buffer, format));
        arv_stream_push_buffer(stream.get(), buffer);
    }
    arv_camera_stop_acquisition(camera.get(), &error);
    require(error);
    return frames;
}

} // namespace reception
