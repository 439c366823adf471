/// @file
/// Least squares for every pixel of a series, from sums alone.
#pragma once

#include <Eigen/Dense>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace veldrane_mrv::polarization {

/// The row of a frame in the problem that a series is: intensity * (1, P cos 2 theta, P sin 2
/// theta) with the source's degree P.
Eigen::Vector3d design_row(double polariser_angle, double source_intensity, double source_degree);

/// Rows of the instrument matrix, T / 2 * (1, D cos 2 phi, D sin 2 phi), of all pixels.
struct Pixel_fits {
    std::array<std::vector<float>, 3> rows;
    /// Root mean square of measured minus fitted samples, in sample units, divided by the degrees
    /// of freedom; zeros if there are none.
    std::vector<float> residuals;

    Eigen::Vector3d row(std::size_t pixel) const {
        return Eigen::Vector3f{rows[0][pixel], rows[1][pixel], rows[2][pixel]}.cast<double>();
    }
};

/// The normal equations of all pixels, whose matrix they share.
class Pixel_sums {
public:
    explicit Pixel_sums(std::size_t pixels);

    /// Samples and dark levels of all pixels.
    void add(
        std::span<std::uint16_t const> samples, std::span<float const> dark_levels,
        Eigen::Vector3d const& design);

    /// @param source_level what a throughput of 1 makes of light of intensity 1
    Pixel_fits fits(double source_level) const;

private:
    std::size_t frames_ = 0;
    Eigen::Matrix3d normal_ = Eigen::Matrix3d::Zero();
    std::array<std::vector<double>, 3> products_;
    std::vector<double> squares_;
};

} // namespace veldrane_mrv::polarization
