#include "map_faults.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <sstream>
#include <string>

namespace veldrane_mrv::polarization {
namespace {

// No sensor has longer sides; indices of pixels fit 32 bits, and sizes in bytes do not wrap.
constexpr std::size_t longest_side = 65536;

struct Range {
    float least;
    float most;
    std::string text;
};

Range range_of(std::string_view map, int bit_depth) {
    constexpr float largest = std::numeric_limits<float>::max();
    if (map == "dark_level") {
        int const sample = (1 << bit_depth) - 1;
        return {0, static_cast<float>(sample), "0 to " + std::to_string(sample)};
    }
    if (map == "orientation") {
        return {0, std::nextafter(180.0F, 0.0F), "from 0 to below 180 degrees"};
    }
    if (map == "diattenuation") {
        return {0, largest, "at least 0"};
    }
    return {std::numeric_limits<float>::denorm_min(), largest, "above 0"};
}

std::string text_of(float number) {
    if (!std::isfinite(number)) {
        return std::isnan(number) ? "NaN" : "infinite";
    }
    std::ostringstream text;
    text.precision(std::numeric_limits<float>::max_digits10);
    text << number;
    return text.str();
}

std::optional<Contradiction> number_fault(
    Map_description const& map, Calibration_maps const& maps) {
    Range const range = range_of(map.name, maps.bit_depth);
    auto const is_usable = [&](float number) {
        return number >= range.least && number <= range.most;
    };
    std::vector<float> const& numbers = maps.*map.numbers;
    bool is_good = true;
    for (float const number : numbers) {
        is_good &= is_usable(number); // no branch: eight at a time
    }
    if (is_good) {
        return std::nullopt;
    }
    auto const found = std::ranges::find_if_not(numbers, is_usable);
    auto const index = static_cast<std::size_t>(found - numbers.begin());
    std::size_t const width = maps.region.width;
    return Contradiction{
        std::string{map.name}, text_of(*found) + " at row " + std::to_string(index / width) +
                                   ", column " + std::to_string(index % width) + ", not " +
                                   range.text};
}

std::optional<Contradiction> bad_pixel_fault(Calibration_maps const& maps) {
    auto const& pixels = maps.bad_pixels;
    std::size_t const count = maps.region.width * maps.region.height;
    for (std::size_t index = 0; index < pixels.size(); ++index) {
        std::string const pixel = std::to_string(pixels[index]);
        std::string const key = "maps/bad_pixels/" + std::to_string(index);
        if (pixels[index] >= count) {
            return Contradiction{
                key, pixel + ", but the region has " + std::to_string(count) + " pixels"};
        }
        if (index > 0 && pixels[index] <= pixels[index - 1]) {
            return Contradiction{
                key, pixel + " behind " + std::to_string(pixels[index - 1]) + ", not ascending"};
        }
    }
    return std::nullopt;
}

} // namespace

std::optional<Contradiction> find_description_fault(Calibration_maps const& maps) {
    if (std::max(maps.sensor.width, maps.sensor.height) > longest_side) {
        return Contradiction{"maps/sensor", to_string(maps.sensor) + ", larger than any sensor"};
    }
    if (!fits(maps.region, maps.sensor)) {
        return Contradiction{
            "maps/region",
            to_string(maps.region) + ", which is no part of a sensor of " + to_string(maps.sensor)};
    }
    if (maps.bit_depth < 1 || maps.bit_depth > 16) {
        return Contradiction{"maps/bit_depth", std::to_string(maps.bit_depth) + ", not 1 to 16"};
    }
    return bad_pixel_fault(maps);
}

std::optional<Contradiction> find_number_fault(
    Calibration_model model, Calibration_maps const& maps) {
    std::size_t const pixels = maps.region.width * maps.region.height;
    std::size_t const all = maps.dark_level.size() + maps.gain.size() + maps.throughput.size() +
                            maps.diattenuation.size() + maps.orientation.size();
    for (Map_description const& map : maps_of(model)) {
        if ((maps.*map.numbers).size() != pixels) {
            return Contradiction{
                std::string{map.name}, std::to_string((maps.*map.numbers).size()) +
                                           " numbers, not the " + std::to_string(pixels) +
                                           " of the region"};
        }
        if (auto fault = number_fault(map, maps)) {
            return fault;
        }
    }
    if (all != pixels * maps_of(model).size()) {
        return Contradiction{
            "numbers",
            std::to_string(all) + ", more than the model " + std::string{name_of(model)} + " has"};
    }
    return std::nullopt;
}

} // namespace veldrane_mrv::polarization
