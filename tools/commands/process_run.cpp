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
#include <limits>
#include <new>
#include <numeric>
#include <stdexcept>
#include <unordered_map>
#include <utility>

namespace polarize_tool {
namespace {

namespace fs = std::filesystem;

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
        pipe_.emplace([this] { return is_stopped_early(); }, options.end_is_near);
    }
}

bool Process_run::is_stopped_early() const {
    return is_exhausted_ || (interruption_flag() && !options_.finishes_when_interrupted);
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
    try {
        if (!source.has_frame(number)) {
            return false;
        }
    } catch (Output_exhausted const&) { // of a source that keeps what it reads
        is_exhausted_ = true;
        throw;
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
        if (origin.calibration && !preparation_.takes_part_of_sensor()) {
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
        if (recorded_ != nullptr) {
            recorded_->frames[slot.number].capture = slot.input.place().capture;
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
    Progress progress(source.count().value_or(0), !options_.is_quiet && !options_.frame_done);
    polarization::Pipeline_options pipeline;
    pipeline.threads = jobs;
    pipeline.frames_in_flight = jobs == 1 ? 1 : 0;
    Processing processing = results_.processing;
    // A stream is taken for long.
    processing.threads =
        threads_of_a_frame(jobs, source.count().value_or(std::numeric_limits<std::size_t>::max()));
    pipeline.stop_requested = [this] { return is_stopped_early(); };
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
            if (options_.frame_done) {
                options_.frame_done(index);
            }
        });
    seconds_ += progress.seconds();
    std::sort(outcome.failed.begin(), outcome.failed.end(), [](auto const& a, auto const& b) {
        return a.index < b.index;
    });
    return outcome;
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
    report(counts);
    return exit_code();
}

int Process_run::exit_code() const {
    throw_if_interrupted();
    return failures_.empty() && output_failure_.empty() ? all_done : an_input_failed;
}

} // namespace polarize_tool
