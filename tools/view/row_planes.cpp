#include "view/row_planes.hpp"

#include "veldrane_mrv/polarization/validity.hpp"

#include <algorithm>

namespace polarize_tool {
namespace {

using polarization::Band;
using polarization::Mode;
using polarization::Plane;

// The least band that holds the rows.
Band band_of(polarization::Frame_view const& frame, std::size_t begin, std::size_t end) {
    std::size_t const height = frame.height();
    std::size_t first = begin & ~std::size_t{1};
    if (first > 0 && first + 1 == height) {
        first -= 2;
    }
    std::size_t const last = std::min(height, (end + 1) & ~std::size_t{1});
    std::size_t const rows = last - first;
    std::size_t const samples = last == height ? rows : rows + 1;
    return {{frame.row(first).data(), samples, frame.width()}, first, rows, height};
}

template <class Element>
std::span<Element> room(std::vector<Element>& plane, std::size_t elements) {
    plane.resize(std::max(plane.size(), elements));
    return std::span(plane).first(elements);
}

} // namespace

Row_planes::Row_planes(polarization::Settings const& settings, Mode mode)
    : mode_{mode}, transform_{settings, {.mode = mode}} {}

void Row_planes::compute(
    Frame_samples const& frame, std::size_t begin, std::size_t end, Wanted const& wanted) {
    Band band = band_of(frame.view, begin, end);
    first_ = band.first;
    width_ = frame.view.width();
    std::size_t const elements = band.rows * width_;
    polarization::Plane_views views;
    if (wanted.planes.contains(Plane::s0)) {
        views.s0 = room(s0_, elements);
    }
    if (wanted.planes.contains(Plane::azimuth)) {
        views.azimuth = room(azimuth_, elements);
    }
    if (wanted.planes.contains(Plane::dolp)) {
        views.dolp = room(dolp_, elements);
    }
    // The row below may be marked as well.
    std::size_t const marked_rows = band.samples.height();
    if (wanted.planes.contains(Plane::validity)) {
        views.validity = room(validity_, marked_rows * width_).first(elements);
    }
    polarization::Signed_views signed_views;
    if (wanted.with_signs) {
        signed_views = {room(s1_, elements), room(s2_, elements)};
    }
    // Fast mode knows no single pixels, so a band may stand for a frame. Signed planes of a large
    // frame would go past the caches, where they are read at once.
    if (mode_ == Mode::fast) {
        band.height = band.ends_frame() ? band.rows : band.rows + 1;
        band.first = 0;
    }
    transform_(band, views, signed_views);
    if (!views.validity.empty() && !frame.saturated.empty()) {
        polarization::mark_saturated(
            frame.saturated.subspan(first_ * width_, marked_rows * width_), {width_, marked_rows},
            std::span(validity_).first(marked_rows * width_));
    }
}

std::span<std::uint16_t const> Row_planes::row(Plane plane, std::size_t row) const {
    return row_of(plane == Plane::s0 ? s0_ : plane == Plane::azimuth ? azimuth_ : dolp_, row);
}

} // namespace polarize_tool
