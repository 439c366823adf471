// Frames from standard input: how many, shows at the end, and none can be read again.
#include "commands/process_run.hpp"
#include "terminal/failure.hpp"
#include "terminal/interruption.hpp"
#include "veldrane_mrv/polarization/sample_stream.hpp"

#include <algorithm>
#include <unistd.h>

namespace polarize_tool {

Process_run::Counts Process_run::do_stream(
    polarization::Frame_source& source, Recording* recording) {
    inputs_of_stream_.emplace(std::vector<Frame_place>(), preparation_);
    inputs_of_stream_->add(results_.origin.calibration_file);
    Made_folder const folder(pipe_ ? std::filesystem::path() : results_.folder);
    if (recording == nullptr) {
        return run_once_through(source);
    }
    recorded_ = recording;
    return run_stack(*recording, [&] { return run_once_through(source); });
}

Process_run::Counts Process_run::run_once_through(polarization::Frame_source& source) {
    auto const outcome = through_pipeline(source, options_.jobs);
    for (auto const& failure : outcome.failed) {
        remember(failure, source.place(failure.index));
    }
    return {outcome.done.size(), outcome.done.size() + outcome.failed.size()};
}

int Process_run::run_stream() {
    polarization::Sample_stream stream(
        STDIN_FILENO, "standard input", "stdin", *options_.input.raw_layout(),
        options_.input.selection, [this] { return is_exhausted_ || interruption_flag(); });
    Counts const counts = do_stream(stream);
    report(counts);
    int const code = exit_code();
    if (counts.total == 0) {
        throw Usage_error("--start, --stop and --step leave no frame; choose others");
    }
    return code;
}

} // namespace polarize_tool
