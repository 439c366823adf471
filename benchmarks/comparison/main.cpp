// Measures the library and what else would do its work, in turn, in one run.

#include "comparison/agreement.hpp"
#include "comparison/libraries.hpp"
#include "comparison/measurement.hpp"
#include "comparison/report.hpp"
#include "comparison/result_file.hpp"
#include "comparison/usage_error.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <iostream>
#include <optional>

namespace {

struct Options {
    std::size_t rounds = 15;
    bool quick = false;
    bool markdown = false;
    std::string library = BENCHMARK_LIBRARY;
    std::vector<std::string> libraries, sets, tables;
    std::string python = BENCHMARK_PYTHON;
    std::optional<std::string> json, csv;
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
        ->check(CLI::IsMember(
            {"frames", "placements", "widths", "cache", "weighted", "calls", "growth"}));
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

std::string joined(std::vector<std::string> const& words) {
    std::string text;
    for (std::string const& word : words) {
        text.append(text.empty() ? "" : ", ").append(word);
    }
    return text;
}

/// Keys of the JSON file, among them those that are added later, and the other contenders.
std::vector<std::string> names_in_results(
    Facts const& facts, std::vector<Runner> const& other_runners) {
    std::vector<std::string> names{"rounds", "notes", "measurements"};
    for (auto const& [word, value] : facts) {
        names.push_back(word);
    }
    for (Runner const& runner : other_runners) {
        names.push_back(runner.name);
    }
    return names;
}

std::unique_ptr<Result_file> file_at(std::optional<std::string> const& path) {
    return path ? std::make_unique<Result_file>(*path) : nullptr;
}

void run(Options const& options) {
    std::vector<Table> const tables = chosen_tables(options);
    if (tables.empty()) {
        throw Usage_error(
            "--set " + joined(options.sets) + " and --table " + joined(options.tables) +
            " have no case in common; leave one of them out");
    }
    if (options.json && options.json == options.csv) {
        throw Usage_error(
            "--json and --csv name the same file '" + *options.json +
            "'; choose another for one of them");
    }
    int const processor = stay_on_one_processor();
    Facts facts = facts_of_machine_and_build();
    facts.emplace_back("on processor", processor < 0 ? "any" : std::to_string(processor));
    auto const others = make_other_runners(options.python, BENCHMARK_NUMPY_SCRIPT);
    auto const libraries =
        load_libraries(options.library, options.libraries, names_in_results(facts, others));
    auto runners = make_library_runners(libraries);
    runners.insert(runners.end(), others.begin(), others.end());
    for (auto const& [name, library] : libraries) {
        facts.emplace_back(name, library->identification());
    }
    facts.emplace_back("rounds", std::to_string(options.rounds));
    // A file that cannot be written is noticed before the measuring, not after it.
    auto const json = file_at(options.json);
    auto const csv = file_at(options.csv);

    write_facts(std::cout, facts, options.markdown);
    Agreement const agreement = check_agreement(runners);
    std::cerr << "contenders write all of " << agreement.written << " planes and agree in "
              << agreement.compared << '\n';
    std::cout << "\nMedians of processor time; in brackets the median of the rounds' ratios to the "
                 "library.\n";
    std::vector<Measured_table> measured;
    for (Table const& table : tables) {
        measured.push_back(measure(table, runners, options.rounds));
        write_table(std::cout, measured.back(), options.markdown);
    }
    auto const notes = notes_on(libraries, BENCHMARK_SOURCES);
    write_notes(std::cout, notes);
    if (json != nullptr) {
        write_json(json->stream(), facts, notes, measured);
        json->finish();
    }
    if (csv != nullptr) {
        write_csv(csv->stream(), measured);
        csv->finish();
    }
    if (!std::cout.flush()) {
        throw std::runtime_error("cannot write to standard output; free room where it leads to");
    }
}

int fail(std::string const& why, int status) {
    std::cerr << "error: " << why << '\n';
    return status;
}

} // namespace

int main(int argument_count, char** arguments) {
    CLI::App app("Measures the processor and what else would do its work, in turn, on one core");
    Options options;
    declare(app, options);
    try {
        app.parse(argument_count, arguments);
        run(options);
        return 0;
    } catch (CLI::Success const& help) {
        return app.exit(help);
    } catch (CLI::Error const& error) {
        return fail(std::string(error.what()) + "; see --help", 2);
    } catch (Usage_error const& error) {
        return fail(error.what(), 2);
    } catch (std::exception const& error) {
        return fail(error.what(), 1);
    }
}
