#include "rule_of_one_pixel.hpp"

#include <algorithm>
#include <cmath>

namespace client_test {

using namespace polarization;

std::uint16_t corrected(
    Sensor_tables const& tables, std::size_t row, std::size_t column, std::uint16_t sample) {
    unsigned const units = 1U << tables.fraction_bits();
    unsigned const largest = 65536 / units - 1;
    std::size_t const place = row * tables.padded_width() + column;
    int const rest =
        static_cast<int>(std::min<unsigned>(sample, largest) * units) - tables.dark_levels()[place];
    double const gain = tables.gains().empty() ? 1.0 : tables.gains()[place] / 32768.0;
    return static_cast<std::uint16_t>(
        std::min(std::floor(std::max(rest, 0) * gain + 0.5), 65535.0));
}

namespace {

reference::Stokes stokes_with_tables(
    Frame_view const& frame, Sensor_tables const& tables, std::size_t row, std::size_t column) {
    std::size_t const other_row = row + 1 == frame.height() ? row - 1 : row + 1;
    std::size_t const other_column = column + 1 == frame.width() ? column - 1 : column + 1;
    auto const sample = [&](std::size_t r, std::size_t c) {
        return corrected(tables, r, c, frame(r, c));
    };
    auto const [s0, s1, s2] = reference::stokes_weighted(
        {sample(row, column), sample(row, other_column), sample(other_row, column),
         sample(other_row, other_column)},
        tables.matrix(row, column));
    int const bits = tables.fraction_bits();
    return {std::ldexp(s0, -bits), std::ldexp(s1, -bits), std::ldexp(s2, -bits)};
}

} // namespace

reference::Stokes stokes_at(
    Frame_view const& frame, Settings const& settings, Final_pixel final_pixel, std::size_t row,
    std::size_t column) {
    if (settings.tables) {
        return stokes_with_tables(frame, *settings.tables, row, column);
    }
    bool const last_row = row + 1 == frame.height();
    bool const last_column = column + 1 == frame.width();
    std::size_t const other_row = last_row ? row - 1 : row + 1;
    std::size_t const other_column = last_column ? column - 1 : column + 1;
    std::size_t position = 2 * (row % 2) + column % 2;
    // The two kinds of frame in which the processor gives the last pixel another matrix.
    if (final_pixel == Final_pixel::as_processed && last_row && last_column &&
        frame.height() % 2 != frame.width() % 2) {
        position = 0;
    }
    return reference::stokes_weighted(
        {frame(row, column), frame(row, other_column), frame(other_row, column),
         frame(other_row, other_column)},
        settings.matrices.by_position[position]);
}

std::uint16_t stored_stokes(float stokes, Scale const& scale) {
    auto const full_scale = static_cast<float>(scale.full_scale());
    float const value =
        scale.rescaled()
            ? reference::rescale_weighted(
                  stokes, full_scale, static_cast<float>(2 * ((1 << scale.bit_depth()) - 1)))
            : stokes;
    return reference::clamp_and_convert_weighted(value, full_scale);
}

Planes expected_planes(Frame_view const& frame, Settings const& settings, Final_pixel final_pixel) {
    Planes planes{frame.height(), frame.width(), Plane_set::all()};
    Plane_views const views = planes.views();
    auto const full_scale = static_cast<float>(settings.scale.full_scale());
    for (std::size_t row = 0; row < frame.height(); ++row) {
        for (std::size_t column = 0; column < frame.width(); ++column) {
            reference::Stokes const stokes = stokes_at(frame, settings, final_pixel, row, column);
            std::size_t const pixel = row * frame.width() + column;
            views.s0[pixel] = stored_stokes(stokes.s0, settings.scale);
            views.s1[pixel] = stored_stokes(stokes.s1, settings.scale);
            views.s2[pixel] = stored_stokes(stokes.s2, settings.scale);
            views.azimuth[pixel] = reference::clamp_and_convert_weighted(
                reference::azimuth_weighted(stokes.s1, stokes.s2, full_scale), full_scale);
            views.dolp[pixel] = reference::clamp_and_convert_weighted(
                reference::dolp_weighted(stokes, full_scale), full_scale);
            views.normalized_stokes[2 * pixel] = stokes.s1 / stokes.s0;
            views.normalized_stokes[2 * pixel + 1] = stokes.s2 / stokes.s0;
        }
    }
    return planes;
}

} // namespace client_test
