#include "report/report_figures.hpp"

#include "output/inspect_output.hpp"
#include "page/page_encoding.hpp"
#include "page/svg_parts.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace polarize_tool {
namespace {

constexpr double histogram_width = drawing_width;
constexpr double histogram_height = 96.0;
constexpr double bar_height = 16.0;
constexpr double text_drop = 17.0;

std::string tick_labels(Ticks const& ticks, double width, double baseline) {
    std::string svg;
    for (auto const& [place, label] : ticks) {
        char const* const anchor = place < 0.02 ? "start" : place > 0.98 ? "end" : "middle";
        svg += "<text x=\"" + coordinate(place * width) + "\" y=\"" +
               coordinate(baseline + text_drop) + "\" text-anchor=\"" + anchor + "\">" +
               html_text(label) + "</text>";
    }
    return svg;
}

// A line through the centre of a 40 x 40 drawing, in the direction of an angle that grows
// counter-clockwise while the drawing's second axis points down.
std::string polariser_drawing(int angle) {
    constexpr double centre = 20.0;
    constexpr double reach = 14.0;
    double const direction = angle * std::numbers::pi / 180.0;
    double const right = reach * std::cos(direction);
    double const up = reach * std::sin(direction);
    return "<svg viewBox=\"0 0 40 40\" aria-hidden=\"true\"><circle cx=\"20\" cy=\"20\" r=\"18\" "
           "class=\"frame\"/><line x1=\"" +
           coordinate(centre - right) + "\" y1=\"" + coordinate(centre + up) + "\" x2=\"" +
           coordinate(centre + right) + "\" y2=\"" + coordinate(centre - up) +
           "\" stroke=\"currentColor\" stroke-width=\"2.5\" stroke-linecap=\"round\"/></svg>";
}

} // namespace

std::string definition_list(Rows const& rows) {
    std::string html = "<dl>";
    for (auto const& [label, value] : rows) {
        html += "<dt>" + html_text(label) + "</dt><dd>" + html_text(value) + "</dd>";
    }
    return html + "</dl>";
}

std::string tile(std::string const& name, std::string const& number, std::string const& note) {
    return "<div class=\"tile\"><p class=\"name\">" + html_text(name) + "</p><p class=\"number\">" +
           html_text(number) + "</p><p class=\"note\">" + html_text(note) + "</p></div>\n";
}

std::string figure(
    std::string const& id, std::string const& label, Picture const& picture,
    std::string const& caption) {
    // Below this a browser's smooth enlargement would hide the pixels.
    constexpr std::size_t narrow = 600;
    std::string const width = std::to_string(picture.width);
    std::string const height = std::to_string(picture.height);
    std::string const enlarged = picture.width < narrow ? " class=\"enlarged\"" : "";
    return "<figure><div class=\"stage\" id=\"stage-" + id +
           "\" tabindex=\"0\" role=\"application\" aria-roledescription=\"picture with values\" "
           "aria-describedby=\"hint\" aria-label=\"" +
           html_text(label) + "\" style=\"aspect-ratio:" + width + "/" + height +
           ";max-width:calc(82vh*" + width + "/" + height + ")\"><img" + enlarged + " src=\"" +
           picture.uri + "\" width=\"" + width + "\" height=\"" + height + "\" alt=\"" +
           html_text(label) + "\"><span class=\"mark\"></span></div><figcaption>" +
           html_text(caption) + "</figcaption></figure>";
}

Ticks linear_ticks(double end, std::string const& unit) {
    double const power = std::pow(10.0, std::floor(std::log10(end)));
    double step = power;
    for (double const candidate : {0.1, 0.2, 0.5, 1.0, 2.0}) {
        if (end / (candidate * power) <= 6.0) {
            step = candidate * power;
            break;
        }
    }
    int const decimals = std::max(0, static_cast<int>(-std::floor(std::log10(step) + 1e-9)));
    Ticks ticks;
    for (int number = 0; number * step <= end * (1.0 + 1e-9); ++number) {
        ticks.emplace_back(number * step / end, decimal(number * step, decimals) + unit);
    }
    return ticks;
}

std::string histogram_svg(
    std::span<double const> heights, Ticks const& ticks, std::string const& label, bool is_rooted,
    std::span<std::string const> colours) {
    auto const shown = [is_rooted](double height) {
        return is_rooted ? std::sqrt(height) : height;
    };
    double const tallest =
        std::max(1e-300, shown(*std::max_element(heights.begin(), heights.end())));
    double const step = histogram_width / static_cast<double>(heights.size());
    std::string svg = svg_of_size(histogram_width, histogram_height + text_drop + 5.0, label) +
                      " class=\"histogram\"><g class=\"bars\">";
    for (std::size_t index = 0; index < heights.size(); ++index) {
        double const height = shown(heights[index]) / tallest * histogram_height;
        if (height <= 0.0) {
            continue;
        }
        // A hair of overlap, else seams show between the bars.
        svg += "<rect x=\"" + coordinate(static_cast<double>(index) * step) + "\" y=\"" +
               coordinate(histogram_height - height) + "\" width=\"" + coordinate(step + 0.15) +
               "\" height=\"" + coordinate(height) + "\"";
        if (!colours.empty()) {
            svg += " style=\"fill:" + colours[index] + "\"";
        }
        svg += "/>";
    }
    std::string const base = coordinate(histogram_height + 0.5);
    svg += "</g><line class=\"axis\" x1=\"0\" y1=\"" + base + "\" x2=\"" +
           coordinate(histogram_width) + "\" y2=\"" + base + "\"/>";
    return svg + tick_labels(ticks, histogram_width, histogram_height) + "</svg>";
}

std::vector<std::string> hue_colours(Colour_tables const& tables, std::size_t steps) {
    constexpr std::size_t brightest = Colour_tables::level_count - 1;
    std::vector<std::string> colours;
    for (std::size_t step = 0; step < steps; ++step) {
        std::size_t const hue = (2 * step + 1) * Colour_tables::hue_count / (2 * steps);
        std::size_t const start = 3 * (hue * Colour_tables::level_count + brightest);
        colours.push_back(
            "rgb(" + std::to_string(tables.angle[start]) + "," +
            std::to_string(tables.angle[start + 1]) + "," +
            std::to_string(tables.angle[start + 2]) + ")");
    }
    return colours;
}

std::string colour_bar(std::string const& uri, Ticks const& ticks, std::string const& label) {
    std::string const width = coordinate(histogram_width);
    std::string const height = coordinate(bar_height);
    return svg_of_size(histogram_width, bar_height + text_drop + 5.0, label) + "><image href=\"" +
           uri + "\" width=\"" + width + "\" height=\"" + height +
           "\" preserveAspectRatio=\"none\"/><rect class=\"frame\" width=\"" + width +
           "\" height=\"" + height + "\"/>" + tick_labels(ticks, histogram_width, bar_height) +
           "</svg>";
}

std::string colour_wheel(std::string const& uri, double degree_top) {
    return wheel_svg(uri) +
           "<p class=\"wheel-note\">Centre: degree 0. Rim: " + coordinate(degree_top) +
           (degree_top < 1.0 ? " and above" : "") + ".</p>";
}

std::string mosaic_table(
    veldrane_mrv::polarization::Mosaic const& mosaic,
    std::array<polarization::Position_means, 4> const& positions) {
    std::string html = "<table class=\"cells\"><caption>Polariser and mean sample at the four "
                       "positions of a cell, as the top left of the frame shows it</caption>";
    for (std::size_t position = 0; position < positions.size(); ++position) {
        int const angle = mosaic.layout()[position];
        html += std::string(position % 2 == 0 ? "<tr>" : "") + "<td><div>" +
                polariser_drawing(angle) + "<span><strong>" + std::to_string(angle) + "°</strong>" +
                decimal(positions[position].mean, 1) + "</span></div></td>" +
                (position % 2 == 1 ? "</tr>" : "");
    }
    return html + "</table>";
}

} // namespace polarize_tool
