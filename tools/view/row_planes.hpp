/// @file
/// Planes of some rows of a frame.
#pragma once

#include "input/frame.hpp"
#include "veldrane_mrv/polarization/frame_transform.hpp"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace polarize_tool {

/// A frame as the transform takes it, in the memory of another object.
struct Frame_samples {
    polarization::Frame_view view;
    /// As `Frame_preparation` notes it, or empty.
    std::span<std::uint8_t const> saturated;
};

/// Computes planes of as many rows as are needed, each with the bits that `process` writes. Keeps
/// its memory from call to call, some rows of the planes that were asked for. For one thread.
class Row_planes {
public:
    Row_planes(polarization::Settings const& settings, polarization::Mode mode);

    struct Wanted {
        /// Of s0, azimuth, dolp and validity.
        polarization::Plane_set planes;
        /// S1 and S2 with their signs.
        bool with_signs = false;
    };

    /// The rows from `begin` to `end` - 1.
    /// @throws polarization::Argument_error if the frame cannot be transformed
    void compute(
        Frame_samples const& frame, std::size_t begin, std::size_t end, Wanted const& wanted);

    /// One of the rows computed last; of a plane that was wanted.
    std::span<std::uint16_t const> row(polarization::Plane plane, std::size_t row) const;
    std::span<std::int32_t const> s1(std::size_t row) const { return row_of(s1_, row); }
    std::span<std::int32_t const> s2(std::size_t row) const { return row_of(s2_, row); }
    std::span<std::uint8_t const> validity(std::size_t row) const { return row_of(validity_, row); }

private:
    template <class Element>
    std::span<Element const> row_of(std::vector<Element> const& plane, std::size_t row) const {
        return std::span(plane).subspan((row - first_) * width_, width_);
    }

    polarization::Mode mode_;
    polarization::Frame_transform transform_;
    std::size_t first_ = 0;
    std::size_t width_ = 0;
    std::vector<std::uint16_t> s0_;
    std::vector<std::uint16_t> azimuth_;
    std::vector<std::uint16_t> dolp_;
    std::vector<std::int32_t> s1_;
    std::vector<std::int32_t> s2_;
    std::vector<std::uint8_t> validity_;
};

} // namespace polarize_tool
