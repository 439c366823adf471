#include "input/pixel_list.hpp"

#include "input/option_values.hpp"
#include "terminal/failure.hpp"
#include "veldrane_mrv/polarization/input_opening.hpp"

#include <algorithm>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>

namespace polarize_tool {
namespace {

constexpr std::size_t most_shown = 40;

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view blanks = " \t\r";
    std::size_t const first = std::min(text.find_first_not_of(blanks), text.size());
    return text.substr(first, text.find_last_not_of(blanks) + 1 - first);
}

std::string place_of(std::size_t line) {
    return "line " + std::to_string(line) + ": ";
}

} // namespace

Pixel_list::Pixel_list(std::filesystem::path const& file) : file_{file} {
    std::istringstream lines(polarization::read_table(file));
    std::string text;
    for (std::size_t line = 1; std::getline(lines, text); ++line) {
        constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";
        if (line == 1 && text.starts_with(byte_order_mark)) {
            text.erase(0, byte_order_mark.size());
        }
        std::string_view const words = trimmed(text);
        std::size_t const comma = std::min(words.find(','), words.size());
        std::string const first(trimmed(words.substr(0, comma)));
        std::string const second(trimmed(words.substr(std::min(comma + 1, words.size()))));
        bool const is_head =
            line == 1 && lower_case(first) == "column" && lower_case(second) == "row";
        if (words.empty() || is_head) {
            continue;
        }
        auto const column = whole_number(first);
        auto const row = whole_number(second);
        if (!column || !row) {
            throw File_failure(
                file, place_of(line) + "is '" + text.substr(0, most_shown) +
                          "'; give a pixel as column,row in decimal digits, such as 640,480");
        }
        pixels_.push_back({*column, *row, line});
    }
}

std::vector<std::uint32_t> Pixel_list::indices(
    polarization::Size const& sensor, polarization::Region const& region) const {
    std::vector<std::uint32_t> indices;
    for (Pixel const& pixel : pixels_) {
        if (pixel.column >= sensor.width || pixel.row >= sensor.height) {
            throw File_failure(
                file_, place_of(pixel.line) + "column " + std::to_string(pixel.column) + ", row " +
                           std::to_string(pixel.row) + " is outside of the sensor's " +
                           to_string(sensor) + "; give columns and rows from 0 on");
        }
        bool const is_in_region = pixel.column >= region.column && pixel.row >= region.row &&
                                  pixel.column - region.column < region.width &&
                                  pixel.row - region.row < region.height;
        if (is_in_region) {
            indices.push_back(static_cast<std::uint32_t>(
                (pixel.row - region.row) * region.width + pixel.column - region.column));
        }
    }
    return indices;
}

} // namespace polarize_tool
