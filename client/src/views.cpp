#include "veldrane_mrv/polarization/views.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

#include <cstddef>
#include <limits>
#include <string>

namespace veldrane_mrv::polarization {
namespace {

// Two floats a pixel is the most that any buffer takes; differences of pointers have to fit as
// well.
constexpr std::size_t most_pixels =
    static_cast<std::size_t>(std::numeric_limits<std::ptrdiff_t>::max()) / (2 * sizeof(float));

void check_size(std::size_t height, std::size_t width) {
    if (height == 0) {
        throw Argument_error{"height", "0", "give a frame of at least one row"};
    }
    if (width == 0) {
        throw Argument_error{"width", "0", "give a frame of at least one column"};
    }
    if (width > most_pixels / height) {
        throw Argument_error{
            "the size of the frame", std::to_string(width) + " x " + std::to_string(height),
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

// Indices of the integer planes follow the enumerators.
template <class Views>
auto& member_of(Views& views, Plane plane) {
    switch (plane) {
    case Plane::s0:
        return views.s0;
    case Plane::s1:
        return views.s1;
    case Plane::s2:
        return views.s2;
    case Plane::azimuth:
        return views.azimuth;
    case Plane::dolp:
        return views.dolp;
    case Plane::normalized_stokes:
        break;
    }
    throw Argument_error{
        "the plane", std::string{name_of(plane)}, "ask for one of the five 16-bit planes"};
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
    return member_of(*this, plane);
}

std::span<std::uint16_t> Plane_views::integer_plane(Plane plane) const {
    return member_of(*this, plane);
}

Plane_set Plane_views::wanted() const {
    Plane_set set;
    for (Plane const plane : every_plane) {
        bool const is_wanted = plane == Plane::normalized_stokes ? !normalized_stokes.empty()
                                                                 : !integer_plane(plane).empty();
        if (is_wanted) {
            set.insert(plane);
        }
    }
    return set;
}

Planes::Planes(std::size_t height, std::size_t width, Plane_set wanted)
    : height_{height}, width_{width}, wanted_{wanted} {
    check_size(height, width);
    for (Plane const plane : wanted.list()) {
        if (plane == Plane::normalized_stokes) {
            normalized_stokes_.assign(2 * height * width, std::numeric_limits<float>::quiet_NaN());
        } else {
            integer_planes_[static_cast<std::size_t>(plane)].assign(height * width, 0);
        }
    }
}

Plane_views Planes::views() {
    return {integer_planes_[0], integer_planes_[1], integer_planes_[2],
            integer_planes_[3], integer_planes_[4], normalized_stokes_};
}

std::span<std::uint16_t const> Planes::integer_plane(Plane plane) const {
    if (plane == Plane::normalized_stokes) {
        throw Argument_error{
            "the plane", std::string{name_of(plane)}, "ask for one of the five 16-bit planes"};
    }
    return integer_planes_[static_cast<std::size_t>(plane)];
}

} // namespace veldrane_mrv::polarization
