/// @file
/// How numbers in the 16-bit planes relate to samples, degrees and fractions.
#pragma once

#include <cstdint>
#include <optional>

namespace veldrane_mrv::polarization {

/// Samples of `bit_depth` bits to planes that reach up to `full_scale`.
///
/// In the azimuth `full_scale` stands for 180 degrees, in the degree of polarisation for 1. The
/// three Stokes planes either keep the units of the samples, cut off at `full_scale`, or are
/// rescaled so that `full_scale` stands for twice the largest sample, which is the largest S0 that
/// there can be.
class Scale {
public:
    /// Without `full_scale`, rescaled Stokes planes that fill 16 bits. With it, Stokes planes in
    /// sample units if it is 2^bit_depth - 1, else rescaled ones.
    /// @throws Argument_error unless `bit_depth` is 1 to 16 and `full_scale` 1 to 65535
    explicit Scale(int bit_depth, std::optional<unsigned> full_scale = std::nullopt);

    /// Stokes planes in sample units whatever the full scale. The default keeps every S0 of sensors
    /// of up to 15 bits and gives azimuth and degree their finest steps.
    /// @throws Argument_error unless `bit_depth` is 1 to 16 and `full_scale` 1 to 65535
    static Scale in_sample_units(int bit_depth, unsigned full_scale = 65535);

    int bit_depth() const { return bit_depth_; }
    /// 2^bit_depth - 1.
    unsigned largest_sample() const { return (1U << bit_depth_) - 1; }
    /// Full scale of the planes.
    unsigned full_scale() const { return full_scale_; }
    /// Whether the Stokes planes are rescaled; if not, they are in sample units.
    bool rescaled() const { return rescaled_; }
    /// Sample units for one unit of a Stokes plane; 1 unless rescaled.
    double sample_units_per_step() const;

    /// The processor's three numbers.
    float maximum_input_value() const { return static_cast<float>(2 * largest_sample()); }
    float maximum_output_value() const { return static_cast<float>(full_scale_); }
    std::int32_t maximum_output_value_integer() const;

    bool operator==(Scale const&) const = default;

private:
    Scale(int bit_depth, unsigned full_scale, bool rescaled);

    int bit_depth_;
    unsigned full_scale_;
    bool rescaled_;
};

} // namespace veldrane_mrv::polarization
