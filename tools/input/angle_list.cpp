#include "input/angle_list.hpp"

#include "terminal/failure.hpp"
#include "veldrane_mrv/polarization/input_opening.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <map>
#include <sstream>
#include <string_view>

namespace polarize_tool {
namespace {

using Row = std::vector<std::string>;

constexpr std::string_view blanks = " \t\r";

std::string_view trimmed(std::string_view text) {
    std::size_t const first = text.find_first_not_of(blanks);
    return first == std::string_view::npos
               ? std::string_view()
               : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// The cell at the start of `rest`, and the rest behind it. Quotes keep a separator in a name; a
// quote in them stands there twice.
std::string cut_cell(std::string_view& rest, char separator) {
    std::string cell;
    bool is_quoted = false;
    std::size_t end = 0;
    for (; end < rest.size() && (is_quoted || rest[end] != separator); ++end) {
        if (rest[end] != '"') {
            cell += rest[end];
        } else if (is_quoted && rest.substr(end + 1).starts_with('"')) {
            cell += rest[++end];
        } else {
            is_quoted = !is_quoted;
        }
    }
    rest.remove_prefix(end);
    return std::string(trimmed(cell));
}

Row cells_of(std::string_view line, char separator) {
    Row cells = {cut_cell(line, separator)};
    while (!line.empty()) {
        line.remove_prefix(1);
        cells.push_back(cut_cell(line, separator));
    }
    return cells;
}

// A line of names holds no comma but as a separator, so a semicolon or tab in it is one.
char separator_of(std::string_view first_line) {
    for (char const separator : {';', '\t'}) {
        if (first_line.find(separator) != std::string_view::npos) {
            return separator;
        }
    }
    return ',';
}

std::string in_lower_case(std::string text) {
    for (char& letter : text) {
        letter = letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
    }
    return text;
}

std::optional<double> number_in(std::string_view text) {
    double number = 0.0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    bool const is_whole = error == std::errc() && end == text.data() + text.size();
    return is_whole && std::isfinite(number) ? std::optional(number) : std::nullopt;
}

// As spreadsheets write numbers: a plus in front, and a comma for the point where it separates no
// columns.
std::optional<double> number_in_cell(std::string text, char separator) {
    if (text.size() > 1 && text[0] == '+' && text[1] != '-') {
        text.erase(0, 1);
    }
    std::size_t const comma = text.find(',');
    if (comma != std::string::npos && separator != ',' && text.find('.') == std::string::npos) {
        text[comma] = '.';
    }
    return number_in(text);
}

/// A table by the names of its columns.
class Table {
public:
    explicit Table(std::filesystem::path const& file)
        : file_{file}, stream_{polarization::read_table(file)} {
        std::string line;
        std::getline(stream_, line);
        constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";
        if (line.starts_with(byte_order_mark)) {
            line.erase(0, byte_order_mark.size());
        }
        // Text of UTF-16 begins with a mark of its own, or has a zero in each Latin letter.
        if (line.starts_with("\xFF\xFE") || line.starts_with("\xFE\xFF") ||
            line.find('\0') != std::string::npos) {
            throw File_failure(file, "is UTF-16, or no text; save it as CSV in UTF-8");
        }
        separator_ = separator_of(line);
        for (std::string const& name : cells_of(line, separator_)) {
            columns_.push_back(in_lower_case(name));
        }
        for (char const* const known : {"file", "angle", "intensity", "frame"}) {
            if (std::ranges::count(columns_, known) > 1) {
                throw File_failure(
                    file,
                    std::string("line 1 names the column '") + known + "' twice; leave one out");
            }
        }
        for (char const* const needed : {"file", "angle"}) {
            if (!column(needed)) {
                throw File_failure(
                    file, std::string("line 1 names no column '") + needed +
                              "'; begin the table with a line such as file,angle");
            }
        }
    }

    // Spreadsheets end a table with rows of separators alone.
    bool next() {
        do {
            std::string line;
            if (!std::getline(stream_, line)) {
                return false;
            }
            ++line_number_;
            cells_ = cells_of(line, separator_);
        } while (std::ranges::all_of(cells_, [](auto const& cell) { return cell.empty(); }));
        if (cells_.size() != columns_.size()) {
            fail(
                "has " + std::to_string(cells_.size()) + " values for " +
                std::to_string(columns_.size()) + " columns; correct it");
        }
        return true;
    }

    std::size_t line_number() const { return line_number_; }

    [[noreturn]] void fail(std::string const& problem) const {
        throw File_failure(file_, "line " + std::to_string(line_number_) + ": " + problem);
    }

    std::string text(char const* name) const { return cells_[*column(name)]; }

    double number(char const* name, double otherwise) const {
        std::optional<std::size_t> const place = column(name);
        if (!place) {
            return otherwise;
        }
        std::optional<double> const value = number_in_cell(cells_[*place], separator_);
        if (!value) {
            fail(
                std::string(name) + " '" + cells_[*place] +
                "' is no number; give a decimal one such as 22.5");
        }
        return *value;
    }

private:
    std::optional<std::size_t> column(char const* name) const {
        auto const found = std::find(columns_.begin(), columns_.end(), name);
        return found == columns_.end()
                   ? std::nullopt
                   : std::optional(static_cast<std::size_t>(found - columns_.begin()));
    }

    std::filesystem::path file_;
    std::istringstream stream_;
    char separator_ = ',';
    Row columns_;
    Row cells_;
    std::size_t line_number_ = 1;
};

} // namespace

std::optional<double> angle_in_name(std::filesystem::path const& file) {
    constexpr std::string_view marker = "angle_";
    std::string const name = file.stem().string();
    std::size_t const place = name.rfind(marker);
    if (place == std::string::npos) {
        return std::nullopt;
    }
    std::string_view const behind = std::string_view(name).substr(place + marker.size());
    std::size_t const end = std::min(behind.find_first_not_of("0123456789.-"), behind.size());
    return number_in(behind.substr(0, end));
}

std::vector<Polariser_setting> settings_from_table(
    std::filesystem::path const& table, std::vector<Frame_place> const& frames) {
    struct Found {
        Polariser_setting setting;
        std::size_t line;
    };
    std::map<std::pair<std::string, double>, Found> by_name;
    for (Table rows(table); rows.next();) {
        std::string const name = std::filesystem::path(rows.text("file")).filename().string();
        auto const [place, is_new] = by_name.try_emplace(
            {name, rows.number("frame", 0.0)},
            Found{{rows.number("angle", 0.0), rows.number("intensity", 1.0)}, rows.line_number()});
        if (!(place->second.setting.intensity > 0.0)) {
            rows.fail(
                "intensity '" + rows.text("intensity") +
                "' is not above 0; give the light relative to the other frames");
        }
        if (!is_new) {
            rows.fail(
                "names " + name + " again, after line " + std::to_string(place->second.line) +
                "; leave one out, or tell files apart by their names and not by their folders");
        }
    }
    std::vector<Polariser_setting> settings;
    for (Frame_place const& frame : frames) {
        auto const found =
            by_name.find({frame.file.filename().string(), static_cast<double>(frame.index)});
        if (found == by_name.end()) {
            throw File_failure(
                frame.name(), "has no row in " + table.string() + "; add one" +
                                  (frame.is_part() ? ", with its number in a column 'frame'" : ""));
        }
        settings.push_back(found->second.setting);
    }
    return settings;
}

std::vector<Polariser_setting> settings_from_names(std::vector<Frame_place> const& frames) {
    std::vector<Polariser_setting> settings;
    for (Frame_place const& frame : frames) {
        std::optional<double> const angle = angle_in_name(frame.file);
        if (!angle || frame.is_part()) {
            throw File_failure(
                frame.name(), "its name tells no angle, as in cal_angle_045.0.png; give a table "
                              "with --angles");
        }
        settings.push_back({*angle, 1.0});
    }
    return settings;
}

} // namespace polarize_tool
