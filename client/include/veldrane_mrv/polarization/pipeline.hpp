/// @file
/// Many frames on several threads: read one after another, worked on side by side, written one
/// after another in the order of reading.
///
/// Memory is bounded: there are exactly `frames_in_flight` slots of the caller's type, made before
/// the first frame and used again and again. A slot that holds a frame of height x width and the
/// planes that are wanted takes about
///
///   height * width * (2 + 2 * number of 16-bit planes + 8 if normalised Stokes) bytes
///
/// and what the caller keeps in it besides; the pipeline adds less than 1 KiB a slot and one entry
/// of its result a frame.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace veldrane_mrv::polarization {

enum class Pipeline_stage { read, work, write };

/// `read`, `work` or `write`.
std::string_view name_of(Pipeline_stage stage);

struct Pipeline_options {
    /// Threads that work at once, the calling one included; 0 stands for one a core. Where the
    /// system has no more, those that it has do the work.
    unsigned threads = 0;
    /// Frames between the beginning of their reading and the end of their writing, and so the
    /// number of slots; 0 stands for two a thread.
    std::size_t frames_in_flight = 0;
    /// Asked before each stage of each frame, from any of the threads, possibly at once. Once it
    /// has given true, no further stage begins.
    std::function<bool()> stop_requested;
};

struct Frame_failure {
    std::size_t index;
    Pipeline_stage stage;
    std::string message;
    /// The exception was a std::bad_alloc: alone or in a later run the frame may find its memory.
    bool lacked_memory = false;
};

/// Frames are numbered from 0 in the order of reading. A frame that was read, or being read, when
/// the pipeline stopped is in neither list unless it failed or its writing had begun.
struct Pipeline_result {
    std::vector<std::size_t> done;
    std::vector<Frame_failure> failed;
    bool stopped = false;
};

/// `threads` and `frames_in_flight` with numbers for 0, as the pipeline uses them.
/// @throws Argument_error if one of them is beyond reason
Pipeline_options resolved(Pipeline_options options);

namespace detail {

struct Pipeline_stages {
    std::function<bool(std::size_t index, std::size_t slot)> read;
    std::function<void(std::size_t index, std::size_t slot)> work;
    std::function<void(std::size_t index, std::size_t slot)> write;
};

Pipeline_result run_stages(Pipeline_options const& options, Pipeline_stages const& stages);

} // namespace detail

/// Runs `read`, `work` and `write` on every frame.
///
/// - `make_slot()` gives a slot: frame, planes, workspace. Called `frames_in_flight` times, first.
/// - `read(index, slot)` fills the slot and returns true, or false after the last frame. One call
///   at a time, in order.
/// - `work(index, slot)` runs for several frames at once, for each slot one call at a time.
/// - `write(index, slot)` runs one call at a time, in order.
///
/// An exception of a stage ends this frame and no other: it stands in `failed` with the stage and
/// the exception's text (what to do, if it was a std::bad_alloc), and the frame's later stages are
/// left out. After one in `read` the next
/// index is read, so a reader that cannot go on at all returns false from then on.
///
/// Floating-point arithmetic of all stages follows the rounding mode of the calling thread.
///
/// @throws Argument_error from `resolved`, and whatever `make_slot` throws; no stage has run then
template <class Make_slot, class Read, class Work, class Write>
Pipeline_result run_pipeline(
    Pipeline_options const& options, Make_slot make_slot, Read read, Work work, Write write) {
    Pipeline_options const settled = resolved(options);
    std::vector<std::invoke_result_t<Make_slot&>> slots;
    slots.reserve(settled.frames_in_flight);
    while (slots.size() < settled.frames_in_flight) {
        slots.push_back(make_slot());
    }
    return detail::run_stages(
        settled,
        {[&](std::size_t index, std::size_t slot) -> bool { return read(index, slots[slot]); },
         [&](std::size_t index, std::size_t slot) { work(index, slots[slot]); },
         [&](std::size_t index, std::size_t slot) { write(index, slots[slot]); }});
}

} // namespace veldrane_mrv::polarization
