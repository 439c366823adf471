#include "comparison/report.hpp"

#include <algorithm>
#include <cstdio>

namespace {

using Row = std::vector<std::string>;

std::string number(double value) {
    char text[32];
    int const digits = value < 10 ? 2 : value < 100 ? 1 : 0;
    std::snprintf(text, sizeof(text), "%.*f", digits, value);
    return text;
}

std::string cell(Measured_table const& measured, std::size_t runner, std::size_t of_case) {
    if (measured.times[runner][of_case].empty()) {
        return "-";
    }
    Case const& one = measured.table.cases[of_case];
    double value = measured.median_seconds(runner, of_case) * measured.table.units_per_second;
    if (measured.table.by_pixel) {
        value /= static_cast<double>(one.size.pixels());
    }
    char ratio[32];
    std::snprintf(ratio, sizeof(ratio), " (%.2f)", measured.ratio(runner, of_case));
    return number(value) + (runner == 0 ? "" : ratio);
}

/// A row for each contender or, where the cases are many, for each case.
std::vector<Row> rows_of(Measured_table const& measured) {
    std::vector<Row> rows{{measured.table.unit}};
    for (Case const& one : measured.table.cases) {
        rows[0].push_back(one.name);
    }
    for (std::size_t k = 0; k < measured.runners.size(); ++k) {
        rows.push_back({measured.runners[k]->name});
        for (std::size_t i = 0; i < measured.table.cases.size(); ++i) {
            rows.back().push_back(cell(measured, k, i));
        }
    }
    if (rows[0].size() <= 6) {
        return rows;
    }
    std::vector<Row> turned(rows[0].size());
    for (Row const& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            turned[i].push_back(row[i]);
        }
    }
    return turned;
}

std::string quoted(std::string const& text) {
    std::string result = "\"";
    for (char const character : text) {
        if (character == '"' || character == '\\') {
            result += '\\';
        }
        result += static_cast<unsigned char>(character) < ' ' ? ' ' : character;
    }
    return result + '"';
}

} // namespace

void write_table(std::ostream& out, Measured_table const& measured, bool markdown) {
    auto const rows = rows_of(measured);
    std::vector<std::size_t> widths(rows[0].size());
    for (Row const& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], row[i].size());
        }
    }
    out << '\n' << measured.table.title << (markdown ? ":\n\n" : "\n");
    for (std::size_t r = 0; r < rows.size(); ++r) {
        for (std::size_t i = 0; i < rows[r].size(); ++i) {
            std::string const padding(widths[i] - rows[r][i].size(), ' ');
            out << (markdown ? "| " : i == 0 ? "  " : "   ");
            out << (i == 0 ? rows[r][i] + padding : padding + rows[r][i]) << (markdown ? " " : "");
        }
        out << (markdown ? "|\n" : "\n");
        if (markdown && r == 0) {
            out << "| ---";
            for (std::size_t i = 1; i < rows[0].size(); ++i) {
                out << " | ---:";
            }
            out << " |\n";
        }
    }
    out.flush();
}

void write_facts(std::ostream& out, Facts const& facts, bool markdown) {
    for (auto const& [word, value] : facts) {
        out << (markdown ? "- " : "  ") << word << ": " << value << '\n';
    }
    out.flush();
}

void write_notes(std::ostream& out, std::vector<std::string> const& notes) {
    for (std::string const& note : notes) {
        out << "\nNote: " << note << '\n';
    }
    out.flush();
}

void write_csv(std::ostream& out, std::vector<Measured_table> const& all) {
    out << "table,case,contender,round,seconds\n";
    for (Measured_table const& measured : all) {
        for (std::size_t k = 0; k < measured.runners.size(); ++k) {
            for (std::size_t i = 0; i < measured.table.cases.size(); ++i) {
                Times const& times = measured.times[k][i];
                for (std::size_t round = 0; round < times.size(); ++round) {
                    out << measured.table.name << ',' << quoted(measured.table.cases[i].name) << ','
                        << quoted(measured.runners[k]->name) << ',' << round << ',' << times[round]
                        << '\n';
                }
            }
        }
    }
}

void write_json(
    std::ostream& out, Facts const& facts, std::vector<std::string> const& notes,
    std::vector<Measured_table> const& all) {
    out << "{";
    for (auto const& [word, value] : facts) {
        out << quoted(word) << ": " << quoted(value) << ",\n ";
    }
    out << "\"notes\": [";
    char const* separator = "";
    for (std::string const& note : notes) {
        out << separator << quoted(note);
        separator = ", ";
    }
    out << "],\n \"measurements\": [";
    separator = "\n";
    for (Measured_table const& measured : all) {
        for (std::size_t k = 0; k < measured.runners.size(); ++k) {
            for (std::size_t i = 0; i < measured.table.cases.size(); ++i) {
                if (measured.times[k][i].empty()) {
                    continue;
                }
                Case const& one = measured.table.cases[i];
                out << separator << "  {\"table\": " << quoted(measured.table.name)
                    << ", \"case\": " << quoted(one.name) << ", \"height\": " << one.size.height
                    << ", \"width\": " << one.size.width
                    << ", \"contender\": " << quoted(measured.runners[k]->name)
                    << ", \"rounds\": " << measured.times[k][i].size()
                    << ", \"median_seconds\": " << measured.median_seconds(k, i)
                    << ", \"ratio\": " << measured.ratio(k, i) << "}";
                separator = ",\n";
            }
        }
    }
    out << "\n]}\n";
}
