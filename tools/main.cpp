#include "commands.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <new>
#include <opencv2/core/utils/logger.hpp>
#include <string>

namespace {

// One line, whatever the parser's message holds.
std::string usage_line(CLI::Error const& error) {
    std::string line = error.what();
    std::replace(line.begin(), line.end(), '\n', ' ');
    return "veldrane-polarize: " + line + " (see veldrane-polarize --help-all)";
}

// The parser would only say that a subcommand is missing.
std::string unknown_subcommand(CLI::App const& program, std::string const& word) {
    std::string known;
    for (CLI::App const* const command :
         program.get_subcommands([](CLI::App const*) { return true; })) {
        if (command->get_name() == word) {
            return {};
        }
        known += (known.empty() ? "" : ", ") + command->get_name();
    }
    return "unknown subcommand '" + word + "'; there are: " + known;
}

int run(CLI::App& program, int argument_count, char** arguments, int const& exit_code) {
    if (argument_count > 1 && arguments[1][0] != '-') {
        std::string const problem = unknown_subcommand(program, arguments[1]);
        if (!problem.empty()) {
            std::fprintf(stderr, "veldrane-polarize: %s\n", problem.c_str());
            return polarize_tool::wrong_usage;
        }
    }
    try {
        program.parse(argument_count, arguments);
        return exit_code;
    } catch (CLI::ParseError const& error) {
        if (error.get_exit_code() == 0) {
            return program.exit(error); // a request for help
        }
        std::fprintf(stderr, "%s\n", usage_line(error).c_str());
        return polarize_tool::wrong_usage;
    } catch (std::bad_alloc const&) {
        std::fprintf(stderr, "veldrane-polarize: out of memory; use a smaller frame\n");
    } catch (std::exception const& error) {
        std::fprintf(stderr, "veldrane-polarize: %s\n", error.what());
    }
    return polarize_tool::an_input_failed;
}

} // namespace

int main(int argument_count, char** arguments) {
    cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
    CLI::App program{
        "Turns raw frames of polarisation image sensors into polarimetric planes.\n"
        "Exit code: 0 all done, 1 an input failed, 2 wrong usage.",
        "veldrane-polarize"};
    program.set_help_all_flag("--help-all", "Print the help of all subcommands and exit");
    program.require_subcommand(1);
    int exit_code = polarize_tool::all_done;
    polarize_tool::add_simulate_command(program, exit_code);
    polarize_tool::add_process_command(program, exit_code);
    return run(program, argument_count, arguments, exit_code);
}
