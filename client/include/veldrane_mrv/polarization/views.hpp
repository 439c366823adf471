/// @file
/// Frames and planes as views whose invariants hold from their construction on, and planes that own
/// their memory.
///
/// Everything is row-major and densely packed: the pixel in row r and column c of a frame of width
/// w is element r * w + c, or begins at element n * (r * w + c) of a plane of n numbers a pixel.
#pragma once

#include "veldrane_mrv/polarization/geometry.hpp"
#include "veldrane_mrv/polarization/planes.hpp"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace veldrane_mrv::polarization {

/// A raw frame: height * width samples in host byte order, owned by somebody else.
///
/// Invariants: at least one row and one column, a count of samples that fits the address space,
/// samples not null, at an even address, and as many as height * width. That a frame is large
/// enough for the processor is for `transform` to check.
class Frame_view {
public:
    /// @throws Argument_error if an invariant would not hold
    Frame_view(std::span<std::uint16_t const> samples, std::size_t height, std::size_t width);

    /// For samples without a known count; there must be height * width of them.
    /// @throws Argument_error if an invariant would not hold
    Frame_view(std::uint16_t const* samples, std::size_t height, std::size_t width);

    std::span<std::uint16_t const> samples() const { return {samples_, height_ * width_}; }
    std::uint16_t const* data() const { return samples_; }
    std::size_t height() const { return height_; }
    std::size_t width() const { return width_; }
    Size size() const { return {width_, height_}; }
    std::size_t pixels() const { return height_ * width_; }

    std::span<std::uint16_t const> row(std::size_t row) const {
        return {samples_ + row * width_, width_};
    }
    std::uint16_t operator()(std::size_t row, std::size_t column) const {
        return samples_[row * width_ + column];
    }

private:
    std::uint16_t const* samples_;
    std::size_t height_;
    std::size_t width_;
};

/// Where results go. An empty span says that the plane is not wanted; the others have exactly
/// height * width * `elements_per_pixel` elements, which `transform` checks.
struct Plane_views {
    std::span<std::uint16_t> s0{};
    std::span<std::uint16_t> s1{};
    std::span<std::uint16_t> s2{};
    std::span<std::uint16_t> azimuth{};
    std::span<std::uint16_t> dolp{};
    std::span<float> normalized_stokes{};
    std::span<std::uint8_t> validity{};
    std::span<float> uncertainty{};

    /// Any of the five 16-bit planes.
    /// @throws Argument_error for another one
    std::span<std::uint16_t>& integer_plane(Plane plane);
    std::span<std::uint16_t> integer_plane(Plane plane) const;

    /// The planes whose span is not empty.
    Plane_set wanted() const;
};

/// Where signed S1 and S2 go; an empty span says that one is not wanted.
struct Signed_views {
    std::span<std::int32_t> s1{};
    std::span<std::int32_t> s2{};

    bool empty() const { return s1.empty() && s2.empty(); }
};

/// Memory for a chosen set of planes of one frame. Can be used for one frame after another.
class Planes {
public:
    /// Planes of integers start as zeros, planes of floats as NaNs.
    /// @throws Argument_error if height or width is 0 or the planes do not fit the address space
    Planes(std::size_t height, std::size_t width, Plane_set wanted);

    std::size_t height() const { return height_; }
    std::size_t width() const { return width_; }
    Size size() const { return {width_, height_}; }
    Plane_set wanted() const { return wanted_; }

    /// Views into this object, valid until it is moved from or dies.
    Plane_views views();

    /// One of the five 16-bit planes, empty if it was not chosen.
    /// @throws Argument_error for another one
    std::span<std::uint16_t const> integer_plane(Plane plane) const;
    /// `action` with the elements of any plane as a span of constants, empty if it was not chosen.
    template <class Action>
    decltype(auto) visit(Plane plane, Action&& action) const {
        return visit_plane(
            plane,
            [&](auto, auto const& elements) -> decltype(auto) {
                return action(std::span{elements});
            },
            memory_);
    }

    std::span<float const> normalized_stokes() const { return memory_.normalized_stokes; }

private:
    std::size_t height_;
    std::size_t width_;
    Plane_set wanted_;
    Per_plane<std::vector> memory_;
};

} // namespace veldrane_mrv::polarization
