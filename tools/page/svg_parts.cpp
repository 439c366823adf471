#include "page/svg_parts.hpp"

#include "output/inspect_output.hpp"
#include "page/page_encoding.hpp"

#include <cmath>
#include <numbers>

namespace polarize_tool {

std::string coordinate(double value) {
    std::string text = decimal(value, 2);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.ends_with('.')) {
        text.pop_back();
    }
    return text;
}

std::string svg_of_size(double width, double height, std::string const& label) {
    return "<svg viewBox=\"0 0 " + coordinate(width) + " " + coordinate(height) +
           "\" role=\"img\" aria-label=\"" + html_text(label) + "\"";
}

std::string wheel_svg(std::string const& uri) {
    constexpr double centre_x = drawing_width / 2.0;
    constexpr double centre_y = 96.0;
    constexpr double radius = 72.0;
    std::string svg = svg_of_size(
                          drawing_width, 2.0 * centre_y,
                          "Colour wheel: the direction tells the angle, the distance from the "
                          "centre the degree") +
                      "><clipPath id=\"disc\"><circle cx=\"" + coordinate(centre_x) + "\" cy=\"" +
                      coordinate(centre_y) + "\" r=\"" + coordinate(radius) +
                      "\"/></clipPath><image clip-path=\"url(#disc)\" href=\"" + uri + "\" x=\"" +
                      coordinate(centre_x - radius) + "\" y=\"" + coordinate(centre_y - radius) +
                      "\" width=\"" + coordinate(2.0 * radius) + "\" height=\"" +
                      coordinate(2.0 * radius) + "\"/>";
    for (int angle = 0; angle < 360; angle += 45) {
        double const direction = angle * std::numbers::pi / 180.0;
        double const x = centre_x + (radius + 8.0) * std::cos(direction);
        double const y = centre_y - (radius + 12.0) * std::sin(direction) + 4.0;
        char const* const anchor = angle % 180 == 90           ? "middle"
                                   : angle > 90 && angle < 270 ? "end"
                                                               : "start";
        svg += "<text x=\"" + coordinate(x) + "\" y=\"" + coordinate(y) + "\" text-anchor=\"" +
               anchor + "\">" + std::to_string(angle % 180) + "°</text>";
    }
    return svg + "</svg>";
}

} // namespace polarize_tool
