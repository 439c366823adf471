// What a run of `process` says of its frames.
#include "commands/process_run.hpp"
#include "terminal/failure.hpp"
#include "terminal/messages.hpp"

#include <algorithm>
#include <cstdio>

namespace polarize_tool {

namespace fs = std::filesystem;

namespace {

std::string times_of(Frame const& frame, std::vector<double> times) {
    std::sort(times.begin(), times.end());
    double const best = times.front();
    double const median = (times[(times.size() - 1) / 2] + times[times.size() / 2]) / 2.0;
    double const rate = static_cast<double>(frame.samples.size()) / median / 1000.0;
    char text[160];
    if (times.size() == 1) {
        std::snprintf(text, sizeof text, "transform %.3f ms, %.0f Mpixel/s", median, rate);
    } else {
        std::snprintf(
            text, sizeof text, "transform best %.3f ms, median %.3f ms of %zu, %.0f Mpixel/s", best,
            median, times.size(), rate);
    }
    return text;
}

} // namespace

void Process_run::tell(std::string const& line) {
    if (pipe_) {
        remark(line);
        return;
    }
    try {
        say(line);
    } catch (Output_exhausted const& failure) {
        output_failure_ = failure.what();
        is_exhausted_ = true;
    }
}

std::string Process_run::line_of(Slot& slot) const {
    Frame const& frame = *slot.frame;
    std::string line = slot.input.place().name() + ": " + to_string(frame.size()) + ", " +
                       times_of(frame, slot.processor.milliseconds()) + (pipe_ ? "" : ", wrote");
    for (fs::path const& file : results_.files_of(slot.input.place())) {
        if (file.extension() != ".json") {
            line.append(" ").append(file.string());
        }
    }
    return line;
}

std::string Process_run::summary(std::size_t done, std::size_t total) const {
    if (total == 0) {
        return std::to_string(done_before_) + " of " + std::to_string(done_before_) +
               " frames were done already, results in " + results_.folder.string();
    }
    std::string line = std::to_string(done) + " of " + std::to_string(total) + " frames";
    if (seconds_ > 0) { // some frame was begun
        char text[120];
        std::snprintf(
            text, sizeof text, " in %.3f s, %.1f frames/s, %.0f Mpixel/s", seconds_,
            static_cast<double>(done) / seconds_, static_cast<double>(pixels_) / seconds_ / 1e6);
        line += text;
    }
    if (done_before_ > 0) {
        line += ", " + std::to_string(done_before_) + " more were done already";
    }
    return done + done_before_ == 0 || pipe_ ? line
                                             : line + ", results in " + results_.folder.string();
}

void Process_run::report(Counts const& counts) {
    if (!options_.is_quiet && !is_exhausted_ && (counts.total > 1 || done_before_ > 0)) {
        tell(summary(counts.done, counts.total));
    }
    report_failures(counts);
}

void Process_run::report_failures(Counts const& counts) {
    for (std::string const& failure : failures_) {
        complain(failure);
    }
    // How many more would have come over a pipe shows at its end alone.
    std::string const count =
        std::to_string(counts.done + done_before_) +
        (!inputs_of_stream_
             ? " of " + std::to_string(counts.total + done_before_) + " frames are done"
         : counts.done == 1 ? " frame is done"
                            : " frames are done");
    if (!output_failure_.empty()) {
        complain(output_failure_ + "; " + count);
    } else if (is_exhausted_) {
        complain(
            "stopped, since further results would fail likewise; " + count +
            (is_stack_unfinished_
                 ? "; the same command with --resume, and without --overwrite, goes on"
                 : ""));
    }
}

} // namespace polarize_tool
