/// @file
/// Which pixels say nothing, or not what they seem to: the plane `validity`.
#pragma once

#include "veldrane_mrv/polarization/band.hpp"
#include "veldrane_mrv/polarization/settings.hpp"
#include "veldrane_mrv/polarization/uncertainty.hpp"
#include "veldrane_mrv/polarization/views.hpp"

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace veldrane_mrv::polarization {

/// Bits of the plane. A pixel without any is valid; each is about the four samples that the pixel
/// is computed from, so a faulty one marks four pixels.
enum class Validity : std::uint8_t {
    valid = 0,
    /// A sample at the largest one or above it, or cut off when it was corrected.
    saturated = 1,
    /// A sample below the dark level of its pixel; needs a calibration of single pixels.
    below_dark = 2,
    /// A sample of a pixel that the calibration says is hot or dead.
    bad_pixel = 4,
    /// A degree that cannot be told from none: below 3 times its standard deviation. Needs a noise
    /// model.
    weak = 8
};

inline constexpr std::array<Validity, 4> all_validity_bits = {
    Validity::saturated, Validity::below_dark, Validity::bad_pixel, Validity::weak};

constexpr std::uint8_t bit_of(Validity validity) {
    return static_cast<std::uint8_t>(validity);
}

/// "valid", "saturated", "below_dark", "bad_pixel" or "weak".
std::string_view name_of(Validity validity);

/// Adds `saturated` to each pixel that one of the marked samples belongs to. For samples that a
/// dark level has been taken off since: the largest one does not show in them any more.
/// @param is_saturated one element a sample of a frame of `size`, 0 or not
void mark_saturated(
    std::span<std::uint8_t const> is_saturated, Size const& size, std::span<std::uint8_t> validity);

/// Keeps its workspace from frame to frame: 2 bytes a column. For one thread at a time.
class Validity_marker {
public:
    /// Fast mode makes no use of the calibration.
    /// @throws Argument_error if the settings have a noise model that is none
    Validity_marker(Settings const& settings, Mode mode);

    /// Fills `validity`, one element a pixel. `frame` has passed `check_call`.
    void operator()(Frame_view const& frame, std::span<std::uint8_t> validity) {
        (*this)(whole(frame), validity);
    }
    /// Of a band; `validity` begins with its first row.
    void operator()(Band const& band, std::span<std::uint8_t> validity);

private:
    void mark_samples(
        Frame_view const& frame, std::size_t row, std::size_t first_row,
        std::span<std::uint8_t> marks) const;
    void mark_corrected(
        std::uint16_t const* samples, std::size_t row, std::span<std::uint8_t> marks) const;

    Settings settings_;
    bool has_tables_;
    std::optional<Uncertainty_estimator> uncertainty_;
    /// Of two rows of samples; behind the last column is the one that neighbours it.
    std::array<std::vector<std::uint8_t>, 2> marks_;
};

} // namespace veldrane_mrv::polarization
