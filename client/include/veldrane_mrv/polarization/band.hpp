/// @file
/// A frame in pieces: rows that are computed together, and rows that are made when they are needed.
#pragma once

#include "veldrane_mrv/polarization/views.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>

namespace veldrane_mrv::polarization {

/// Neighbouring rows of a frame. A pixel depends on its own row and the one below, or above where
/// the frame ends, so what a band gives is, bit for bit, what the frame gives there.
struct Band {
    /// Its rows and, unless the frame ends with it, the row below.
    Frame_view samples;
    /// Its first row in the frame, an even number.
    std::size_t first;
    /// How many it has, at least 2; an even number unless the frame ends with it.
    std::size_t rows;
    /// Of the frame.
    std::size_t height;

    bool ends_frame() const { return first + rows == height; }
};

/// All rows of a frame.
inline Band whole(Frame_view const& frame) {
    return {frame, 0, frame.height(), frame.height()};
}

/// A raw frame whose samples are made when they are needed, a few rows at a time, so that they
/// never leave the caches: unpacked, shifted, cut out of something larger.
struct Frame_rows {
    std::size_t height;
    std::size_t width;
    /// Puts the rows from `begin` to `end` - 1 densely into `target`. Called for rows in any order,
    /// for a few of them twice, and by several threads at once if the transform has several.
    std::function<void(std::size_t begin, std::size_t end, std::uint16_t* target)> fill;
};

} // namespace veldrane_mrv::polarization
