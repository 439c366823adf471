#include "veldrane_mrv/polarization/calibrated_transform.hpp"

#include "processor_call.hpp"

#include "veldrane_mrv/polarization/guarantees.hpp"

#include <algorithm>
#include <cstring>
#include <type_traits>

namespace veldrane_mrv::polarization {
namespace {

// A frame of 32 columns has a vector block, one of 16 to 31 has none.
constexpr std::size_t widest_strip = 31;
constexpr std::size_t narrowest_strip = 16;

// The last column of a strip has its neighbours on the left, so the next strip begins with it.
// Even, so that a column keeps its parity and with it its matrix.
constexpr std::size_t strip_distance = widest_strip - 1;

struct Columns {
    std::size_t begin;
    std::size_t end;

    std::size_t count() const { return end - begin; }
};

struct Strip_range {
    Columns processed;
    Columns kept;
};

// The strip whose first kept column is `begin`, in a frame of at least 32 columns.
Strip_range strip_from(std::size_t begin, std::size_t width) {
    if (width - begin > widest_strip) {
        return {{begin, begin + widest_strip}, {begin, begin + strip_distance}};
    }
    // The last one takes the frame's own last column. If it is narrow it begins further left, at
    // the even column that leaves 16 or 17.
    std::size_t const latest = (width - narrowest_strip) & ~std::size_t{1};
    return {{std::min(begin, latest), width}, {begin, width}};
}

template <class Element>
void copy_rows(
    Element const* source, std::size_t source_stride, Element* target, std::size_t target_stride,
    auto count, std::size_t rows) {
    for (std::size_t row = 0; row < rows; ++row) {
        std::memcpy(target, source, count * sizeof(Element));
        source += source_stride;
        target += target_stride;
    }
}

// All strips but the last have one width. A count that is known to the compiler makes a row a few
// moves in place of a call.
template <std::size_t usual_count, class Element>
void copy_part(
    Element const* source, std::size_t source_stride, Element* target, std::size_t target_stride,
    std::size_t count, std::size_t rows) {
    if (count == usual_count) {
        std::integral_constant<std::size_t, usual_count> const known_count;
        copy_rows(source, source_stride, target, target_stride, known_count, rows);
    } else {
        copy_rows(source, source_stride, target, target_stride, count, rows);
    }
}

// The kept columns of a strip's plane to their place in the frame's.
template <std::size_t elements, class Element>
void join(
    std::span<Element> plane, std::span<Element> strip, Strip_range const& range,
    Frame_view const& frame) {
    std::size_t const first_kept = range.kept.begin - range.processed.begin;
    copy_part<strip_distance * elements>(
        strip.data() + first_kept * elements, range.processed.count() * elements,
        plane.data() + range.kept.begin * elements, frame.width() * elements,
        range.kept.count() * elements, frame.height());
}

} // namespace

Calibrated_transform::Calibrated_transform(Settings const& settings, Final_pixel final_pixel)
    : settings_{settings}, final_pixel_{final_pixel} {}

void Calibrated_transform::operator()(Frame_view const& frame, Plane_views const& planes) {
    check_call(frame, settings_, planes);
    if (planes.wanted().empty()) {
        return;
    }
    if (frame.width() <= widest_strip || frame.height() == 2) {
        call_processor(frame, settings_, planes);
    } else {
        process_in_strips(frame, planes);
    }
    if (final_pixel_ == Final_pixel::by_position) {
        mend_final_pixel(frame, planes);
    }
}

void Calibrated_transform::Strip::reserve(std::size_t pixels, Plane_set const& wanted) {
    auto const enlarge = [](auto& memory, std::size_t elements) {
        memory.resize(std::max(memory.size(), elements));
    };
    enlarge(samples, pixels);
    for_each_plane(
        [&](Plane plane, auto& memory) {
            if (wanted.contains(plane)) {
                enlarge(memory, elements_per_pixel(plane) * pixels);
            }
        },
        planes);
}

Plane_views Calibrated_transform::Strip::views(std::size_t pixels, Plane_set const& wanted) {
    Plane_views views;
    for_each_plane(
        [&](Plane plane, auto& view, auto& memory) {
            if (wanted.contains(plane)) {
                view = std::span{memory}.first(elements_per_pixel(plane) * pixels);
            }
        },
        views, planes);
    return views;
}

void Calibrated_transform::process_in_strips(Frame_view const& frame, Plane_views const& planes) {
    std::size_t const height = frame.height();
    Plane_set const wanted = planes.wanted();
    strip_.reserve(widest_strip * height, wanted);
    for (std::size_t column = 0; column < frame.width();) {
        Strip_range const range = strip_from(column, frame.width());
        std::size_t const strip_width = range.processed.count();
        copy_part<widest_strip>(
            frame.data() + range.processed.begin, frame.width(), strip_.samples.data(), strip_width,
            strip_width, height);
        Plane_views const strip_planes = strip_.views(strip_width * height, wanted);
        call_processor({strip_.samples.data(), height, strip_width}, settings_, strip_planes);
        for_each_plane(
            [&](auto plane, auto elements, auto of_strip) {
                if (!elements.empty()) {
                    join<elements_per_pixel(plane)>(elements, of_strip, range, frame);
                }
            },
            planes, strip_planes);
        column = range.kept.end;
    }
}

void Calibrated_transform::mend_final_pixel(
    Frame_view const& frame, Plane_views const& planes) const {
    std::size_t const row = frame.height() - 1;
    std::size_t const column = frame.width() - 1;
    if (row % 2 == column % 2) {
        return;
    }
    // In a frame of two by two pixels the last one always has the neighbours and the arithmetic of
    // a final pixel, and takes the matrix for odd rows and odd columns.
    Settings corner_settings = settings_;
    corner_settings.matrices.by_position[3] =
        settings_.matrices.by_position[cell_position(row, column)];
    std::array<std::uint16_t, 4> const samples = {
        frame(row - 1, column - 1), frame(row - 1, column), frame(row, column - 1),
        frame(row, column)};
    Planes corner{2, 2, planes.wanted()};
    call_processor({samples, 2, 2}, corner_settings, corner.views());
    for_each_plane(
        [](Plane plane, auto elements, auto of_corner) {
            if (!elements.empty()) {
                std::size_t const count = elements_per_pixel(plane);
                std::ranges::copy(of_corner.last(count), elements.last(count).begin());
            }
        },
        planes, corner.views());
}

} // namespace veldrane_mrv::polarization
