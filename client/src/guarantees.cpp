#include "guarantees.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/processor.hpp"

#include <algorithm>
#include <string>

namespace veldrane_mrv::polarization {
namespace {

std::string title_of(std::string_view buffer) {
    return buffer.empty() ? "the frame" : "the plane " + std::string{buffer};
}

} // namespace

void check_frame_size(Frame_view const& frame) {
    if (frame.height() < 2) {
        throw Argument_error{
            "the height of the frame", std::to_string(frame.height()),
            "give a frame of at least 2 rows"};
    }
    if (frame.width() < 2 || (frame.width() < 16 && frame.height() != 2)) {
        throw Argument_error{
            "the width of the frame", std::to_string(frame.width()),
            "give a frame of at least 16 columns, or of at least 2 if it has exactly 2 rows"};
    }
}

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

void check_call(Frame_view const& frame, Settings const& settings, Plane_views const& planes) {
    check_frame_size(frame);
    for_each_plane(
        [&](Plane plane, auto elements) {
            check_plane(name_of(plane), elements, elements_per_pixel(plane) * frame.pixels());
        },
        planes);
    check_overlap(buffers_of(frame, planes));
    check(settings.matrices);
    check(processor_features());
}

void call_processor(Frame_view const& frame, Settings const& settings, Plane_views const& planes) {
    // An empty span may have an address, which the processor would take for a request.
    auto const request = [](auto plane) { return plane.empty() ? nullptr : plane.data(); };
    Polarization_computation_arguments const arguments{
        .height = frame.height(),
        .width = frame.width(),
        .polar_phase = settings.mosaic.phase(),
        .raw_image = frame.data(),
        .bit_depth = settings.scale.bit_depth(),
        .maximum_input_value = settings.scale.maximum_input_value(),
        .maximum_output_value = settings.scale.maximum_output_value(),
        .maximum_output_value_integer = settings.scale.maximum_output_value_integer(),
        .normalized_stokes_image = request(planes.normalized_stokes),
        .s0_image = request(planes.s0),
        .s1_image = request(planes.s1),
        .s2_image = request(planes.s2),
        .azimuth_image = request(planes.azimuth),
        .dolp_image = request(planes.dolp),
    };
    qn_polarization_processor_transform_vector_avx2(arguments, settings.matrices.references());
}

} // namespace veldrane_mrv::polarization
