#include "call_checks.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/guarantees.hpp"
#include "veldrane_mrv/polarization/processor.hpp"
#include "veldrane_mrv/polarization/sensor_tables.hpp"

#include <algorithm>
#include <cfenv>
#include <string>
#include <string_view>
#include <vector>

namespace veldrane_mrv::polarization {
namespace {

/// Memory that the call reads or writes.
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

std::string title_of(std::string_view buffer) {
    return buffer.empty() ? "the frame" : "the plane " + std::string{buffer};
}

void check_frame_size(Size const& frame) {
    if (can_be_processed(frame)) {
        return;
    }
    if (frame.height < 2) {
        throw Argument_error{
            "the height of the frame", std::to_string(frame.height),
            "give a frame of at least 2 rows"};
    }
    throw Argument_error{
        "the width of the frame", std::to_string(frame.width),
        "give a frame of at least 16 columns, or of at least 2 if it has exactly 2 rows"};
}

// The plane's size and address. Does nothing if it is not wanted.
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

void check_buffers(
    std::span<std::uint16_t const> samples, std::size_t pixels, Plane_views const& planes,
    Signed_views const& signed_planes) {
    std::vector<Buffer> buffers{{"", samples}};
    buffers.reserve(3 + every_plane.size());
    auto const add = [&](std::string_view name, auto elements, std::size_t elements_needed) {
        check_plane(name, elements, elements_needed);
        buffers.emplace_back(name, elements);
    };
    for_each_plane(
        [&](Plane plane, auto elements) {
            add(name_of(plane), elements, elements_per_pixel(plane) * pixels);
        },
        planes);
    add("signed s1", signed_planes.s1, pixels);
    add("signed s2", signed_planes.s2, pixels);
    check_overlap(std::move(buffers));
}

// Tables speak of every pixel, so only frames of their own size and depth have them.
void check_tables(Size const& frame, Settings const& settings) {
    if (!settings.tables) {
        return;
    }
    if (frame != settings.tables->size()) {
        throw Argument_error{
            "the size of the frame", to_string(frame),
            "give frames of the calibrated size, " + to_string(settings.tables->size())};
    }
    if (settings.scale.bit_depth() != settings.tables->bit_depth()) {
        throw Argument_error{
            "the bit depth", std::to_string(settings.scale.bit_depth()),
            "give that of the calibration, " + std::to_string(settings.tables->bit_depth())};
    }
}

// A sum that is exactly zero can round away from zero, and then does so in both halves.
void check_rounding_mode() {
    int const mode = std::fegetround();
    if (mode != FE_TONEAREST) {
        throw Argument_error{
            "the rounding mode", std::to_string(mode),
            "set rounding to nearest (FE_TONEAREST) for signed planes"};
    }
}

void check_band(Band const& band) {
    std::size_t const rows_below = band.ends_frame() ? 0 : 1;
    bool const is_band = band.first % 2 == 0 && band.rows >= 2 && band.first < band.height &&
                         band.rows <= band.height - band.first &&
                         (band.rows % 2 == 0 || band.ends_frame()) &&
                         band.samples.height() == band.rows + rows_below;
    if (!is_band) {
        throw Argument_error{
            "the band",
            std::to_string(band.rows) + " rows from row " + std::to_string(band.first) + " of " +
                std::to_string(band.height) + " on, with the samples of " +
                std::to_string(band.samples.height()),
            "give an even number of rows from an even one on, with the samples of the row below, "
            "or all that are left"};
    }
}

void check_parts(
    Size const& frame, std::span<std::uint16_t const> samples, std::size_t pixels,
    Settings const& settings, Plane_views const& planes, Signed_views const& signed_planes) {
    check_frame_size(frame);
    check_buffers(samples, pixels, planes, signed_planes);
    check(settings.matrices);
    check_tables(frame, settings);
    check(processor_features());
    if (!signed_planes.empty()) {
        check_rounding_mode();
    }
}

} // namespace

void check_call_of(
    Source const& source, Settings const& settings, Plane_views const& planes,
    Signed_views const& signed_planes) {
    check_parts(
        source.size, source.samples, source.size.height * source.size.width, settings, planes,
        signed_planes);
}

void check_band_call(
    Band const& band, Settings const& settings, Plane_views const& planes,
    Signed_views const& signed_planes) {
    check_band(band);
    std::size_t const width = band.samples.width();
    check_parts(
        {width, band.height}, band.samples.samples(), band.rows * width, settings, planes,
        signed_planes);
}

} // namespace veldrane_mrv::polarization
