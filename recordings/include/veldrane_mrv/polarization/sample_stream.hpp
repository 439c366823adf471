/// @file
/// Frames of bare samples from what is read once, from where it stands to its end: a pipe.
#pragma once

#include "veldrane_mrv/polarization/frame_list.hpp"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace veldrane_mrv::polarization {

/// Gives each frame as soon as its last byte is there, without the padding of its last row. Frames
/// that are not selected are read and dropped; behind the last selected one nothing is read.
class Sample_stream : public Frame_source {
public:
    /// @param descriptor a pipe, socket or file; the caller's, open as long as this lives
    /// @param name for messages about the stream
    /// @param file for the places of its frames
    /// @param stop_requested asked several times a second while nothing comes; once it gives true
    ///        the stream is at its end
    Sample_stream(
        int descriptor, std::string name, std::filesystem::path file, Raw_layout const& layout,
        Frame_selection const& selection = {}, std::function<bool()> stop_requested = {});

    std::string name() const override { return name_; }
    /// Known once the end was read.
    std::optional<std::size_t> count() const override;
    std::optional<Frame_shape> shape() const override;
    Frame_place place(std::size_t number) const override;
    /// Waits for it.
    /// @throws File_failure if the stream cannot be read, is empty, begins like a picture or ends
    ///         within a frame; what is thrown after a part of a frame was read ends the stream
    bool has_frame(std::size_t number) override;

private:
    /// @throws Argument_error for any but the last frame that `has_frame` has found
    void fetch(std::size_t number, Fetched_frame& target) override;

    void find_next();
    bool read_frame();
    bool skip(std::uint64_t count, std::string const& what);
    std::size_t fill(std::string& bytes, std::size_t count);
    std::size_t read_some(char* target, std::size_t count);
    [[noreturn]] void break_off(std::string const& problem);
    std::string description_of_end(std::string const& what, std::uint64_t done, std::uint64_t of);

    int descriptor_;
    std::string name_;
    std::filesystem::path file_;
    Raw_layout layout_;
    Frame_selection selection_;
    std::function<bool()> stop_requested_;
    std::shared_ptr<Frame_decoder const> unpacker_;
    std::string bytes_;      // of the last frame that was read
    bool has_bytes_ = false; // until they are fetched
    bool is_stopped_ = false;
    bool is_at_end_ = false;
    bool is_within_frame_ = false; // or within what is in front of it
    std::size_t passed_ = 0;       // frames that were read
    std::size_t found_ = 0;        // selected ones among them
};

} // namespace veldrane_mrv::polarization
