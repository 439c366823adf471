#include "veldrane_mrv/polarization/mosaic.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

#include <algorithm>
#include <charconv>
#include <optional>

namespace veldrane_mrv::polarization {
namespace {

constexpr std::array<Mosaic::Layout, 4> layouts = {
    {{0, 135, 45, 90}, {45, 90, 0, 135}, {90, 45, 135, 0}, {135, 0, 90, 45}}};

std::string text_of(Mosaic::Layout const& layout) {
    std::string text;
    for (int const angle : layout) {
        text += text.empty() ? "" : ",";
        text += std::to_string(angle);
    }
    return text;
}

std::string quoted(std::string_view text) {
    std::string result{'"'};
    result += text;
    result += '"';
    return result;
}

[[noreturn]] void refuse(std::string const& value) {
    std::string remedy = "give the angles of the top-left cell row by row, one of";
    for (std::size_t phase = 0; phase < layouts.size(); ++phase) {
        remedy += phase == 0 ? " " : "; ";
        remedy += text_of(layouts[phase]);
        remedy += " (phase ";
        remedy += std::to_string(phase);
        remedy += ")";
    }
    throw Argument_error{"the layout of the mosaic", value, remedy};
}

// Phases by the parity of the row and column at which the top-left cell of phase 0 is found: a cell
// may begin with any of the four angles.
constexpr std::array<std::array<int, 2>, 2> phase_by_first_row_and_column = {{{0, 3}, {1, 2}}};

std::optional<int> parse_angle(std::string_view text) {
    constexpr std::string_view blanks = " \t";
    std::size_t const start = std::min(text.find_first_not_of(blanks), text.size());
    text.remove_prefix(start);
    text = text.substr(0, text.find_last_not_of(blanks) + 1);
    int angle = 0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), angle);
    if (error != std::errc{} || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return angle;
}

} // namespace

Mosaic Mosaic::from_phase(int phase) {
    if (phase < 0 || phase > 3) {
        throw Argument_error{"the phase", std::to_string(phase), "give 0, 1, 2 or 3"};
    }
    return Mosaic{phase};
}

Mosaic Mosaic::from_layout(Layout const& layout) {
    auto const found = std::ranges::find(layouts, layout);
    if (found == layouts.end()) {
        refuse(text_of(layout));
    }
    return Mosaic{static_cast<int>(found - layouts.begin())};
}

Mosaic Mosaic::parse(std::string_view layout) {
    Layout angles{};
    std::size_t count = 0;
    for (std::size_t start = 0; start <= layout.size(); ++count) {
        std::size_t const end = std::min(layout.find(',', start), layout.size());
        std::optional<int> const angle = parse_angle(layout.substr(start, end - start));
        if (!angle || count == angles.size()) {
            refuse(quoted(layout));
        }
        angles[count] = *angle;
        start = end + 1;
    }
    if (count != angles.size()) {
        refuse(quoted(layout));
    }
    return from_layout(angles);
}

Mosaic::Layout const& Mosaic::layout() const {
    return layouts[static_cast<std::size_t>(phase_)];
}

std::string Mosaic::to_string() const {
    return text_of(layout());
}

int Mosaic::angle(std::size_t row, std::size_t column) const {
    return layout()[cell_position(row, column)];
}

Mosaic Mosaic::of_region(std::size_t row_offset, std::size_t column_offset) const {
    std::size_t const first_row = (phase_ == 1 || phase_ == 2 ? 1 : 0) + row_offset;
    std::size_t const first_column = (phase_ == 2 || phase_ == 3 ? 1 : 0) + column_offset;
    return Mosaic{phase_by_first_row_and_column[first_row & 1][first_column & 1]};
}

Mosaic Mosaic::opposite() const {
    return Mosaic{phase_ ^ 2};
}

std::array<Mosaic, 4> all_mosaics() {
    return {
        Mosaic::from_phase(0), Mosaic::from_phase(1), Mosaic::from_phase(2), Mosaic::from_phase(3)};
}

} // namespace veldrane_mrv::polarization
