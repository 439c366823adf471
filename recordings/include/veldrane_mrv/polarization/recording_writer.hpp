/// @file
/// Frames of a camera into a file that `open_frames` reads without being told what is in it.
#pragma once

#include "veldrane_mrv/polarization/existing_files.hpp"
#include "veldrane_mrv/polarization/recording_description.hpp"
#include "veldrane_mrv/polarization/regular_files.hpp"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>

namespace veldrane_mrv::polarization {

/// A recording under way, by one thread. Until `finish` it is FILE.part, and FILE.json.part tells
/// what is in it. Both stay if the program ends before: renamed to FILE and FILE.json they are the
/// recording up to there, without time stamps and frame numbers.
class Recording_writer {
public:
    /// @param description of what is not known before the end nothing is looked at: `frames`,
    ///        `counts` and `captures`. Where `begin` or `software` is empty, this fills them
    /// @param existing whether an older recording, finished or not, may be replaced; it stays until
    ///        `finish`, its unfinished files do not
    /// @throws File_failure if the files cannot be made, or another writer is at work on them
    /// @throws Argument_error if a frame is too large for memory
    Recording_writer(
        std::filesystem::path const& file, Recording_description description,
        Existing_files existing = Existing_files::keep);
    /// Without `finish` the unfinished files stay, if there is a frame in them.
    ~Recording_writer();
    Recording_writer(Recording_writer const&) = delete;
    Recording_writer& operator=(Recording_writer const&) = delete;

    /// Writes the samples of the next frame, rows without padding.
    /// @throws File_failure if they cannot be written; the frames before are whole, and `finish`
    ///         keeps them
    /// @throws Argument_error if these are not as many bytes as a frame has
    void append(std::span<std::byte const> samples, Capture const& capture);

    std::size_t frames() const { return description_.captures.size(); }
    std::filesystem::path const& file() const { return file_; }

    /// Gives the files their names, once. Without a frame none is left.
    /// @throws File_failure; what was recorded is in the unfinished files then
    void finish(Receiving_counts const& counts);

private:
    regular_files::Descriptor created(std::filesystem::path const& part) const;
    void reserve_description();
    void write_description(std::string const& text);
    void remove_parts() const;
    [[noreturn]] void fail(int error) const;

    std::filesystem::path file_;
    std::filesystem::path description_file_;
    Recording_description description_;
    Existing_files existing_;
    std::size_t frame_bytes_;
    std::uint64_t size_ = 0;     // of whole frames
    std::uint64_t reserved_ = 0; // bytes on the disk for the description
    regular_files::Descriptor samples_part_;
    regular_files::Descriptor lock_; // on it, against another writer that replaces
    std::optional<regular_files::Descriptor> description_part_;
    bool is_finished_ = false;
};

} // namespace veldrane_mrv::polarization
