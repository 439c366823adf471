/// @file
/// A NumPy array of raw frames, whatever its memory order.
#pragma once

#include "veldrane_mrv/polarization/views.hpp"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <pybind11/numpy.h>
#include <vector>

namespace veldrane_python {

/// Frames of 8 or 16 bits. Dense frames of 16 bits are used where they lie; others are widened or
/// gathered one at a time, so that memory grows by one frame a thread. Holds no reference: the
/// array must outlive it. Made with the interpreter's lock, used without.
class Raw_frames {
public:
    /// @throws pybind11::type_error unless samples are uint8 or uint16 in host byte order
    /// @throws pybind11::value_error unless the array has two or three dimensions
    explicit Raw_frames(pybind11::array const& raw);

    std::size_t count() const { return count_; }
    std::size_t height() const { return height_; }
    std::size_t width() const { return width_; }

    /// A frame, in `memory` unless it can be used where it lies.
    veldrane_mrv::polarization::Frame_view frame(
        std::size_t index, std::vector<std::uint16_t>& memory) const;

private:
    template <class Sample>
    void gather(std::byte const* frame, std::vector<std::uint16_t>& memory) const;

    std::byte const* data_;
    std::ptrdiff_t frame_stride_ = 0;
    std::ptrdiff_t row_stride_;
    std::ptrdiff_t column_stride_;
    std::size_t count_ = 1;
    std::size_t height_;
    std::size_t width_;
    bool is_wide_;
};

} // namespace veldrane_python
