#include "raw_frames.hpp"

#include <string>

namespace veldrane_python {
namespace {

namespace py = pybind11;

constexpr std::ptrdiff_t bytes_per_wide_sample = sizeof(std::uint16_t);

} // namespace

Raw_frames::Raw_frames(py::array const& raw) : data_{static_cast<std::byte const*>(raw.data())} {
    is_wide_ = py::isinstance<py::array_t<std::uint16_t>>(raw);
    if (!is_wide_ && !py::isinstance<py::array_t<std::uint8_t>>(raw)) {
        throw py::type_error{"raw must hold uint8 or uint16 in host byte order"};
    }
    py::ssize_t const dimensions = raw.ndim();
    if (dimensions != 2 && dimensions != 3) {
        throw py::value_error{"raw must have the shape (H, W) or (N, H, W)"};
    }
    if (dimensions == 3) {
        count_ = static_cast<std::size_t>(raw.shape(0));
        frame_stride_ = raw.strides(0);
    }
    height_ = static_cast<std::size_t>(raw.shape(dimensions - 2));
    width_ = static_cast<std::size_t>(raw.shape(dimensions - 1));
    row_stride_ = raw.strides(dimensions - 2);
    column_stride_ = raw.strides(dimensions - 1);
}

veldrane_mrv::polarization::Frame_view Raw_frames::frame(
    std::size_t index, std::vector<std::uint16_t>& memory) const {
    std::byte const* const first = data_ + static_cast<std::ptrdiff_t>(index) * frame_stride_;
    bool const is_aligned = reinterpret_cast<std::uintptr_t>(first) % alignof(std::uint16_t) == 0;
    bool const is_dense = column_stride_ == bytes_per_wide_sample &&
                          row_stride_ == static_cast<std::ptrdiff_t>(width_) * column_stride_;
    if (is_wide_ && is_aligned && is_dense) {
        return {reinterpret_cast<std::uint16_t const*>(first), height_, width_};
    }
    if (is_wide_) {
        gather<std::uint16_t>(first, memory);
    } else {
        gather<std::uint8_t>(first, memory);
    }
    return {memory, height_, width_};
}

template <class Sample>
void Raw_frames::gather(std::byte const* frame, std::vector<std::uint16_t>& memory) const {
    memory.resize(height_ * width_);
    std::uint16_t* target = memory.data();
    for (std::size_t row = 0; row < height_; ++row) {
        std::byte const* source = frame + static_cast<std::ptrdiff_t>(row) * row_stride_;
        // A distance that is known to the compiler lets it move vectors.
        bool const adjoins = column_stride_ == static_cast<std::ptrdiff_t>(sizeof(Sample));
        for (std::size_t column = 0; column < width_; ++column) {
            Sample sample;
            std::memcpy(&sample, source, sizeof sample);
            *target++ = sample;
            source += adjoins ? static_cast<std::ptrdiff_t>(sizeof(Sample)) : column_stride_;
        }
    }
}

} // namespace veldrane_python
