/// @file
/// Many frames through the processor to files, on several threads.
#pragma once

#include "input/frame_finding.hpp"
#include "input/frame_preparation.hpp"
#include "input/input_files.hpp"
#include "output/plane_pipe.hpp"
#include "output/results.hpp"
#include "output/stack.hpp"
#include "veldrane_mrv/polarization/pipeline.hpp"

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace polarize_tool {

struct Process_options {
    Input_options input;
    unsigned jobs = 0; // one a core
    bool is_quiet = false;
    bool passes_over_done = false;
    /// Whether an interruption ends no more than the source: what came from it is still done.
    bool finishes_when_interrupted = false;
    /// Asked while standard output takes nothing: once it gives true, that is waited for no longer.
    std::function<bool()> end_is_near;
    /// Gets the number of each frame whose planes are where they go; in place of a bar.
    std::function<void(std::size_t)> frame_done;
};

/// One run of `process`.
class Process_run {
public:
    /// References to objects that outlive the run.
    Process_run(
        Process_options const& options, Frame_preparation const& preparation,
        Results const& results);

    /// Does all frames that can be done and says what could not.
    /// @return the program's exit code
    int operator()();

    struct Counts {
        std::size_t done = 0;
        std::size_t total = 0;
    };
    /// Does the frames of a source that come but once.
    /// @param recording into whose stack they go, if there are stacks; gets what the camera tells
    ///        of each frame
    Counts do_stream(polarization::Frame_source& source, Recording* recording = nullptr);
    /// Says what could not be done.
    void report_failures(Counts const& counts);
    /// @throws Interrupted
    int exit_code() const;

private:
    struct Slot {
        Frame_slot input;
        Frame room;             // of `Frame_preparation`
        Frame* frame = nullptr; // prepared, unless its rows went straight to the planes
        polarization::Size size;
        Frame_processor processor;
        std::vector<std::uint8_t> saturated; // of `Frame_preparation`
        Staged_files staged;
        std::size_t number = 0; // in the stack, if there is one
    };
    /// Frames of a list.
    using Numbers = std::vector<std::size_t>;
    /// Which frames can go ahead: those whose results fall on no input and on no other result.
    std::vector<Frame_place> without_clashes(std::vector<Frame_place> const& frames);
    /// Those that are still to be done.
    Numbers without_done(std::vector<Frame_place> const& frames);
    /// @return how many frames were done
    std::size_t run(std::vector<Frame_place> const& frames, Numbers const& numbers);
    /// Once through the pipeline. What lacked memory goes into `again`, or fails if there is none.
    std::size_t run_once(
        std::vector<Frame_place> const& frames, Numbers const& numbers, unsigned jobs,
        Numbers* again);
    /// @param numbers of the frames in the list that they are from, if they are from one
    polarization::Pipeline_result through_pipeline(
        polarization::Frame_source& source, unsigned jobs, Numbers const& numbers = {});
    /// From standard input, whose frames come but once.
    int run_stream();
    /// Recording by recording into stacks.
    Counts run_stacks(std::vector<Frame_place> frames);
    Counts run_stack(Recording const& recording, std::function<Counts()> const& run_frames);
    Counts run_recording(Recording const& recording);
    Counts run_once_through(polarization::Frame_source& source);
    bool is_stopped_early() const;
    void finish_stack(Recording const& recording);
    /// Recordings whose stacks fall on no input and on no other stack.
    std::vector<Recording> recordings_without_clashes(std::vector<Frame_place> frames);
    polarization::Size size_of_frames(Recording const& recording) const;
    void require_size_of_stack(Slot const& slot) const;
    /// @return false if there is no such frame
    bool fetch(polarization::Frame_source& source, std::size_t number, Slot& slot);
    void work(Slot& slot);
    /// Whether nothing but the transform needs the frame.
    bool takes_rows(Frame_place const& place) const;
    bool tells_saturation(Frame_place const& place) const;
    /// From what was read to planes.
    void transform(Slot& slot);
    void transform_rows(Slot& slot);
    void tell(Sample_warnings const& warnings, Frame_place const& place);
    void warn_of_imbalance(Slot& slot) const;
    void publish(std::size_t index, Slot& slot);
    /// Numbers to standard output.
    void put_out(std::size_t index, Slot& slot);
    void require_size_of_pipe(Slot const& slot);
    void remember(polarization::Frame_failure const& failure, Frame_place const& place);
    std::string line_of(Slot& slot) const;
    /// A frame whose files are there is done, whether or not anybody reads the line about it.
    void tell(std::string const& line);
    void report(Counts const& counts);
    std::string summary(std::size_t done, std::size_t total) const;
    template <class Action>
    void naming(Frame_place const& place, Action action);

    Process_options const& options_;
    Frame_preparation const& preparation_;
    Results const& results_;
    std::optional<Frame_stack> stack_; // that frames are put into
    bool is_stack_unfinished_ = false;
    std::vector<std::string> failures_;
    std::atomic<bool> is_exhausted_ = false;
    std::atomic<bool> has_warned_of_depth_ = false;
    std::atomic<bool> has_warned_of_dark_ = false;
    std::atomic<bool> has_checked_balance_ = false;
    std::optional<Input_files> inputs_of_stream_; // besides the stream
    Recording* recorded_ = nullptr;               // from the stream, into a stack
    std::optional<Plane_pipe> pipe_;
    std::size_t put_out_ = 0; // frames, to it
    polarization::Size size_put_out_;
    std::string output_failure_; // of standard output, by one thread at a time
    std::uint64_t pixels_ = 0;
    std::size_t done_before_ = 0; // frames that an earlier run did
    double seconds_ = 0.0;
};

} // namespace polarize_tool
