/// @file
/// One frame through the polarisation processor, to the numbers that go into files.
#pragma once

#include "input/frame.hpp"
#include "output/array_writing.hpp"
#include "veldrane_mrv/polarization/frame_transform.hpp"
#include "veldrane_mrv/polarization/number_meaning.hpp"
#include "veldrane_mrv/polarization/planes.hpp"
#include "veldrane_mrv/polarization/units.hpp"
#include "veldrane_mrv/polarization/validity.hpp"

#include <array>
#include <optional>
#include <vector>

namespace polarize_tool {

using polarization::Units;

/// What all frames of a run have in common.
struct Processing {
    polarization::Settings settings =
        polarization::ideal_settings(polarization::Mosaic::from_phase(0), polarization::Scale(8));
    polarization::Mode mode = polarization::Mode::fast;
    polarization::Plane_set planes;
    bool is_signed = false;
    Units units = Units::scaled;
    unsigned repetitions = 1;
    /// That the weights are turned by, in degrees.
    double zero_direction = 0;
    /// That share each frame.
    unsigned threads = 1;

    /// Kind of the numbers in the file of a plane.
    polarization::Element_type kind_of(polarization::Plane plane) const;
    /// Whether `plane` holds S1 or S2 with its sign.
    bool holds_sign(polarization::Plane plane) const;
    /// Whether the numbers in its file are others than those of the processor.
    bool is_converted(polarization::Plane plane) const;
};

/// Transforms frame after frame. Memory is taken with the first frame and whenever the size of the
/// frames changes. For one thread.
class Frame_processor {
public:
    explicit Frame_processor(Processing const& processing);

    /// @param saturated of each sample whether it was at the full scale before its dark level was
    ///        subtracted, 0 or 1; empty if it was not
    /// @throws polarization::Argument_error if the frame cannot be transformed
    void run(Frame const& frame, std::span<std::uint8_t const> saturated);
    /// A frame whose rows are made on the way. Its time is not taken.
    void run(polarization::Frame_rows const& frame);
    /// Of the same frame, whether `validity` is among the planes or not.
    std::span<std::uint8_t const> validity(
        Frame const& frame, std::span<std::uint8_t const> saturated);

    /// Of the last frame: a plane as it goes into a file, valid until the next run.
    Array_view array(polarization::Plane plane) const;
    /// Azimuth or degree as the processor wrote it.
    std::span<std::uint16_t const> stored(polarization::Plane plane) const;
    /// Time of the transform alone, for each repetition.
    std::vector<double> const& milliseconds() const { return milliseconds_; }

private:
    void take_memory(std::size_t height, std::size_t width);
    template <class Source>
    void transform(Source const& source);
    void convert_planes();
    void convert(polarization::Plane plane, std::vector<float>& result);
    std::span<std::int32_t const> signed_elements(polarization::Plane plane) const;

    Processing processing_;
    polarization::Plane_set computed_;
    std::optional<polarization::Planes> planes_;
    std::optional<polarization::Signed_planes> signed_planes_;
    polarization::Frame_transform transform_;
    polarization::Validity_marker marker_;
    std::vector<std::uint8_t> marks_;
    std::array<std::vector<float>, polarization::every_plane.size()> converted_;
    std::vector<double> milliseconds_;
};

} // namespace polarize_tool
