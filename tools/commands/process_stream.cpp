// Frames from standard input: how many, shows at the end, and none can be read again.
#include "commands/process_run.hpp"
#include "terminal/failure.hpp"
#include "terminal/interruption.hpp"
#include "veldrane_mrv/polarization/sample_stream.hpp"

#include <algorithm>
#include <unistd.h>

namespace polarize_tool {

int Process_run::run_stream() {
    polarization::Sample_stream stream(
        STDIN_FILENO, "standard input", "stdin", *options_.input.raw_layout(),
        options_.input.selection, [this] { return is_exhausted_ || interruption_flag(); });
    inputs_of_stream_.emplace(std::vector<Frame_place>(), preparation_);
    inputs_of_stream_->add(results_.origin.calibration_file);
    Made_folder const folder(pipe_ ? std::filesystem::path() : results_.folder);
    auto const outcome = through_pipeline(stream, options_.jobs);
    for (auto const& failure : outcome.failed) {
        remember(failure, stream.place(failure.index));
    }
    std::size_t const total = outcome.done.size() + outcome.failed.size();
    report(outcome.done.size(), total);
    int const code = exit_code();
    if (total == 0) {
        throw Usage_error("--start, --stop and --step leave no frame; choose others");
    }
    return code;
}

} // namespace polarize_tool
