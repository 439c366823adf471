/// @file
/// What a sensor gives without light, and taking it off.
///
/// A dark level left in the samples acts as unpolarised light: it lowers every degree of
/// polarisation by its share of S0, and angles where it differs between the four positions.
///
/// Levels are kept in whole sample units, since samples are whole: the rounding leaves an error of
/// at most half a unit in each pixel, which differs from pixel to pixel. Differences below 0 become
/// 0. Where noise reaches below the dark level this lifts the mean of the samples, by up to 0.4
/// times the noise's standard deviation in a pixel without light and by less than 0.001 times it
/// from three standard deviations above dark on; S0 of dark parts comes out too large by twice
/// that, and their degree too small.
#pragma once

#include "veldrane_mrv/polarization/views.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace veldrane_mrv::polarization {

/// A dark level for each pixel.
class Dark_frame {
public:
    /// The mean of the frames, rounded to nearest with halves up.
    /// @throws Argument_error if there is no frame or sizes differ
    explicit Dark_frame(std::span<Frame_view const> frames);

    /// The same level for all pixels of a position in the cell, indexed by `cell_position`, such as
    /// from a calibration.
    /// @throws Argument_error unless levels are 0 to 65535 and height and width above 0
    Dark_frame(std::size_t height, std::size_t width, std::array<double, 4> const& levels);

    std::size_t height() const { return height_; }
    std::size_t width() const { return width_; }
    Size size() const { return {width_, height_}; }
    std::span<std::uint16_t const> levels() const { return levels_; }

    /// Mean level of each position in the cell.
    std::array<double, 4> means() const;

private:
    friend class Dark_frame_average;
    Dark_frame(std::vector<std::uint16_t> levels, std::size_t height, std::size_t width);

    std::size_t height_;
    std::size_t width_;
    std::vector<std::uint16_t> levels_;
};

/// The same mean of frames that come one by one.
class Dark_frame_average {
public:
    /// @throws Argument_error if the size differs from that of the first frame, or after 65537
    /// frames
    void add(Frame_view const& frame);

    std::size_t frame_count() const { return frame_count_; }

    /// @throws Argument_error if there is no frame
    Dark_frame result() const;

    /// The mean of every pixel, not rounded, as a calibration of single pixels takes it.
    /// @throws Argument_error if there is no frame
    std::vector<float> means() const;

private:
    void require_frames() const;

    std::size_t height_ = 0;
    std::size_t width_ = 0;
    std::size_t frame_count_ = 0;
    std::vector<std::uint32_t> sums_;
};

/// Fills `result` with the samples less the dark levels, at least 0. `result` may be the frame's
/// own memory, but must not overlap it otherwise.
/// @throws Argument_error if sizes differ or the buffers overlap in part; nothing has been written
void subtract(Frame_view const& frame, Dark_frame const& dark, std::span<std::uint16_t> result);

/// Takes the dark levels off samples of a row, in place.
/// @param row their row in the dark frame, `column` their first column; and `samples`: all inside
void subtract_from_row(
    std::span<std::uint16_t> samples, Dark_frame const& dark, std::size_t row, std::size_t column);

} // namespace veldrane_mrv::polarization
