#include "page/page_colours.hpp"

#include "page/colour_tables.hpp"
#include "page/page_encoding.hpp"
#include "page/svg_parts.hpp"

#include <nlohmann/json.hpp>

namespace polarize_tool {

std::string page_colours() {
    Colour_tables const tables = colour_tables();
    nlohmann::ordered_json json;
    json["hues"] = Colour_tables::hue_count;
    json["levels"] = Colour_tables::level_count;
    json["s0"] = base64(tables.s0);
    json["degree"] = base64(tables.degree);
    json["angle"] = base64(tables.angle);
    json["angle_second"] = base64(tables.angle_second);
    json["signed"] = base64(tables.signed_share);
    json["bars"] = {
        {"s0", colour_bar_uri(tables.s0)},
        {"degree", colour_bar_uri(tables.degree)},
        {"signed", colour_bar_uri(tables.signed_share)}};
    json["wheels"] = {
        {"hue", wheel_svg(colour_wheel_uri())},
        {"second", wheel_svg(colour_wheel_uri(tables.angle_second))}};
    return json.dump();
}

} // namespace polarize_tool
