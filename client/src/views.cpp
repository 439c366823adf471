#include "veldrane_mrv/polarization/views.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

#include <cstddef>
#include <limits>
#include <string>
#include <type_traits>

namespace veldrane_mrv::polarization {
namespace {

// Three floats a pixel is the most that any buffer takes; differences of pointers have to fit as
// well.
constexpr std::size_t most_pixels =
    static_cast<std::size_t>(std::numeric_limits<std::ptrdiff_t>::max()) / (3 * sizeof(float));

void check_size(std::size_t height, std::size_t width) {
    if (height == 0) {
        throw Argument_error{"height", "0", "give a frame of at least one row"};
    }
    if (width == 0) {
        throw Argument_error{"width", "0", "give a frame of at least one column"};
    }
    if (width > most_pixels / height) {
        throw Argument_error{
            "the size of the frame", to_string(Size{width, height}),
            "give a frame whose planes fit the address space"};
    }
}

void check_address(std::uint16_t const* samples) {
    if (samples == nullptr) {
        throw Argument_error{"the pointer to the samples", "null", "give a frame's samples"};
    }
    if (reinterpret_cast<std::uintptr_t>(samples) % alignof(std::uint16_t) != 0) {
        throw Argument_error{
            "the address of the samples", "odd", "give samples at an even address"};
    }
}

template <class Set>
auto& integer_member(Set& set, Plane plane) {
    using Member = std::remove_reference_t<decltype((set.s0))>;
    auto const address = []<class Any>(Plane, Any& member) -> Member* {
        if constexpr (std::is_same_v<Any, Member>) {
            return &member;
        } else {
            return nullptr;
        }
    };
    Member* const member = visit_plane(plane, address, set);
    if (member == nullptr) {
        throw Argument_error{
            "the plane", std::string{name_of(plane)}, "ask for one of the five 16-bit planes"};
    }
    return *member;
}

} // namespace

Frame_view::Frame_view(
    std::span<std::uint16_t const> samples, std::size_t height, std::size_t width)
    : Frame_view{samples.data(), height, width} {
    if (samples.size() != height * width) {
        throw Argument_error{
            "the count of samples", std::to_string(samples.size()),
            "give " + std::to_string(height * width) + ", the product of height " +
                std::to_string(height) + " and width " + std::to_string(width)};
    }
}

Frame_view::Frame_view(std::uint16_t const* samples, std::size_t height, std::size_t width)
    : samples_{samples}, height_{height}, width_{width} {
    check_size(height, width);
    check_address(samples);
}

std::span<std::uint16_t>& Plane_views::integer_plane(Plane plane) {
    return integer_member(*this, plane);
}

std::span<std::uint16_t> Plane_views::integer_plane(Plane plane) const {
    return integer_member(*this, plane);
}

Plane_set Plane_views::wanted() const {
    Plane_set set;
    for_each_plane(
        [&](Plane plane, auto elements) {
            if (!elements.empty()) {
                set.insert(plane);
            }
        },
        *this);
    return set;
}

Planes::Planes(std::size_t height, std::size_t width, Plane_set wanted)
    : height_{height}, width_{width}, wanted_{wanted} {
    check_size(height, width);
    for_each_plane(
        [&]<class Element>(auto plane, std::vector<Element>& elements) {
            static_assert(element_type_of<Element> == description_of(plane).element);
            if (wanted.contains(plane)) {
                // That of an integer is 0.
                elements.assign(
                    elements_per_pixel(plane) * height * width,
                    std::numeric_limits<Element>::quiet_NaN());
            }
        },
        memory_);
}

Plane_views Planes::views() {
    Plane_views views;
    for_each_plane([](Plane, auto& view, auto& elements) { view = elements; }, views, memory_);
    return views;
}

std::span<std::uint16_t const> Planes::integer_plane(Plane plane) const {
    return integer_member(memory_, plane);
}

} // namespace veldrane_mrv::polarization
