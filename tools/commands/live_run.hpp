/// @file
/// Frames of a source while they arrive, to planes, to a recording, or to both.
#pragma once

#include "commands/live_statistics.hpp"
#include "input/frame_preparation.hpp"
#include "output/results.hpp"
#include "veldrane_mrv/polarization/recording_writer.hpp"

#include <cstddef>
#include <optional>

namespace polarize_tool {

/// Where frames go. What is pointed at outlives the run.
struct Live_sinks {
    /// Both, or neither if no planes are made.
    Results const* results = nullptr;
    Frame_preparation const* preparation = nullptr;
    polarization::Recording_writer* recording = nullptr;
    /// Of a stack.
    std::optional<std::size_t> frames;
    /// Of the run: behind them nobody waits for a reader of standard output that takes nothing.
    std::optional<double> seconds;
    polarization::Drop_policy drop = polarization::Drop_policy::newest;
    unsigned jobs = 0; // one a core
    bool is_quiet = false;
};

/// Frames between their arrival and their end, at most.
std::size_t frames_in_flight(unsigned jobs);

/// Does all frames that arrive, and says how many and what did not arrive.
/// @return the program's exit code
/// @throws Interrupted behind all that, if the program was interrupted
int run_live(
    polarization::Live_source& source, Live_statistics& statistics, Live_sinks const& sinks);

} // namespace polarize_tool
