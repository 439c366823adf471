#include "buffers.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

#include <algorithm>
#include <string>

namespace veldrane_mrv::polarization {
namespace {

std::string title_of(std::string_view buffer) {
    return buffer.empty() ? "the frame" : "the plane " + std::string{buffer};
}

} // namespace

template <class Element>
void check_plane(std::string_view name, std::span<Element> plane, std::size_t elements_needed) {
    if (plane.empty()) {
        return;
    }
    std::string const argument = title_of(name);
    if (plane.data() == nullptr) {
        throw Argument_error{argument, "null", "give its memory, or an empty span for none"};
    }
    if (plane.size() != elements_needed) {
        throw Argument_error{
            argument, std::to_string(plane.size()) + " elements long",
            "give " + std::to_string(elements_needed) + " elements, as the frame needs"};
    }
    if (reinterpret_cast<std::uintptr_t>(plane.data()) % alignof(Element) != 0) {
        throw Argument_error{
            argument, "at an unaligned address",
            "give an address that is a multiple of " + std::to_string(alignof(Element))};
    }
}

template void check_plane(std::string_view, std::span<std::uint16_t>, std::size_t);
template void check_plane(std::string_view, std::span<std::int32_t>, std::size_t);
template void check_plane(std::string_view, std::span<float>, std::size_t);
template void check_plane(std::string_view, std::span<std::uint8_t>, std::size_t);

std::vector<Buffer> buffers_of(Frame_view const& frame, Plane_views const& planes) {
    std::vector<Buffer> buffers{{"", frame.samples()}};
    buffers.reserve(1 + every_plane.size());
    for_each_plane(
        [&](Plane plane, auto elements) { buffers.emplace_back(name_of(plane), elements); },
        planes);
    return buffers;
}

void check_overlap(std::vector<Buffer> buffers) {
    std::erase_if(buffers, [](Buffer const& buffer) { return buffer.bytes == 0; });
    std::ranges::sort(buffers, {}, &Buffer::begin);
    for (std::size_t next = 1; next < buffers.size(); ++next) {
        Buffer const& lower = buffers[next - 1];
        Buffer const& upper = buffers[next];
        if (upper.begin - lower.begin < lower.bytes) {
            throw Argument_error{
                title_of(upper.name), "in the same memory as " + title_of(lower.name),
                "give every buffer memory of its own"};
        }
    }
}

} // namespace veldrane_mrv::polarization
