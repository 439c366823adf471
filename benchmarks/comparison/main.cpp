// Measures the library and what else would do its work, in turn, in one run.

#include "comparison/agreement.hpp"
#include "comparison/measurement.hpp"
#include "comparison/report.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <fstream>
#include <iostream>

namespace {

struct Options {
    std::size_t rounds = 15;
    bool quick = false;
    bool markdown = false;
    std::string library = BENCHMARK_LIBRARY;
    std::vector<std::string> libraries, sets, tables;
    std::string python = BENCHMARK_PYTHON;
    std::string json, csv;
};

std::vector<std::string> set_names() {
    std::vector<std::string> names;
    for (Output_set const& set : output_sets) {
        names.emplace_back(set.name);
    }
    return names;
}

void declare(CLI::App& app, Options& options) {
    app.add_option("--rounds", options.rounds, "Measurements of each contender in each case")
        ->check(CLI::Range(1, 10'000))
        ->capture_default_str();
    app.add_flag("--quick", options.quick, "Small frames: shows that everything works, no figures");
    app.add_option("--library-under-test", options.library, "The build that ratios refer to");
    app.add_option("--library", options.libraries, "NAME=PATH: another build, measured beside it");
    app.add_option("--set", options.sets, "Only this set of planes (repeatable)")
        ->check(CLI::IsMember(set_names()));
    app.add_option("--table", options.tables, "Only this table (repeatable)")
        ->check(CLI::IsMember({"frames", "cache", "scalar", "calls", "growth"}));
    app.add_option("--python", options.python, "The Python that has NumPy")->capture_default_str();
    app.add_option("--json", options.json, "Medians and ratios to a file");
    app.add_option("--csv", options.csv, "Each single measurement to a file");
    app.add_flag(
        "--markdown", options.markdown, "Prints the tables as docs/performance.md holds them");
}

template <typename List, typename Value>
bool asks_for(List const& wanted, Value const& value) {
    return wanted.empty() || std::find(wanted.begin(), wanted.end(), value) != wanted.end();
}

std::vector<Table> chosen_tables(Options const& options) {
    std::vector<Table> tables = make_tables(options.quick);
    std::erase_if(
        tables, [&](Table const& table) { return !asks_for(options.tables, table.name); });
    for (Table& table : tables) {
        std::erase_if(table.cases, [&](Case const& one) {
            for (Output_set const& set : output_sets) {
                if (set.planes == one.planes) {
                    return !asks_for(options.sets, set.name);
                }
            }
            return false;
        });
    }
    std::erase_if(tables, [](Table const& table) { return table.cases.empty(); });
    return tables;
}

using Libraries = std::vector<std::pair<std::string, std::shared_ptr<Loaded_library>>>;

Libraries load_libraries(Options const& options, Facts& facts) {
    Libraries libraries;
    auto const load = [&](std::string const& name, std::string const& path) {
        libraries.emplace_back(name, std::make_shared<Loaded_library>(path));
        facts.emplace_back(name, libraries.back().second->identification());
    };
    load("library", options.library);
    for (std::string const& argument : options.libraries) {
        std::size_t const equals = argument.find('=');
        if (equals == 0 || equals == std::string::npos) {
            throw std::runtime_error("--library '" + argument + "' is not of the form NAME=PATH");
        }
        load(argument.substr(0, equals), argument.substr(equals + 1));
    }
    return libraries;
}

std::ofstream open_for_writing(std::string const& path) {
    std::ofstream file(path);
    if (!file) {
        throw std::runtime_error("cannot write '" + path + "'; choose another file");
    }
    return file;
}

void run(Options const& options) {
    int const processor = stay_on_one_processor();
    Facts facts = facts_of_machine_and_build();
    facts.emplace_back("on processor", processor < 0 ? "any" : std::to_string(processor));
    auto const runners =
        make_runners(load_libraries(options, facts), options.python, BENCHMARK_NUMPY_SCRIPT);
    facts.emplace_back("rounds", std::to_string(options.rounds));
    // A file that cannot be written is noticed before the measuring, not after it.
    auto json = options.json.empty() ? std::ofstream() : open_for_writing(options.json);
    auto csv = options.csv.empty() ? std::ofstream() : open_for_writing(options.csv);

    write_facts(std::cout, facts, options.markdown);
    std::size_t const compared = check_agreement(runners);
    std::cerr << "contenders agree in " << compared << " planes\n";
    std::cout << "\nMedians of processor time; in brackets the median of the rounds' ratios to the "
                 "library.\n";
    std::vector<Table> const tables = chosen_tables(options);
    std::vector<Measured_table> measured;
    for (Table const& table : tables) {
        measured.push_back(measure(table, runners, options.rounds));
        write_table(std::cout, measured.back(), options.markdown);
    }
    if (json.is_open()) {
        write_json(json, facts, measured);
    }
    if (csv.is_open()) {
        write_csv(csv, measured);
    }
}

} // namespace

int main(int argument_count, char** arguments) {
    CLI::App app("Measures the processor and what else would do its work, in turn, on one core");
    Options options;
    declare(app, options);
    CLI11_PARSE(app, argument_count, arguments);
    try {
        run(options);
    } catch (std::exception const& error) {
        std::cerr << "error: " << error.what() << '\n';
        return 1;
    }
}
