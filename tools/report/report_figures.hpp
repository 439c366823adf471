/// @file
/// Parts of the report page as HTML and SVG.
#pragma once

#include "input/settings_rows.hpp"
#include "page/colour_tables.hpp"
#include "report/report_pictures.hpp"
#include "veldrane_mrv/polarization/inspection.hpp"

#include <span>
#include <string>
#include <vector>

namespace polarize_tool {

namespace polarization = veldrane_mrv::polarization;

std::string definition_list(Rows const& rows);

/// A number of the page's first row: what it is, how much, and a remark.
std::string tile(std::string const& name, std::string const& number, std::string const& note);

/// A picture that shows values: `id` is unique in the page, `label` what it shows.
std::string figure(
    std::string const& id, std::string const& label, Picture const& picture,
    std::string const& caption);

/// Places along an axis, 0 to 1 from left to right, and what stands below them.
using Ticks = std::vector<std::pair<double, std::string>>;

/// Five round numbers or so from 0 to `end`, with `unit` behind each.
Ticks linear_ticks(double end, std::string const& unit = "");

/// Bars of equal width. `colours` is empty or holds one CSS colour for each bar. Square roots
/// of counts are drawn if `is_rooted`, so that rare values remain in sight.
std::string histogram_svg(
    std::span<double const> heights, Ticks const& ticks, std::string const& label, bool is_rooted,
    std::span<std::string const> colours = {});

/// One CSS colour for each of `steps` equal steps from 0 to 180 degrees.
std::vector<std::string> hue_colours(Colour_tables const& tables, std::size_t steps);

std::string colour_bar(std::string const& uri, Ticks const& ticks, std::string const& label);
std::string colour_wheel(std::string const& uri, double degree_top);

/// The cell of the mosaic: polariser and mean sample at each position.
std::string mosaic_table(
    veldrane_mrv::polarization::Mosaic const& mosaic,
    std::array<polarization::Position_means, 4> const& positions);

} // namespace polarize_tool
