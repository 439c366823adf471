#include "commands/command_words.hpp"
#include "commands/commands.hpp"
#include "commands/ending.hpp"
#include "commands/signals.hpp"
#include "commands/view_run.hpp"
#include "terminal/failure.hpp"
#include "terminal/interruption.hpp"
#include "terminal/messages.hpp"
#include "veldrane_mrv/polarization/build_identification.hpp"
#include "veldrane_mrv/polarization/camera.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <opencv2/core/utility.hpp>
#include <opencv2/core/utils/logger.hpp>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

// Breaks descriptions between words, so that a line fits a terminal of 100 columns.
class Wrapping_formatter : public CLI::Formatter {
public:
    std::string make_option_desc(CLI::Option const* option) const override {
        constexpr std::size_t text_width = 70; // beside the names
        std::istringstream words(option->get_description());
        std::string text;
        std::size_t used = 0;
        for (std::string word; words >> word; used += word.size() + 1) {
            bool const is_full = used > 0 && used + word.size() > text_width;
            used = is_full ? 0 : used;
            text.append(text.empty() ? "" : is_full ? "\n" : " ").append(word);
        }
        return text;
    }
};

std::string version_text() {
    return "veldrane-polarize " VELDRANE_VERSION "\nprocessor: " +
           veldrane_mrv::polarization::processor_identification() + "\ncameras: " +
           (veldrane_mrv::polarization::is_built_with_cameras() ? "by Aravis"
                                                                : "left out of this build") +
           "\nview: " +
           (polarize_tool::is_built_with_view() ? "built in" : "left out of this build");
}

// The help or the version, which the parser reports like errors.
int answer(CLI::App const& program, CLI::ParseError const& request) {
    std::ostringstream text;
    int const exit_code = program.exit(request, text, text);
    std::string lines = text.str();
    if (lines.ends_with('\n')) {
        lines.pop_back();
    }
    try {
        polarize_tool::say_lines(lines);
    } catch (polarize_tool::File_failure const& failure) {
        polarize_tool::complain(failure.what());
        return polarize_tool::an_input_failed;
    }
    return exit_code;
}

int run(CLI::App& program, std::vector<std::string> const& arguments, int const& exit_code) {
    try {
        std::vector<std::string> words = polarize_tool::checked_words(program, arguments);
        std::reverse(words.begin(), words.end()); // the parser takes them from the end
        program.parse(std::move(words));
        return exit_code;
    } catch (CLI::ParseError const& error) {
        if (error.get_exit_code() == 0) {
            return answer(program, error);
        }
        polarize_tool::complain(
            "the command line is not understood; see veldrane-polarize --help-all");
        return polarize_tool::wrong_usage;
    } catch (polarize_tool::Usage_error const& error) {
        polarize_tool::complain(error.what());
        return polarize_tool::wrong_usage;
    } catch (polarize_tool::Interrupted const& interruption) {
        polarize_tool::complain(interruption.what());
        return polarize_tool::interrupted;
    } catch (std::exception const& error) {
        polarize_tool::complain(polarize_tool::reason_of(error));
    }
    return polarize_tool::an_input_failed;
}

} // namespace

int main(int argument_count, char** arguments) {
    polarize_tool::end_cleanly_on_terminate();
    // Frames run side by side already, and the pool's threads are started where nobody could do
    // without one.
    cv::setNumThreads(1);
    cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
    polarize_tool::catch_interruptions();
    CLI::App program{
        "Turns raw frames of polarisation image sensors into polarimetric planes.\n"
        "Exit code: 0 all done, 1 some inputs failed and the others are done, 2 wrong usage, "
        "130 interrupted.",
        "veldrane-polarize"};
    program.formatter(std::make_shared<Wrapping_formatter>());
    program.set_help_all_flag("--help-all", "Print the help of all subcommands and exit");
    program.set_version_flag(
        "--version", version_text, "Print the build's identification and exit");
    program.footer("Example:\n"
                   "  veldrane-polarize simulate -o frame.png --phase 2\n"
                   "  veldrane-polarize process frame.png -o results --phase 2 --bit-depth 12\n"
                   "`veldrane-polarize COMMAND --help` explains every option of a command.");
    program.require_subcommand(1);
    int exit_code = polarize_tool::all_done;
    polarize_tool::add_process_command(program, exit_code);
    polarize_tool::add_live_command(program, exit_code);
    polarize_tool::add_inspect_command(program, exit_code);
    polarize_tool::add_report_command(program, exit_code);
    polarize_tool::add_view_command(program, exit_code);
    polarize_tool::add_simulate_command(program, exit_code);
    polarize_tool::add_calibrate_command(program, exit_code);
    return run(
        program, {arguments + std::min(argument_count, 1), arguments + argument_count}, exit_code);
}
