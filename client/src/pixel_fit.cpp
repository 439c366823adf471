#include "pixel_fit.hpp"

#include "series_fit.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace veldrane_mrv::polarization {

Eigen::Vector3d design_row(double polariser_angle, double source_intensity, double source_degree) {
    double const twice = polariser_angle * std::numbers::pi / 90;
    return source_intensity *
           Eigen::Vector3d{1, source_degree * std::cos(twice), source_degree * std::sin(twice)};
}

Pixel_sums::Pixel_sums(std::size_t pixels) : squares_(pixels) {
    products_.fill(std::vector<double>(pixels));
}

void Pixel_sums::add(
    std::span<std::uint16_t const> samples, std::span<float const> dark_levels,
    Eigen::Vector3d const& design) {
    // Locals, since a compiler cannot know that the sums do not overlap what holds their addresses.
    double const weight_0 = design(0);
    double const weight_1 = design(1);
    double const weight_2 = design(2);
    double* const products_0 = products_[0].data();
    double* const products_1 = products_[1].data();
    double* const products_2 = products_[2].data();
    double* const squares = squares_.data();
    for (std::size_t pixel = 0; pixel < samples.size(); ++pixel) {
        double const signal =
            static_cast<double>(samples[pixel]) - static_cast<double>(dark_levels[pixel]);
        products_0[pixel] += weight_0 * signal;
        products_1[pixel] += weight_1 * signal;
        products_2[pixel] += weight_2 * signal;
        squares[pixel] += signal * signal;
    }
    normal_ += design * design.transpose();
    ++frames_;
}

Pixel_fits Pixel_sums::fits(double source_level) const {
    std::size_t const pixels = squares_.size();
    Pixel_fits fits;
    fits.rows.fill(std::vector<float>(pixels));
    fits.residuals.resize(pixels);
    Eigen::Matrix3d const inverse = normal_.inverse();
    double const freedom = frames_ > parameters_per_position
                               ? static_cast<double>(frames_ - parameters_per_position)
                               : 0.0;
    for (std::size_t pixel = 0; pixel < pixels; ++pixel) {
        Eigen::Vector3d const products{
            products_[0][pixel], products_[1][pixel], products_[2][pixel]};
        Eigen::Vector3d const solution = inverse * products;
        for (std::size_t term = 0; term < fits.rows.size(); ++term) {
            fits.rows[term][pixel] =
                static_cast<float>(solution(static_cast<Eigen::Index>(term)) / source_level);
        }
        // The difference of two large numbers, which rounding may leave below 0.
        double const rest = std::max(squares_[pixel] - products.dot(solution), 0.0);
        fits.residuals[pixel] = freedom > 0 ? static_cast<float>(std::sqrt(rest / freedom)) : 0.0F;
    }
    return fits;
}

} // namespace veldrane_mrv::polarization
