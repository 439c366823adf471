#include "commands/commands.hpp"
#include "input/frame.hpp"
#include "input/frame_finding.hpp"
#include "input/input_options.hpp"
#include "input/option_values.hpp"
#include "output/inspect_output.hpp"
#include "terminal/failure.hpp"
#include "terminal/interruption.hpp"
#include "terminal/messages.hpp"
#include "terminal/visible_text.hpp"
#include "veldrane_mrv/polarization/inspection.hpp"

#include <CLI/CLI.hpp>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace polarize_tool {
namespace {

struct Command_line {
    Input_options input;
    std::optional<int> bit_depth;
    std::optional<double> polariser_angle;
    bool as_json = false;
};

constexpr char const* angle_help =
    "The frames show an evenly lit surface through a linear polariser that lets pass light at DEG "
    "degrees: 0 along the rows, growing counter-clockwise. This tells the phase, best at 0, 45, 90 "
    "or 135";

constexpr char const* example =
    "Examples:\n"
    "  veldrane-polarize inspect frame.png\n"
    "  veldrane-polarize inspect behind_polariser.png --polarizer-angle 0\n"
    "Nothing is written. A frame of an unknown scene cannot tell the phase of the mosaic; one\n"
    "taken through a polariser can.";

std::string inspected(Frame const& frame, std::string const& name, Command_line const& line) {
    polarization::Inspection const inspection = polarization::inspect(frame.view(), line.bit_depth);
    std::optional<polarization::Phase_answer> answer;
    if (line.polariser_angle) {
        answer = polarization::phase_behind_polariser(inspection.positions, *line.polariser_angle);
    }
    return line.as_json ? inspection_json(name, inspection, answer)
                        : inspection_text(visible(name), inspection, answer);
}

int run_inspect(Command_line const& line) {
    std::optional<Raw_layout> const raw = line.input.raw_layout();
    Found_frames found = look_for_frames(line.input.inputs, raw, line.input.selection);
    require_frames(found);
    std::vector<std::string>& failures = found.failures;
    Frame_list source(found.frames, raw);
    Frame_slot slot;
    bool is_first = true;
    for (std::size_t number = 0; number < found.frames.size(); ++number) {
        Frame_place const& place = found.frames[number];
        if (interruption_flag()) {
            break;
        }
        try {
            source.read(number, slot);
            std::string const text = inspected(slot.frame(), place.name(), line);
            say_lines(is_first || line.as_json ? text : "\n" + text);
            is_first = false;
        } catch (Output_exhausted const& failure) {
            failures.emplace_back(failure.what());
            break; // standard output takes nothing more
        } catch (File_failure const& failure) {
            failures.emplace_back(failure.what());
        } catch (std::exception const& error) {
            failures.push_back(place.name() + ": " + reason_of(error));
        }
    }
    for (std::string const& failure : failures) {
        complain(failure);
    }
    throw_if_interrupted();
    return failures.empty() ? all_done : an_input_failed;
}

} // namespace

void add_inspect_command(CLI::App& program, int& exit_code) {
    auto const line = std::make_shared<Command_line>();
    CLI::App& command = *program.add_subcommand(
        "inspect", "Tells what raw frames say about their camera: depth, saturation, mosaic.");
    add_input_options(command, line->input);
    add_whole_number(
        command, "--bit-depth", line->bit_depth, {1, 16},
        "Significant bits of a sample, if known, for the full scale; otherwise guessed");
    add_number(command, "--polarizer-angle", {-360.0, 360.0}, angle_help, [line](double angle) {
        line->polariser_angle = angle;
    })->type_name("DEG");
    command.add_flag("--json", line->as_json, "One JSON object a frame, each on a line of its own");
    command.footer(example);
    command.callback([line, &exit_code] { exit_code = run_inspect(*line); });
}

} // namespace polarize_tool
