/// @file
/// The subcommands of veldrane-polarize.
#pragma once

namespace CLI {
class App;
}

namespace polarize_tool {

// Exit codes of the program.
inline constexpr int all_done = 0;
inline constexpr int an_input_failed = 1;
inline constexpr int wrong_usage = 2;
inline constexpr int interrupted = 130;

/// Each adds one subcommand. When the command line names it, it runs during parsing and sets
/// `exit_code` to other than all_done if it fails for a part of its inputs; it throws
/// std::exception, with a line for the user, if nothing can be done. CLI::ValidationError and its
/// kin mean wrong usage.
void add_simulate_command(CLI::App& program, int& exit_code);
void add_process_command(CLI::App& program, int& exit_code);
void add_live_command(CLI::App& program, int& exit_code);
void add_calibrate_command(CLI::App& program, int& exit_code);
void add_inspect_command(CLI::App& program, int& exit_code);
void add_report_command(CLI::App& program, int& exit_code);
void add_view_command(CLI::App& program, int& exit_code);

} // namespace polarize_tool
