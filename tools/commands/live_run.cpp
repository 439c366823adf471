#include "commands/live_run.hpp"

#include "commands/commands.hpp"
#include "commands/process_run.hpp"
#include "output/stack.hpp"
#include "terminal/failure.hpp"
#include "terminal/interruption.hpp"
#include "terminal/messages.hpp"

#include <map>
#include <span>
#include <string>
#include <vector>

namespace polarize_tool {
namespace {

/// Stands in front of a live source: records each frame once, and notes when it arrived.
class Watched_frames : public polarization::Frame_source {
public:
    Watched_frames(
        polarization::Live_source& source, Live_statistics& statistics,
        polarization::Recording_writer* recording)
        : source_{source}, statistics_{statistics}, recording_{recording} {}

    std::string name() const override { return source_.name(); }
    std::optional<std::size_t> count() const override { return source_.count(); }
    std::optional<polarization::Frame_shape> shape() const override { return source_.shape(); }
    Frame_place place(std::size_t number) const override { return source_.place(number); }

    bool has_frame(std::size_t number) override {
        if (!finds(number)) {
            return false;
        }
        if (number == seen_) {
            ++seen_;
            statistics_.note_arrival(number, source_.arrival());
            record(number);
        }
        return true;
    }

    /// Whether the camera did before the run was to end.
    bool went_away() const { return went_away_; }

private:
    bool finds(std::size_t number) {
        try {
            return source_.has_frame(number);
        } catch (File_failure const&) {
            went_away_ = true;
            throw;
        }
    }

    void fetch(std::size_t number, polarization::Fetched_frame& target) override {
        fetch_from(source_, number, target);
    }

    void record(std::size_t number) {
        if (recording_ == nullptr) {
            return;
        }
        try {
            recording_->append(
                std::as_bytes(std::span(source_.bytes())),
                source_.place(number).capture.value_or(polarization::Capture()));
        } catch (File_failure const& failure) {
            throw Output_exhausted(failure);
        }
    }

    polarization::Live_source& source_;
    Live_statistics& statistics_;
    polarization::Recording_writer* recording_;
    std::size_t seen_ = 0;
    bool went_away_ = false;
};

polarization::Receiving_counts receiving_counts(polarization::Live_counts const& counts) {
    polarization::Receiving_counts result{counts.received, counts.lost, counts.dropped, {}};
    for (polarization::Incomplete_cause const cause : polarization::all_incomplete_causes) {
        if (counts.of(cause) > 0) {
            result.incomplete.emplace(name_of(cause), counts.of(cause));
        }
    }
    return result;
}

// What they are is in the summary; what to do is said where anything was.
void warn_of_losses(
    std::string const& name, polarization::Live_counts const& counts,
    polarization::Drop_policy drop, bool went_away) {
    if (counts.dropped > 0) {
        warn(
            name + ": " + std::to_string(counts.dropped) + " of " +
            std::to_string(counts.received) +
            " frames were dropped, since they came faster than they were processed; give fewer "
            "--planes, a lower --frame-rate, or a larger --waiting for a burst");
    }
    // A camera that goes away leaves the frame that it was sending.
    std::uint64_t const broken_off = counts.reconnections + (went_away ? 1 : 0);
    if (counts.lost == 0 && counts.all_incomplete() <= broken_off) {
        return;
    }
    warn(
        name + ": " + told_losses(counts) +
        (drop == polarization::Drop_policy::none
             ? "; with --drop none a camera loses what is processed, written or read from standard "
               "output too slowly: give fewer --planes or a lower --frame-rate; if it is not that, "
               "the network larger buffers and packets"
             : "; give the network larger buffers and packets, or the camera a lower "
               "--frame-rate"));
}

// Where a second signal ends the program at once. No run goes on with either.
std::string line_of_what_stays(Live_sinks const& sinks) {
    std::string what;
    if (sinks.recording != nullptr) {
        std::string const file = sinks.recording->file().string();
        what = file + ".part and " + file +
               ".json.part stay, and are the recording if renamed to " + file + " and " + file +
               ".json";
    }
    if (sinks.results != nullptr && sinks.results->are_stacked) {
        what += (what.empty() ? "" : "; ") + std::string("the unfinished stack in ") +
                sinks.results->folder.string() + " stays until --overwrite replaces it";
    }
    return what.empty() ? what : "interrupted at once; " + what;
}

class Live_run {
public:
    Live_run(
        polarization::Live_source& source, Live_statistics& statistics, Live_sinks const& sinks)
        : source_{source}, statistics_{statistics}, sinks_{sinks},
          frames_{source, statistics, sinks.recording}, what_stays_{line_of_what_stays(sinks)} {}

    ~Live_run() { tell_what_stays(nullptr); }
    Live_run(Live_run const&) = delete;
    Live_run& operator=(Live_run const&) = delete;

    int operator()() {
        tell_what_stays(what_stays_.empty() ? nullptr : what_stays_.c_str());
        statistics_.watch(source_);
        return sinks_.results != nullptr ? make_planes() : record_alone();
    }

private:
    int make_planes() {
        Process_options options;
        options.jobs = sinks_.jobs;
        options.is_quiet = sinks_.is_quiet;
        options.finishes_when_interrupted = true;
        options.end_is_near = [this] {
            return interruption_flag().load() ||
                   (sinks_.seconds && statistics_.seconds() > *sinks_.seconds);
        };
        options.frame_done = [this](std::size_t number) { statistics_.note_done(number); };
        Process_run run(options, *sinks_.preparation, *sinks_.results);
        Recording stacked = recording_of_stack();
        auto const counts =
            run.do_stream(frames_, sinks_.results->are_stacked ? &stacked : nullptr);
        finish();
        run.report_failures(counts);
        int const code = run.exit_code();
        return failed_ ? an_input_failed : code;
    }

    int record_alone() {
        try {
            for (std::size_t number = 0; frames_.has_frame(number); ++number) {
                statistics_.note_done(number);
            }
        } catch (File_failure const& failure) {
            failures_.emplace_back(failure.what());
        }
        finish();
        throw_if_interrupted();
        return failed_ ? an_input_failed : all_done;
    }

    Recording recording_of_stack() const {
        Recording stacked{source_.place(0).file.string(), {}};
        for (std::size_t number = 0; number < sinks_.frames.value_or(0); ++number) {
            stacked.frames.push_back(source_.place(number));
        }
        return stacked;
    }

    void finish() {
        statistics_.end();
        auto const counts = source_.counts();
        std::string whereto;
        if (sinks_.recording != nullptr) {
            finish_recording(counts, whereto);
        }
        if (sinks_.results != nullptr && !sinks_.results->are_piped() && statistics_.done() > 0) {
            whereto += ", results in " + sinks_.results->folder.string();
        }
        if (!sinks_.is_quiet) {
            tell(statistics_.summary() + ", " + told_losses(counts) + whereto);
        }
        warn_of_losses(source_.name(), counts, sinks_.drop, frames_.went_away());
        for (std::string const& failure : failures_) {
            complain(failure);
        }
        failed_ = !failures_.empty();
    }

    // What else there is to say goes elsewhere.
    void tell(std::string const& line) {
        bool const is_piped = sinks_.results != nullptr && sinks_.results->are_piped();
        try {
            (is_piped ? remark : say)(line);
        } catch (Output_exhausted const& failure) {
            failures_.emplace_back(failure.what());
        }
    }

    void finish_recording(polarization::Live_counts const& counts, std::string& whereto) {
        try {
            sinks_.recording->finish(receiving_counts(counts));
            if (sinks_.recording->frames() > 0) {
                whereto += ", recorded " + sinks_.recording->file().string();
            }
        } catch (File_failure const& failure) {
            failures_.emplace_back(failure.what());
        }
        tell_what_stays(nullptr);
    }

    polarization::Live_source& source_;
    Live_statistics& statistics_;
    Live_sinks const& sinks_;
    Watched_frames frames_;
    std::vector<std::string> failures_;
    std::string what_stays_;
    bool failed_ = false;
};

} // namespace

std::size_t frames_in_flight(unsigned jobs) {
    polarization::Pipeline_options options;
    options.threads = jobs;
    return resolved(options).frames_in_flight;
}

int run_live(
    polarization::Live_source& source, Live_statistics& statistics, Live_sinks const& sinks) {
    return Live_run(source, statistics, sinks)();
}

} // namespace polarize_tool
