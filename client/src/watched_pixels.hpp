/// @file
/// Whether one frame of a series shows something else than the others.
#pragma once

#include <Eigen/Dense>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace veldrane_mrv::polarization {

/// A frame whose pixels are far from the fits of all frames.
struct Odd_frame {
    std::size_t index;
    /// Typical distance of its pixels, as a fraction of the mean signal, and that of a frame in the
    /// middle of the series.
    double distance;
    double usual_distance;
};

/// A thousand pixels all over the sensor whose samples are kept of every frame: means tell a frame
/// of other light, these one of a sensor that was moved or read out in another way, too.
class Watched_pixels {
public:
    explicit Watched_pixels(std::size_t pixels);

    void add(
        std::span<std::uint16_t const> samples, std::span<float const> dark_levels,
        Eigen::Vector3d const& design);

    /// The oddest, if it is at least 2.5 times as far from the fits as is usual and by more than
    /// 1 % of the mean signal. Of six frames or fewer none can be told from the others.
    std::optional<Odd_frame> odd_frame() const;

private:
    std::vector<std::size_t> places_;
    std::vector<Eigen::Vector3d> designs_;
    /// Frame after frame.
    std::vector<float> signals_;
};

} // namespace veldrane_mrv::polarization
