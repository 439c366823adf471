#include "maps_json.hpp"

#include "array_file.hpp"

namespace veldrane_mrv::polarization {
namespace {

constexpr std::size_t array_version = 1;
constexpr std::size_t hash_digits = 16;
// In the text no name can hold it: quotation marks in names are escaped.
constexpr std::string_view no_bad_pixels = "\"bad_pixels\": null";

std::size_t bounded_count(Node const& node) {
    std::size_t const count = node.count();
    if (count > 65536) {
        node.refuse("the number is " + std::to_string(count) + ", more than any sensor has");
    }
    return count;
}

std::string read_hash(Node const& node) {
    std::string const text = node.text();
    if (!text.starts_with(hash_start) || text.size() != hash_start.size() + hash_digits ||
        text.find_first_not_of("0123456789abcdef", hash_start.size()) != std::string::npos) {
        node.refuse("this is \"" + text + "\", no hash such as xxh3-64:0123456789abcdef");
    }
    return text.substr(hash_start.size());
}

// Beside the text: a path could lead anywhere.
std::string read_file_name(Node const& node) {
    std::string const name = node.text();
    if (name.empty() || name == "." || name == ".." ||
        name.find_first_of(std::string_view{"/\0", 2}) != std::string::npos) {
        node.refuse("this is \"" + name + "\", no name of a file beside this one");
    }
    return name;
}

void check_planes(Node const& node, Calibration_model model) {
    auto const expected = maps_of(model);
    node.require_array(expected.size());
    for (std::size_t index = 0; index < expected.size(); ++index) {
        if (node[index].text() != expected[index].name) {
            node[index].refuse(
                "this is \"" + node[index].text() + "\", not \"" +
                std::string{expected[index].name} + "\"");
        }
    }
}

void check_version(Node const& node) {
    std::size_t const version = node.count();
    if (version != array_version) {
        node.refuse(
            "version " + std::to_string(version) + " of the array file is not known, only 1",
            "update this software, or calibrate again with this one");
    }
}

std::vector<std::uint32_t> read_bad_pixels(Node const& node) {
    std::vector<std::uint32_t> pixels(node.array_size());
    for (std::size_t index = 0; index < pixels.size(); ++index) {
        std::size_t const pixel = node[index].count();
        if (pixel > std::numeric_limits<std::uint32_t>::max()) {
            node[index].refuse("no sensor has so many pixels");
        }
        pixels[index] = static_cast<std::uint32_t>(pixel);
    }
    return pixels;
}

} // namespace

Json maps_json(
    Calibration_model model, Calibration_maps const& maps, std::string const& array_stem) {
    std::string const hash = array_hash(model, maps);
    Json planes = Json::array();
    for (Map_description const& map : maps_of(model)) {
        planes.push_back(map.name);
    }
    return {
        {"file", array_name(array_stem, hash)},
        {"version", array_version},
        {"hash", std::string{hash_start} + hash},
        {"sensor", {{"width", maps.sensor.width}, {"height", maps.sensor.height}}},
        {"region",
         {{"column", maps.region.column},
          {"row", maps.region.row},
          {"width", maps.region.width},
          {"height", maps.region.height}}},
        {"bit_depth", maps.bit_depth},
        {"planes", planes},
        {"bad_pixels", nullptr}};
}

std::string with_bad_pixels(std::string const& text, Calibration_maps const& maps) {
    std::string result = text;
    return result.replace(
        text.find(no_bad_pixels), no_bad_pixels.size(),
        "\"bad_pixels\": " + Json(maps.bad_pixels).dump());
}

Maps_text read_maps(Node const& node, Calibration_model model) {
    node.require_object(
        {"file", "version", "hash", "sensor", "region", "bit_depth", "planes", "bad_pixels"});
    check_version(node["version"]);
    check_planes(node["planes"], model);
    Node const sensor = node["sensor"];
    sensor.require_object({"width", "height"});
    Node const region = node["region"];
    region.require_object({"column", "row", "width", "height"});
    Calibration_maps maps;
    maps.sensor = {bounded_count(sensor["width"]), bounded_count(sensor["height"])};
    maps.region = {
        bounded_count(region["column"]), bounded_count(region["row"]),
        bounded_count(region["width"]), bounded_count(region["height"])};
    maps.bit_depth = static_cast<int>(bounded_count(node["bit_depth"]));
    maps.bad_pixels = read_bad_pixels(node["bad_pixels"]);
    return {maps, read_file_name(node["file"]), read_hash(node["hash"])};
}

} // namespace veldrane_mrv::polarization
