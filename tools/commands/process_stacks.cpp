// The part of a run of `process` that puts all frames of a recording into one file a plane.
#include "commands/process_run.hpp"
#include "input/input_files.hpp"
#include "terminal/failure.hpp"
#include "terminal/interruption.hpp"
#include "terminal/memory.hpp"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace polarize_tool {

namespace fs = std::filesystem;

std::vector<Recording> Process_run::recordings_without_clashes(
    std::vector<Frame_place> frames_of_all) {
    Input_files inputs(frames_of_all, preparation_);
    inputs.add(results_.origin.calibration_file);
    std::unordered_map<std::string, std::string> owners; // of names of files
    std::vector<Recording> free;
    for (Recording& recording : recordings_of(std::move(frames_of_all))) {
        std::string const name = recording.frames.front().file.string();
        std::vector<fs::path> const files = Frame_stack::files_of(results_, recording);
        auto const overwritten = std::ranges::find_if(
            files, [&](fs::path const& file) { return inputs.contains(file); });
        auto const taken = std::ranges::find_if(
            files, [&](fs::path const& file) { return owners.contains(file.string()); });
        std::unordered_set<std::string> frames;
        auto const twice = std::ranges::find_if(recording.frames, [&](Frame_place const& frame) {
            return !frames.insert(frame.name()).second;
        });
        if (overwritten != files.end()) {
            failures_.push_back(
                name + ": its stack would overwrite the input " + overwritten->string() +
                "; choose another folder");
        } else if (taken != files.end()) {
            failures_.push_back(
                name + ": its stack " + taken->string() + " would overwrite that of " +
                owners.at(taken->string()) +
                "; process it in a call of its own with another folder");
        } else if (twice != recording.frames.end()) {
            failures_.push_back(twice->name() + ": given twice; give it once");
        } else {
            for (fs::path const& file : files) {
                owners.emplace(file.string(), name);
            }
            free.push_back(std::move(recording));
        }
    }
    return free;
}

// Before the first frame is processed, so that the size does not depend on which is the quickest.
polarization::Size Process_run::size_of_frames(Recording const& recording) const {
    if (preparation_.region()) {
        return preparation_.region()->size();
    }
    if (auto const& layout = results_.origin.pixel_format) {
        return {layout->width, layout->height};
    }
    Frame_list source(recording.frames, std::nullopt);
    Frame_slot slot;
    for (std::size_t number = 0; number < recording.frames.size(); ++number) {
        throw_if_interrupted();
        try {
            source.read(number, slot);
            return slot.size();
        } catch (File_failure const&) {
            continue; // processing it says what is wrong
        }
    }
    return {1, 1}; // no frame will be done
}

void Process_run::require_size_of_stack(Slot const& slot) const {
    polarization::Size const size = slot.size;
    if (size != stack_->size()) {
        throw File_failure(
            slot.input.place().name(), "has " + to_string(size) + " pixels, but its stack " +
                                           to_string(stack_->size()) +
                                           "; process it in a call of its own");
    }
}

void Process_run::finish_stack(Recording const& recording) {
    if (stack_->is_finished()) {
        return;
    }
    bool const can_go_on = !options_.finishes_when_interrupted; // another run, with the same frames
    if (can_go_on && stack_->unfinished() > 0 && (is_exhausted_ || interruption_flag())) {
        is_stack_unfinished_ = true;
        return;
    }
    bool const is_empty = stack_->missing() == recording.frames.size();
    stack_->finish();
    if (is_empty || options_.is_quiet) {
        return;
    }
    std::string line = recording.frames.front().file.string() + ": " +
                       std::to_string(recording.frames.size()) + " frames of " +
                       to_string(stack_->size()) + ", wrote";
    for (fs::path const& file : stack_->files()) {
        line.append(" ").append(file.string());
    }
    tell(line);
}

Process_run::Counts Process_run::run_recording(Recording const& recording) {
    return run_stack(recording, [&]() -> Counts {
        Numbers const numbers = without_done(recording.frames);
        return {run(recording.frames, numbers), numbers.size()};
    });
}

Process_run::Counts Process_run::run_stack(
    Recording const& recording, std::function<Counts()> const& run_frames) {
    Earlier_stack const earlier = options_.passes_over_done ? Earlier_stack::resumed
                                  : results_.existing == Existing_files::replace
                                      ? Earlier_stack::replaced
                                      : Earlier_stack::refused;
    Counts counts{0, recording.frames.size()};
    try {
        stack_.emplace(results_, recording, earlier, [&] { return size_of_frames(recording); });
        counts = run_frames();
        finish_stack(recording);
    } catch (Output_exhausted const& failure) {
        is_exhausted_ = true;
        is_stack_unfinished_ = stack_.has_value() && !stack_->is_finished();
        failures_.emplace_back(failure.what());
    } catch (File_failure const& failure) {
        failures_.emplace_back(failure.what());
    } catch (std::exception const& error) {
        if (!is_lack_of_memory(error)) {
            throw;
        }
        stack_.reset(); // before the line about it takes memory
        failures_.push_back(recording.frames.front().file.string() + ": " + reason_of(error));
    }
    stack_.reset();
    return counts;
}

Process_run::Counts Process_run::run_stacks(std::vector<Frame_place> frames) {
    Counts counts;
    for (Recording const& recording : recordings_without_clashes(std::move(frames))) {
        if (is_exhausted_ || interruption_flag()) {
            counts.total += recording.frames.size();
            continue;
        }
        Counts const more = run_recording(recording);
        counts.done += more.done;
        counts.total += more.total;
    }
    return counts;
}

} // namespace polarize_tool
