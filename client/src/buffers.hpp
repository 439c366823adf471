/// @file
/// The memory that a call reads or writes, and what is asked of it.
#pragma once

#include "veldrane_mrv/polarization/views.hpp"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace veldrane_mrv::polarization {

struct Buffer {
    /// Of a plane; empty for the frame.
    std::string_view name;
    std::uintptr_t begin;
    std::size_t bytes;

    template <class Element>
    Buffer(std::string_view buffer_name, std::span<Element> elements)
        : name{buffer_name}, begin{reinterpret_cast<std::uintptr_t>(elements.data())},
          bytes{elements.size_bytes()} {}
};

/// The plane's size and address. Does nothing if it is not wanted.
template <class Element>
void check_plane(std::string_view name, std::span<Element> plane, std::size_t elements_needed);

extern template void check_plane(std::string_view, std::span<std::uint16_t>, std::size_t);
extern template void check_plane(std::string_view, std::span<std::int32_t>, std::size_t);
extern template void check_plane(std::string_view, std::span<float>, std::size_t);
extern template void check_plane(std::string_view, std::span<std::uint8_t>, std::size_t);

/// The frame and the planes, also those of size 0.
std::vector<Buffer> buffers_of(Frame_view const& frame, Plane_views const& planes);

void check_overlap(std::vector<Buffer> buffers);

} // namespace veldrane_mrv::polarization
