#include "band_transform.hpp"

#include "processor_call.hpp"
#include "weighted_call.hpp"

#include <algorithm>

namespace veldrane_mrv::polarization {
namespace {

template <class Element>
std::span<Element> from_element(std::span<Element> plane, std::size_t element) {
    return plane.empty() ? plane : plane.subspan(element);
}

Frame_view rows_of(Frame_view const& samples, std::size_t begin, std::size_t count) {
    return {samples.row(begin).data(), count, samples.width()};
}

// The 16-bit planes and `normalized_stokes`, which the processor writes.
Plane_views of_processor(Plane_views planes) {
    planes.validity = {};
    planes.uncertainty = {};
    return planes;
}

} // namespace

Plane_views from_row(Plane_views const& planes, std::size_t row, std::size_t width) {
    Plane_views rest;
    for_each_plane(
        [&](Plane plane, auto& view, auto const& whole_view) {
            view = from_element(whole_view, elements_per_pixel(plane) * row * width);
        },
        rest, planes);
    return rest;
}

Signed_views from_row(Signed_views const& planes, std::size_t row, std::size_t width) {
    return {from_element(planes.s1, row * width), from_element(planes.s2, row * width)};
}

Band_transform::Band_transform(Settings const& settings, Transform_options const& options)
    : settings_{settings}, options_{options}, validity_{settings, options.mode} {
    if (settings.noise) {
        uncertainty_.emplace(settings, options.mode);
    }
}

void Band_transform::operator()(
    Band const& band, Plane_views const& planes, Signed_views const& signed_planes,
    Row_below row_below) {
    Plane_views const stored = of_processor(planes);
    bool const has_planes = !stored.wanted().empty();
    if (options_.mode == Mode::fast) {
        if (has_planes) {
            call_by_band(band, stored, row_below);
        }
        compute_signed(band, settings_, signed_planes);
    } else if (has_planes || !signed_planes.empty()) {
        compute_weighted(
            band, settings_, stored, signed_planes, options_.final_pixel, corrected_rows_);
    }
    if (!planes.validity.empty()) {
        validity_(band, planes.validity);
    }
    if (!planes.uncertainty.empty()) {
        (*uncertainty_)(band, planes.uncertainty);
    }
}

// A call finishes its last rows as those of a frame, with turned neighbours and with matrices. With
// an odd height that is one row: that below the band. If it is to be kept, it is the first of the
// band's last row pair instead, and this pair is computed once more beside:
//
//     rows    0 1   2 3   4 5   6
//     call    + +   + +   o          + as the frame's call gives them, o as a frame's last row
//     beside              + +   o
void Band_transform::call_by_band(
    Band const& band, Plane_views const& planes, Row_below row_below) {
    if (band.ends_frame() || row_below == Row_below::overwritten) {
        call_processor(band.samples, settings_, planes);
        return;
    }
    std::size_t const last_pair = band.rows - 2;
    if (last_pair != 0) {
        call_processor(rows_of(band.samples, 0, last_pair + 1), settings_, planes);
    }
    std::size_t const width = band.samples.width();
    call_for_last_pair(rows_of(band.samples, last_pair, 3), from_row(planes, last_pair, width));
}

void Band_transform::call_for_last_pair(Frame_view const& samples, Plane_views const& planes) {
    Plane_set const wanted = planes.wanted();
    if (!last_pair_ || last_pair_->width() != samples.width() || last_pair_->wanted() != wanted) {
        last_pair_.emplace(samples.height(), samples.width(), wanted);
    }
    call_processor(samples, settings_, last_pair_->views());
    for (Plane const plane : wanted.list()) {
        std::ranges::copy(
            last_pair_->integer_plane(plane).first(2 * samples.width()),
            planes.integer_plane(plane).begin());
    }
}

} // namespace veldrane_mrv::polarization
