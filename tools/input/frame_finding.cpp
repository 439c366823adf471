#include "input/frame_finding.hpp"

#include "terminal/failure.hpp"
#include "terminal/interruption.hpp"
#include "terminal/messages.hpp"
#include "veldrane_mrv/polarization/argument_error.hpp"

#include <algorithm>

namespace polarize_tool {

Found_frames look_for_frames(
    std::vector<std::string> const& inputs, std::optional<Raw_layout> const& raw,
    Frame_selection const& selection, polarization::Damaged_files damaged) {
    if (std::find(inputs.begin(), inputs.end(), standard_input) != inputs.end()) {
        throw Usage_error(
            "- stands for standard input, which process alone reads, and frames alone; name a "
            "file, ./- for one of that name");
    }
    try {
        Found_frames found =
            polarization::find_frames(inputs, raw, selection, throw_if_interrupted, damaged);
        for (std::string const& warning : found.warnings) {
            warn(warning);
        }
        return found;
    } catch (polarization::Argument_error const& error) {
        throw Usage_error(error.what());
    }
}

void require_frames(Found_frames const& found) {
    if (found.frames.empty() && found.failures.empty()) {
        throw Usage_error("--start, --stop and --step leave no frame; choose others");
    }
}

} // namespace polarize_tool
