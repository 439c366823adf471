/// @file
/// What one thread does of a frame: band after band, in whichever way options and planes ask for.
#pragma once

#include "veldrane_mrv/polarization/band.hpp"
#include "veldrane_mrv/polarization/frame_transform.hpp"
#include "veldrane_mrv/polarization/settings.hpp"
#include "veldrane_mrv/polarization/uncertainty.hpp"
#include "veldrane_mrv/polarization/validity.hpp"

#include <cstdint>
#include <optional>
#include <vector>

namespace veldrane_mrv::polarization {

/// The planes from a row of the frame on.
Plane_views from_row(Plane_views const& planes, std::size_t row, std::size_t width);
Signed_views from_row(Signed_views const& planes, std::size_t row, std::size_t width);

/// Keeps its workspace from band to band. For one thread at a time.
class Band_transform {
public:
    Band_transform(Settings const& settings, Transform_options const& options);

    /// What becomes of the planes' row below the band.
    enum class Row_below {
        kept,
        /// Its 16-bit planes may be written, since the caller computes it next: fast mode then has
        /// less to do.
        overwritten
    };

    /// Every wanted plane of a band; planes begin with its first row. The call has been checked. In
    /// fast mode `normalized_stokes` is wanted of whole frames only: it is packed over all rows.
    void operator()(
        Band const& band, Plane_views const& planes, Signed_views const& signed_planes,
        Row_below row_below);

private:
    void call_by_band(Band const& band, Plane_views const& planes, Row_below row_below);
    void call_for_last_pair(Frame_view const& samples, Plane_views const& planes);

    Settings settings_;
    Transform_options options_;
    std::vector<std::uint16_t> corrected_rows_;
    std::optional<Planes> last_pair_;
    Validity_marker validity_;
    std::optional<Uncertainty_estimator> uncertainty_;
};

} // namespace veldrane_mrv::polarization
