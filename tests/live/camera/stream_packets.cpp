#include "stream_packets.hpp"

#include <span>

namespace simulated_camera {
namespace {

constexpr std::uint16_t image_payload = 1;

// Numbers go with the highest byte first.
class Writer {
public:
    explicit Writer(std::span<std::byte> packet) : packet_{packet} {}

    template <class Number>
    Writer& put(Number number) {
        for (std::size_t byte = sizeof(Number); byte-- > 0;) {
            packet_.front() = static_cast<std::byte>((number >> (8 * byte)) & 0xffU);
            packet_ = packet_.subspan(1);
        }
        return *this;
    }

    Writer& header(Image const& image, Content content, std::uint32_t packet) {
        std::uint16_t const success = 0;
        put(success).put(image.number);
        return put(static_cast<std::uint32_t>(content) << 24U | packet);
    }

private:
    std::span<std::byte> packet_;
};

std::uint32_t word(std::size_t number) {
    return static_cast<std::uint32_t>(number);
}

} // namespace

Header data_header(Image const& image, std::uint32_t packet) {
    Header bytes{};
    Writer(bytes).header(image, Content::data, packet);
    return bytes;
}

Leader leader_of(Image const& image) {
    Leader bytes{};
    std::uint16_t const flags = 0;
    Writer(bytes)
        .header(image, Content::leader, 0)
        .put(flags)
        .put(image_payload)
        .put(image.nanoseconds)
        .put(image.pixel_format)
        .put(word(image.region.width))
        .put(word(image.region.height))
        .put(word(image.region.column))
        .put(word(image.region.row));
    return bytes;
}

Trailer trailer_of(Image const& image, std::uint32_t packet) {
    Trailer bytes{};
    Writer(bytes)
        .header(image, Content::trailer, packet)
        .put(static_cast<std::uint32_t>(image_payload))
        .put(word(image.region.height));
    return bytes;
}

} // namespace simulated_camera
