#include "commands/process_run.hpp"

#include "commands/commands.hpp"
#include "input/transform_settings.hpp"
#include "terminal/failure.hpp"
#include "terminal/interruption.hpp"
#include "terminal/memory.hpp"
#include "terminal/messages.hpp"
#include "terminal/progress.hpp"
#include "veldrane_mrv/polarization/pipeline.hpp"

#include <algorithm>
#include <cstdio>
#include <limits>
#include <new>
#include <numeric>
#include <stdexcept>
#include <unordered_map>
#include <utility>

namespace polarize_tool {
namespace {

namespace fs = std::filesystem;

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

// Frames side by side lose no time to one another, so threads share a frame only where there are
// fewer frames than threads.
unsigned threads_of_a_frame(unsigned jobs, std::size_t frames) {
    polarization::Pipeline_options options;
    options.threads = jobs;
    auto const shared = resolved(options).threads / std::max<std::size_t>(1, frames);
    return std::max(1U, static_cast<unsigned>(shared));
}

} // namespace

Process_run::Process_run(
    Process_options const& options, Frame_preparation const& preparation, Results const& results)
    : options_{options}, preparation_{preparation}, results_{results} {
    if (results.are_piped()) {
        pipe_.emplace([] { return interruption_flag().load(); });
    }
}

// Every failure of a frame becomes one line that names it.
template <class Action>
void Process_run::naming(Frame_place const& place, Action action) {
    try {
        action();
    } catch (Output_exhausted const&) {
        is_exhausted_ = true;
        throw;
    } catch (File_failure const&) {
        throw;
    } catch (std::exception const& error) {
        if (is_lack_of_memory(error)) {
            throw std::bad_alloc(); // no line now, which would take memory
        }
        throw File_failure(place.name(), reason_of(error));
    }
}

std::vector<Frame_place> Process_run::without_clashes(std::vector<Frame_place> const& frames) {
    Input_files inputs(frames, preparation_);
    inputs.add(results_.origin.calibration_file);
    // By the result's name: it may be made of one frame's name and another ending in two ways.
    std::unordered_map<std::string, Frame_place const*> owners;
    std::vector<Frame_place> free;
    for (Frame_place const& frame : frames) {
        std::vector<fs::path> const files = results_.files_of(frame);
        auto const overwritten =
            std::find_if(files.begin(), files.end(), [&](fs::path const& file) {
                return inputs.contains(file);
            });
        auto const taken = std::find_if(files.begin(), files.end(), [&](fs::path const& file) {
            return owners.contains(file.filename().string());
        });
        if (overwritten != files.end()) {
            failures_.push_back(
                frame.name() + ": its result would overwrite the input " + overwritten->string() +
                "; choose another folder");
        } else if (taken != files.end()) {
            Frame_place const& owner = *owners.at(taken->filename().string());
            failures_.push_back(
                frame.name() + ": given twice, or its result " + taken->string() +
                " would overwrite that of " + owner.name() +
                "; process it in a call of its own with another folder");
        } else {
            for (fs::path const& file : files) {
                owners.emplace(file.filename().string(), &frame);
            }
            free.push_back(frame);
        }
    }
    return free;
}

bool Process_run::fetch(polarization::Frame_source& source, std::size_t number, Slot& slot) {
    if (!source.has_frame(number)) {
        return false;
    }
    Frame_place const place = source.place(number);
    naming(place, [&] {
        for (fs::path const& file : results_.files_of(place)) {
            if (inputs_of_stream_) {
                inputs_of_stream_->refuse(file, "folder with -o");
            }
            refuse_existing(file, results_.existing);
        }
        source.read(number, slot.input);
    });
    return true;
}

void Process_run::work(Slot& slot) {
    Frame_place const& place = slot.input.place();
    naming(place, [&] {
        Origin const& origin = results_.origin;
        if (origin.calibration) {
            check_sensor(
                slot.input.size(), place.name(), *origin.calibration, origin.calibration_file,
                origin.region.has_value());
        }
        transform(slot);
        std::span<std::uint8_t const> const validity =
            results_.masks_pictures(place) ? slot.processor.validity(*slot.frame, slot.saturated)
                                           : std::span<std::uint8_t const>();
        if (!pipe_) {
            slot.staged = results_.stage(place, slot.processor, validity);
        }
        if (stack_) {
            stack_->write(slot.number, slot.processor);
        }
    });
}

// Bare numbers do not tell where one size ends and the next begins.
void Process_run::require_size_of_pipe(Slot const& slot) {
    if (put_out_ == 0) {
        size_put_out_ = slot.size;
    }
    if (slot.size != size_put_out_) {
        throw Output_exhausted(
            "standard output", "ends before " + slot.input.place().name() + ", which has " +
                                   to_string(slot.size) + " pixels and the frames before it " +
                                   to_string(size_put_out_) + "; process it in a call of its own");
    }
}

void Process_run::put_out(std::size_t index, Slot& slot) {
    try {
        if (index != put_out_) {
            throw Output_exhausted(
                "standard output", "ends before " + slot.input.place().name() +
                                       ", since a gap would shift all behind it");
        }
        require_size_of_pipe(slot);
        for (polarization::Plane const plane : results_.processing.planes.list()) {
            if (!pipe_->write(slot.processor.array(plane).bytes())) {
                throw Interrupted();
            }
        }
    } catch (Output_exhausted const& failure) {
        output_failure_ = failure.what();
        throw;
    }
    ++put_out_;
}

void Process_run::publish(std::size_t index, Slot& slot) {
    naming(slot.input.place(), [&] {
        if (pipe_) {
            put_out(index, slot);
        } else {
            slot.staged.publish();
        }
        if (stack_) {
            stack_->note_done(slot.number);
        }
    });
    pixels_ += slot.size.width * slot.size.height;
    if (!options_.is_quiet && !slot.input.place().is_part() && !stack_) {
        tell(line_of(slot));
    }
}

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

Process_run::Numbers Process_run::without_done(std::vector<Frame_place> const& frames) {
    Numbers numbers(frames.size());
    std::iota(numbers.begin(), numbers.end(), std::size_t{0});
    if (options_.passes_over_done) {
        done_before_ += std::erase_if(numbers, [&](std::size_t number) {
            return stack_ ? stack_->has(number) : results_.has_files_of(frames[number]);
        });
    }
    return numbers;
}

std::size_t Process_run::run(std::vector<Frame_place> const& frames, Numbers const& numbers) {
    if (numbers.empty()) {
        return 0;
    }
    if (options_.jobs == 1 || pipe_) { // whose planes keep their order
        return run_once(frames, numbers, options_.jobs, nullptr);
    }
    // What several frames at once lack, one alone may find.
    Numbers again;
    std::size_t const done = run_once(frames, numbers, options_.jobs, &again);
    return again.empty() ? done : done + run_once(frames, again, 1, nullptr);
}

std::size_t Process_run::run_once(
    std::vector<Frame_place> const& frames, Numbers const& numbers, unsigned jobs, Numbers* again) {
    std::vector<Frame_place> places;
    places.reserve(numbers.size());
    for (std::size_t const number : numbers) {
        places.push_back(frames[number]);
    }
    Frame_list source(std::move(places), options_.input.raw_layout());
    auto const outcome = through_pipeline(source, jobs, numbers);
    for (auto const& failure : outcome.failed) {
        std::size_t const number = numbers[failure.index];
        if (failure.lacked_memory && again != nullptr &&
            failure.stage != polarization::Pipeline_stage::write) {
            again->push_back(number);
        } else {
            remember(failure, frames[number]);
        }
    }
    return outcome.done.size();
}

void Process_run::remember(polarization::Frame_failure const& failure, Frame_place const& place) {
    bool const is_write = failure.stage == polarization::Pipeline_stage::write;
    if (failure.lacked_memory) {
        failures_.push_back(
            place.name() + ": " + reason_of(std::bad_alloc()) + ", or give a --region of it");
    } else if (!(pipe_ && is_write)) { // one line about the output does for all frames
        failures_.push_back(failure.message);
    }
}

polarization::Pipeline_result Process_run::through_pipeline(
    polarization::Frame_source& source, unsigned jobs, Numbers const& numbers) {
    Progress progress(source.count().value_or(0), !options_.is_quiet);
    polarization::Pipeline_options pipeline;
    pipeline.threads = jobs;
    pipeline.frames_in_flight = jobs == 1 ? 1 : 0;
    Processing processing = results_.processing;
    // A stream is taken for long.
    processing.threads =
        threads_of_a_frame(jobs, source.count().value_or(std::numeric_limits<std::size_t>::max()));
    pipeline.stop_requested = [this] { return is_exhausted_ || interruption_flag(); };
    auto const counting_failure = [&progress](auto const& stage) {
        try {
            stage();
        } catch (...) {
            progress.add(0);
            throw;
        }
    };
    auto outcome = polarization::run_pipeline(
        pipeline,
        [&processing] {
            return Slot{{}, {}, nullptr, {}, Frame_processor(processing), {}, Staged_files(), 0};
        },
        [&](std::size_t index, Slot& slot) {
            bool is_there = false;
            counting_failure([&] { is_there = fetch(source, index, slot); });
            slot.number = is_there && !numbers.empty() ? numbers[index] : index;
            return is_there;
        },
        [&](std::size_t, Slot& slot) { counting_failure([&] { work(slot); }); },
        [&](std::size_t index, Slot& slot) {
            counting_failure([&] { publish(index, slot); });
            progress.add(slot.size.width * slot.size.height);
        });
    seconds_ += progress.seconds();
    std::sort(outcome.failed.begin(), outcome.failed.end(), [](auto const& a, auto const& b) {
        return a.index < b.index;
    });
    return outcome;
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

void Process_run::report(std::size_t done, std::size_t total) {
    if (!options_.is_quiet && !is_exhausted_ && (total > 1 || done_before_ > 0)) {
        tell(summary(done, total));
    }
    for (std::string const& failure : failures_) {
        complain(failure);
    }
    // How many more would have come over a pipe shows at its end alone.
    std::string const count =
        std::to_string(done + done_before_) +
        (!options_.input.reads_standard_input()
             ? " of " + std::to_string(total + done_before_) + " frames are done"
         : done == 1 ? " frame is done"
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

int Process_run::operator()() {
    if (options_.input.reads_standard_input()) {
        return run_stream();
    }
    Found_frames found = look_for_frames(
        options_.input.inputs, options_.input.raw_layout(), options_.input.selection,
        results_.are_stacked ? polarization::Damaged_files::are_frames
                             : polarization::Damaged_files::are_failures);
    require_frames(found);
    failures_ = std::move(found.failures);
    Made_folder const folder(found.frames.empty() || pipe_ ? fs::path() : results_.folder);
    std::vector<Frame_place> frames = without_clashes(found.frames);
    if (pipe_ && !failures_.empty()) {
        output_failure_ = "standard output: stays empty, since a gap would shift what is behind it";
        frames.clear();
    }
    Counts counts;
    if (results_.are_stacked) {
        counts = run_stacks(std::move(frames));
    } else {
        Numbers const numbers = without_done(frames);
        counts = {run(frames, numbers), numbers.size()};
    }
    report(counts.done, counts.total);
    return exit_code();
}

int Process_run::exit_code() const {
    throw_if_interrupted();
    return failures_.empty() && output_failure_.empty() ? all_done : an_input_failed;
}

} // namespace polarize_tool
