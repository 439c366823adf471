/// @file
/// A part of a frame in numbers.
#pragma once

#include "veldrane_mrv/polarization/geometry.hpp"
#include "view/row_planes.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace polarize_tool {

/// Of the valid pixels where it is defined: S0 and samples everywhere, degree and ratios where S0
/// is not 0, the angle where S1 or S2 is not 0. Without such pixels there is nothing but empty
/// counts.
struct Quantity_statistics {
    static constexpr std::size_t most_steps = 64;

    std::string name;
    std::string unit; ///< "sample", "degree" or "1"
    std::optional<double> mean;
    /// Root of the mean square of what differs from the mean.
    std::optional<double> deviation;
    /// An angle has neither.
    std::optional<double> least;
    std::optional<double> largest;
    /// Of the histogram: equal steps of whole levels over the elements that there are, the angle's
    /// over half a turn.
    double from = 0.0;
    double to = 1.0;
    std::vector<std::uint64_t> counts{};
};

struct View_statistics {
    std::size_t pixels = 0;
    /// Neither saturated nor below dark nor bad. These alone count in the quantities; weak ones do.
    std::size_t valid_pixels = 0;
    /// s0, dolp, azimuth, s1_s0, s2_s0, raw.
    std::vector<Quantity_statistics> quantities;
};

/// Makes figures of part after part, from the elements of the planes, which are those of `process`,
/// and ratios rounded to 1 / 32767.
///
/// The mean angle is half the direction of the sum of the vectors (S1, S2), that of a single pixel
/// the one of its plane. Its deviation is half
/// the circular standard deviation sqrt(-2 ln R) of the doubled angles, each with the length of its
/// vector as weight; R is the length of the sum over the sum of lengths (Mardia and Jupp,
/// Directional Statistics, sections 2.2 and 2.3). Keeps its memory, 1.3 MB and rows of planes. For
/// one thread.
class Statistics_making {
public:
    Statistics_making(polarization::Settings const& settings, polarization::Mode mode);
    ~Statistics_making();
    Statistics_making(Statistics_making&& other) noexcept;
    Statistics_making& operator=(Statistics_making&& other) noexcept;

    /// @param region fits the frame
    /// @throws polarization::Argument_error if the frame cannot be transformed
    View_statistics make(Frame_samples const& frame, polarization::Region const& region);

private:
    class Gathering;
    Row_planes planes_;
    std::unique_ptr<Gathering> gathering_;
};

} // namespace polarize_tool
