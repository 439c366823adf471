/// @file
/// Calibration maps in the form in which a transform reads them.
#pragma once

#include "veldrane_mrv/polarization/calibration.hpp"
#include "veldrane_mrv/polarization/geometry.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace veldrane_mrv::polarization {

/// What the transform of frames of one size needs to know of every pixel. Immutable, shared by all
/// threads.
///
/// Samples are first corrected, in integers and so exactly: with f = 16 - bit depth fraction bits,
///
///   corrected = min(65535, (max(0, min(sample, largest sample) * 2^f - dark) * gain + 2^14) >> 15)
///
/// where dark has f fraction bits and gain 15, both rounded to 16 bits. A pixel whose gain is 2 or
/// more cannot be corrected; it is a bad one. Model `pixel` has gains of 1 and, for each pixel, a
/// matrix of its own: the pseudo-inverse for the four analysers of its quartet. Where a weight
/// differs from the position's by 1 or more, or there is none, the pixel is a bad one too and has
/// its position's weights.
class Sensor_tables {
public:
    /// @param calibration with maps
    /// @param region of the sensor that the frames show
    /// @param zero_direction as for `turned`
    /// @throws Argument_error if the calibration has no maps, if they are not what
    /// `Calibration_maps`
    ///         says, or if they do not cover the region
    Sensor_tables(Calibration const& calibration, Region const& region, double zero_direction = 0);

    Size size() const { return size_; }
    int bit_depth() const { return bit_depth_; }
    /// Of corrected samples.
    int fraction_bits() const { return 16 - bit_depth_; }
    Calibration_model model() const {
        return weights_.empty() ? Calibration_model::gain : Calibration_model::pixel;
    }

    /// A sample after the correction, with `fraction_bits`.
    std::uint16_t corrected(std::size_t row, std::size_t column, std::uint16_t sample) const;
    /// Whether the dark level, rounded as it is taken off, is above the sample.
    bool is_below_dark(std::size_t row, std::size_t column, std::uint16_t sample) const;
    bool is_bad(std::size_t row, std::size_t column) const;

    /// The weights of a pixel, to the last bit as the transform applies them; corrected samples
    /// count in units of 2^-f for it. Model `gain`: `position_matrices` by position.
    std::array<float, 16> matrix(std::size_t row, std::size_t column) const;
    Matrices const& position_matrices() const { return matrices_; }

    /// Row by row, each padded to `padded_width` numbers, which is a multiple of 16.
    std::span<std::uint16_t const> dark_levels() const { return dark_levels_; }
    /// The same; empty for model `pixel`.
    std::span<std::uint16_t const> gains() const { return gains_; }
    /// 1 for a bad pixel; row by row without padding.
    std::span<std::uint8_t const> bad_marks() const { return is_bad_; }
    /// Model `pixel`, else empty: of 16 columns after 16 columns of a padded row the steps of
    /// `weight_step` from the position's weights; 12 weights of the 8 even columns, each of 8
    /// numbers, then those of the 8 odd ones. A step is 1 / 32768, so a weight is off by 1.5e-5 at
    /// most.
    std::span<std::int16_t const> weights() const { return weights_; }
    static constexpr float weight_step = 1.0F / 32768;

    std::size_t padded_width() const { return (size_.width + 15) / 16 * 16; }

private:
    std::size_t index(std::size_t row, std::size_t column) const {
        return row * padded_width() + column;
    }
    void take_corrections(Calibration_maps const& maps, Region const& part);
    void take_weights(Calibration_maps const& maps, Region const& part, double zero_direction);

    Size size_;
    int bit_depth_;
    Matrices matrices_;
    std::vector<std::uint16_t> dark_levels_;
    std::vector<std::uint16_t> gains_;
    std::vector<std::int16_t> weights_;
    std::vector<std::uint8_t> is_bad_;
};

} // namespace veldrane_mrv::polarization
