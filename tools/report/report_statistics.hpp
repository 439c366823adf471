/// @file
/// What a report says about the planes of a frame in numbers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace polarize_tool {

/// The planes that a report shows, of one size, 0 to `full_scale`.
struct Report_planes {
    std::span<std::uint16_t const> s0;
    std::span<std::uint16_t const> azimuth;
    std::span<std::uint16_t const> dolp;
    std::size_t width;
    std::size_t height;
    unsigned full_scale;
    /// One element a pixel, 0 of a valid one, or none.
    std::span<std::uint8_t const> validity{};
};

/// How often each element occurs in a plane.
class Element_counts {
public:
    explicit Element_counts(std::span<std::uint16_t const> plane);

    std::size_t of(unsigned element) const { return counts_[element]; }
    std::size_t total() const { return total_; }
    double mean() const;
    unsigned largest() const;
    /// The least element that at least this share (0 to 1) of the plane does not exceed.
    unsigned quantile(double share) const;
    /// Share of the elements above one.
    double share_above(unsigned element) const;
    /// Counts in `steps` equal steps from 0 to `end`, which is above 0; what lies beyond is in the
    /// last one.
    std::vector<double> histogram(std::size_t steps, unsigned end) const;

private:
    std::vector<std::size_t> counts_;
    std::size_t total_;
};

/// The angles of a frame, each weighted with its degree of polarisation: unpolarised pixels have a
/// random angle.
struct Angle_statistics {
    /// Degrees, 0 to below 180: half the direction of the sum of vectors at twice the angles
    /// (Mardia and Jupp, Directional Statistics, section 2.2).
    double mean;
    /// Length of that sum over the sum of lengths: 1 if all angles are equal, 0 if they cancel.
    double concentration;
    /// Share of the pixels whose degree is stored as 0, so that they have no angle.
    double without_angle;
    /// Summed degrees in equal steps of the angle from 0 to 180 degrees.
    std::vector<double> histogram;
};
Angle_statistics angle_statistics(Report_planes const& planes, std::size_t steps);

} // namespace polarize_tool
