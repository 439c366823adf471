/// @file
/// Frames that arrive while the program runs, as a source of frames.
#pragma once

#include "veldrane_mrv/polarization/live_feed.hpp"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace veldrane_mrv::polarization {

struct Live_options {
    /// Frames that may wait to be processed, 1 to 4096; each takes its bytes as they arrived.
    std::size_t waiting_frames = 16;
    Drop_policy drop = Drop_policy::newest;
    /// So many frames, then the source ends; without a number it goes on.
    std::optional<std::size_t> frames;
    /// So long after the first frame was asked for, the source ends.
    std::optional<double> seconds;
    /// Asked several times a second; once it gives true the source receives no more and ends behind
    /// the frames that wait.
    std::function<bool()> stop_requested;
};

/// Frames numbered from 0 as they are handed on, each once and in their order. Somebody gives them
/// to `feed` from a thread of their own: a camera (`open_camera`), or a program with frames in its
/// memory.
class Live_source : public Frame_source {
public:
    /// @param name for messages
    /// @param file for the places of its frames, and so the names of their results
    /// @param layout of the bytes of a frame
    /// @throws Argument_error if an option is out of its range
    Live_source(
        std::string name, std::filesystem::path file, Raw_layout const& layout,
        Live_options options = {});
    ~Live_source() override;

    std::string name() const override { return name_; }
    /// Known once the end was reached.
    std::optional<std::size_t> count() const override;
    std::optional<Frame_shape> shape() const override;
    /// With its capture, for the frame that `has_frame` has found last.
    Frame_place place(std::size_t number) const override;
    /// Waits for it.
    /// @throws File_failure once, behind the last frame, if the camera went away
    bool has_frame(std::size_t number) override;

    Raw_layout const& layout() const { return layout_; }
    /// Of the frame that `has_frame` has found last, as `layout` says; until it is read.
    std::string_view bytes() const { return frame_.bytes; }
    /// Of the frame that `has_frame` has found last.
    Steady_time arrival() const { return arrival_; }
    Live_counts counts() const { return feed_.counts(); }

    Live_feed& feed() { return feed_; }

protected:
    /// Called once, when the first frame is asked for: lets whoever gives frames begin.
    /// @throws File_failure if they cannot
    virtual void begin_receiving() {}

    /// Stops whoever gives frames; what was given can still be taken. Called several times, by the
    /// thread that reads.
    virtual void stop_receiving() {}

private:
    void fetch(std::size_t number, Fetched_frame& target) override;
    void begin();
    bool find_next();
    void end_of_frames();

    std::string name_;
    std::filesystem::path file_;
    Raw_layout layout_;
    Live_options options_;
    std::shared_ptr<Frame_decoder const> decoder_;
    Live_feed feed_;
    Live_frame frame_; // that was found last
    Capture capture_;
    Steady_time arrival_;
    std::optional<Steady_time> until_;
    bool has_begun_ = false;
    bool has_bytes_ = false;
    bool is_stopped_ = false;
    bool is_at_end_ = false;
    std::size_t found_ = 0;
};

} // namespace veldrane_mrv::polarization
