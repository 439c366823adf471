#include "angle_list.hpp"

#include "failure.hpp"
#include "input_opening.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <map>
#include <sstream>
#include <string_view>

namespace polarize_tool {
namespace {

using Row = std::vector<std::string>;

std::string trimmed(std::string const& text) {
    constexpr char const* blanks = " \t\r\"";
    std::size_t const first = text.find_first_not_of(blanks);
    return first == std::string::npos
               ? std::string()
               : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

Row cells_of(std::string const& line) {
    Row cells;
    std::size_t start = 0;
    for (std::size_t end = line.find_first_of(",;\t"); end != std::string::npos;
         end = line.find_first_of(",;\t", start)) {
        cells.push_back(trimmed(line.substr(start, end - start)));
        start = end + 1;
    }
    cells.push_back(trimmed(line.substr(start)));
    return cells;
}

std::optional<double> number_in(std::string_view text) {
    double number = 0.0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    bool const is_whole = error == std::errc() && end == text.data() + text.size();
    return is_whole && std::isfinite(number) ? std::optional(number) : std::nullopt;
}

/// A table by the names of its columns.
class Table {
public:
    explicit Table(std::filesystem::path const& file) : file_(file), stream_(read_table(file)) {
        std::string line;
        std::getline(stream_, line);
        columns_ = cells_of(line);
        for (char const* const needed : {"file", "angle"}) {
            if (!column(needed)) {
                throw File_failure(
                    file, std::string("line 1 names no column '") + needed +
                              "'; begin the table with a line such as file,angle");
            }
        }
    }

    bool next() {
        std::string line;
        do {
            if (!std::getline(stream_, line)) {
                return false;
            }
            ++line_number_;
        } while (trimmed(line).empty());
        cells_ = cells_of(line);
        if (cells_.size() != columns_.size()) {
            fail(
                "has " + std::to_string(cells_.size()) + " values for " +
                std::to_string(columns_.size()) + " columns; correct it");
        }
        return true;
    }

    std::string text(char const* name) const { return cells_[*column(name)]; }

    double number(char const* name, double otherwise) const {
        std::optional<std::size_t> const place = column(name);
        if (!place) {
            return otherwise;
        }
        std::optional<double> const value = number_in(cells_[*place]);
        if (!value) {
            fail(std::string(name) + " '" + cells_[*place] + "' is no number; correct it");
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

    [[noreturn]] void fail(std::string const& problem) const {
        throw File_failure(file_, "line " + std::to_string(line_number_) + ": " + problem);
    }

    std::filesystem::path file_;
    std::istringstream stream_;
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
    std::map<std::pair<std::string, double>, Polariser_setting> by_name;
    for (Table rows(table); rows.next();) {
        std::string const name = std::filesystem::path(rows.text("file")).filename().string();
        by_name[{name, rows.number("frame", 0.0)}] = {
            rows.number("angle", 0.0), rows.number("intensity", 1.0)};
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
        settings.push_back(found->second);
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
