#include "view/plane_making.hpp"

#include "view/stokes_reduction.hpp"

#include <algorithm>

namespace polarize_tool {
namespace {

using polarization::Frame_view;
using polarization::Plane;
using polarization::Region;

// Of S0 with signed S1 and S2: 650 KB, which second-level caches hold beside the samples.
constexpr std::size_t pixels_at_a_time = std::size_t{1} << 16;

// Each call costs four rows more.
constexpr std::size_t least_rows_at_a_time = 32;

Row_planes::Wanted rows_needed(Planes_wanted const& wanted) {
    Row_planes::Wanted rows;
    bool const is_reduced = wanted.scale > 1;
    bool const has_ratios = wanted.wants(View_plane::s1_s0) || wanted.wants(View_plane::s2_s0);
    bool const has_dolp = wanted.wants(View_plane::dolp);
    bool const has_azimuth = wanted.wants(View_plane::azimuth);
    if (wanted.wants(View_plane::s0) || has_ratios || (is_reduced && has_dolp)) {
        rows.planes.insert(Plane::s0);
    }
    if (!is_reduced && has_azimuth) {
        rows.planes.insert(Plane::azimuth);
    }
    if (!is_reduced && has_dolp) {
        rows.planes.insert(Plane::dolp);
    }
    if (wanted.wants(View_plane::validity)) {
        rows.planes.insert(Plane::validity);
    }
    rows.with_signs = has_ratios || (is_reduced && (has_dolp || has_azimuth));
    return rows;
}

// One row of squares of a plane that is made.
template <class Element>
std::span<Element> target_row(Planes_wanted const& wanted, View_plane plane, std::size_t number) {
    std::size_t const width = wanted.size().width;
    auto* const elements = static_cast<Element*>(wanted.targets[static_cast<unsigned>(plane)]);
    return {elements + number * width, width};
}

// In place of a row or column that the frame does not have, the one of the same parity before it.
std::size_t of_parity(std::size_t index, std::size_t parity, std::size_t length) {
    std::size_t const found = (index & ~std::size_t{1}) + parity;
    return found < length ? found : found - 2;
}

// Indices of one parity from `begin` to `end` - 1, or the one that stands for them.
struct Steps {
    std::size_t begin;
    std::size_t count;
};
Steps steps_of(std::size_t begin, std::size_t end, std::size_t parity, std::size_t length) {
    std::size_t const first = begin % 2 == parity ? begin : begin + 1;
    return first < end ? Steps{first, (end - first + 1) / 2}
                       : Steps{of_parity(begin, parity, length), 1};
}

} // namespace

polarization::Size Planes_wanted::size() const {
    return {squares_in(region.width, scale), squares_in(region.height, scale)};
}

Plane_making::Plane_making(polarization::Settings const& settings, polarization::Mode mode)
    : mosaic_{settings.mosaic}, full_scale_{settings.scale.full_scale()}, planes_{settings, mode} {}

void Plane_making::make(Frame_samples const& frame, Planes_wanted const& wanted) {
    Region const& region = wanted.region;
    Row_planes::Wanted const rows = rows_needed(wanted);
    bool const is_computed = !rows.planes.empty() || rows.with_signs;
    std::size_t const at_a_time =
        std::max(least_rows_at_a_time, pixels_at_a_time / frame.view.width());
    std::size_t const squares = std::max<std::size_t>(1, at_a_time / wanted.scale);
    std::size_t const height = wanted.size().height;
    std::size_t const region_end = region.row + region.height;
    auto const begin_of = [&](std::size_t number) {
        return std::min(region.row + number * wanted.scale, region_end);
    };
    for (std::size_t number = 0; number < height; ++number) {
        if (is_computed && number % squares == 0) {
            planes_.compute(frame, begin_of(number), begin_of(number + squares), rows);
        }
        make_row(frame, wanted, rows, {begin_of(number), begin_of(number + 1), number});
    }
}

void Plane_making::make_row(
    Frame_samples const& frame, Planes_wanted const& wanted, Row_planes::Wanted const& rows,
    Square_row const& row) {
    make_stokes(wanted, rows, row);
    if (wanted.wants(View_plane::validity)) {
        make_validity(wanted, row);
    }
    if (wanted.wants(View_plane::raw)) {
        make_raw(frame.view, wanted, row);
    }
    for (std::size_t position = 0; position < 4; ++position) {
        int const angle = mosaic_.layout()[position];
        View_plane const plane = angle == 0    ? View_plane::i0
                                 : angle == 45 ? View_plane::i45
                                 : angle == 90 ? View_plane::i90
                                               : View_plane::i135;
        if (wanted.wants(plane)) {
            make_analyser(
                frame.view, wanted, row, position,
                target_row<std::uint16_t>(wanted, plane, row.number));
        }
    }
}

template <class Row_of>
void Plane_making::add_up(
    Planes_wanted const& wanted, Square_row const& row, Row_of const& row_of, Sums& sums) {
    Region const& region = wanted.region;
    auto const first = row_of(row.begin).subspan(region.column, region.width);
    if (wanted.scale == 1) {
        sums.squares.assign(first.begin(), first.end());
        return;
    }
    sums.columns.assign(first.begin(), first.end());
    for (std::size_t from = row.begin + 1; from < row.end; ++from) {
        add_row(row_of(from).subspan(region.column, region.width), sums.columns);
    }
    sums.squares.resize(wanted.size().width);
    add_columns(sums.columns, wanted.scale, sums.squares);
}

void Plane_making::make_stokes(
    Planes_wanted const& wanted, Row_planes::Wanted const& rows, Square_row const& row) {
    Region const& region = wanted.region;
    auto const target = [&](View_plane plane) {
        return target_row<std::uint16_t>(wanted, plane, row.number);
    };
    auto const copy = [&](View_plane to, Plane from) {
        if (wanted.wants(to)) {
            auto const elements = planes_.row(from, row.begin).subspan(region.column, region.width);
            std::ranges::copy(elements, target(to).begin());
        }
    };
    bool const is_reduced = wanted.scale > 1;
    if (!is_reduced) {
        copy(View_plane::s0, Plane::s0);
        copy(View_plane::azimuth, Plane::azimuth);
        copy(View_plane::dolp, Plane::dolp);
    }
    if (rows.planes.contains(Plane::s0) && (is_reduced || rows.with_signs)) {
        add_up(
            wanted, row, [&](std::size_t from) { return planes_.row(Plane::s0, from); }, s0_);
    }
    if (rows.with_signs) {
        add_up(
            wanted, row, [&](std::size_t from) { return planes_.s1(from); }, s1_);
        add_up(
            wanted, row, [&](std::size_t from) { return planes_.s2(from); }, s2_);
    }
    if (is_reduced && wanted.wants(View_plane::s0)) {
        means_of(
            s0_.squares, wanted.scale, region.width, row.end - row.begin, target(View_plane::s0));
    }
    if (is_reduced && wanted.wants(View_plane::azimuth)) {
        azimuths_of(s1_.squares, s2_.squares, full_scale_, target(View_plane::azimuth));
    }
    if (is_reduced && wanted.wants(View_plane::dolp)) {
        degrees_of(s0_.squares, s1_.squares, s2_.squares, full_scale_, target(View_plane::dolp));
    }
    if (wanted.wants(View_plane::s1_s0)) {
        ratios_of(
            s1_.squares, s0_.squares,
            target_row<std::int16_t>(wanted, View_plane::s1_s0, row.number));
    }
    if (wanted.wants(View_plane::s2_s0)) {
        ratios_of(
            s2_.squares, s0_.squares,
            target_row<std::int16_t>(wanted, View_plane::s2_s0, row.number));
    }
}

void Plane_making::make_validity(Planes_wanted const& wanted, Square_row const& row) {
    Region const& region = wanted.region;
    auto const target = target_row<std::uint8_t>(wanted, View_plane::validity, row.number);
    auto const flags_of = [&](std::size_t from) {
        return planes_.validity(from).subspan(region.column, region.width);
    };
    if (wanted.scale == 1) {
        std::ranges::copy(flags_of(row.begin), target.begin());
        return;
    }
    flags_.assign(region.width, 0);
    for (std::size_t from = row.begin; from < row.end; ++from) {
        add_row(flags_of(from), flags_);
    }
    add_columns(flags_, wanted.scale, target);
}

void Plane_making::make_raw(
    Frame_view const& frame, Planes_wanted const& wanted, Square_row const& row) {
    add_up(
        wanted, row, [&](std::size_t from) { return frame.row(from); }, samples_);
    means_of(
        samples_.squares, wanted.scale, wanted.region.width, row.end - row.begin,
        target_row<std::uint16_t>(wanted, View_plane::raw, row.number));
}

void Plane_making::make_analyser(
    Frame_view const& frame, Planes_wanted const& wanted, Square_row const& row,
    std::size_t position, std::span<std::uint16_t> target) {
    Region const& region = wanted.region;
    Steps const rows = steps_of(row.begin, row.end, position / 2, frame.height());
    // Of the whole width, since a square at the region's edge may take a column beyond it.
    samples_.columns.assign(frame.width(), 0);
    for (std::size_t step = 0; step < rows.count; ++step) {
        add_row(frame.row(rows.begin + 2 * step), samples_.columns);
    }
    std::size_t const region_end = region.column + region.width;
    for (std::size_t square = 0; square < target.size(); ++square) {
        std::size_t const begin = region.column + square * wanted.scale;
        std::size_t const end = std::min(begin + wanted.scale, region_end);
        Steps const columns = steps_of(begin, end, position % 2, frame.width());
        std::uint32_t sum = 0;
        for (std::size_t step = 0; step < columns.count; ++step) {
            sum += static_cast<std::uint32_t>(samples_.columns[columns.begin + 2 * step]);
        }
        std::uint64_t const count = rows.count * columns.count;
        target[square] = static_cast<std::uint16_t>((2 * std::uint64_t{sum} + count) / (2 * count));
    }
}

} // namespace polarize_tool
