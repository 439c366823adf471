/// @file
/// Frame after frame from whatever memory it lies in to a plane or a picture in whatever memory
/// there is for it.
#pragma once

#include "conversion_settings.hpp"
#include "veldrane_mrv/polarization/frame_transform.hpp"
#include "veldrane_mrv/polarization/pictures.hpp"
#include "veldrane_mrv/polarization/scale.hpp"
#include "veldrane_mrv/polarization/views.hpp"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace polarization_element {

/// Rows that begin `stride` bytes apart, at any address and with anything between them.
template <class Byte>
struct Rows {
    Byte* first;
    std::ptrdiff_t stride;

    Byte* operator[](std::size_t row) const {
        return first + static_cast<std::ptrdiff_t>(row) * stride;
    }
};

/// Can be moved; for one caller at a time. Takes its memory at the start: for pictures up to five
/// bytes a pixel, for a plane two, which stay untouched where frames have room for it without
/// padding.
class Frame_conversion {
public:
    /// @param calibration as for `transform_choice`
    /// @throws Argument_error as `transform_choice`, and if there can be no frame of this size,
    /// with
    ///         these options or at all
    Frame_conversion(
        Options const& options, std::shared_ptr<polarization::Calibration const> const& calibration,
        polarization::Size const& size, Samples samples);

    Output output() const { return output_; }
    polarization::Size size() const { return planes_.size(); }
    polarization::Scale const& scale() const { return transform_.settings().scale; }
    /// In the last frame, above those of the bit depth; 0 if there is none.
    unsigned largest_excess() const { return largest_excess_; }

    /// Samples of 16 bits have the lower byte first. So does a plane; a picture has four bytes a
    /// pixel: blue, green, red, 255. Bytes between the rows of `target` are left alone.
    void operator()(Rows<std::byte const> const& frame, Rows<std::byte> const& target);

private:
    void store_plane(Rows<std::byte> const& target);
    void draw_picture(Rows<std::byte> const& target);

    Output output_;
    Samples samples_;
    polarization::Frame_transform transform_;
    polarization::Planes planes_;
    unsigned largest_excess_ = 0;
    /// Of one row of a picture.
    std::vector<polarization::Colour> colours_;
    /// Of each S0, for its picture.
    std::vector<std::uint8_t> levels_;
};

} // namespace polarization_element
