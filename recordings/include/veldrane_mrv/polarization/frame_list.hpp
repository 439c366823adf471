/// @file
/// From what the user names (files, folders, patterns) to a list of frames, and the source of them.
#pragma once

#include "veldrane_mrv/polarization/frame_source.hpp"
#include "veldrane_mrv/polarization/recording_description.hpp"

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace veldrane_mrv::polarization {

/// Which of the frames found are wanted: numbers start, start + step, ... below stop.
struct Frame_selection {
    std::size_t start = 0;
    std::optional<std::size_t> stop;
    std::size_t step = 1;
};

struct Found_frames {
    std::vector<Frame_place> frames;
    /// Inputs that hold none, a line each.
    std::vector<std::string> failures;
    /// What was passed over though the user named it, a line each.
    std::vector<std::string> warnings;
};

/// What becomes of a file whose frames cannot be counted: a line among the failures, or one frame
/// that cannot be read, so that the others keep their numbers when the file is mended.
enum class Damaged_files { are_failures, are_frames };

/// Looks into every input: a file counts itself, a folder the frames in it (names that end like
/// images or, with `layout` or with a description beside them, like recordings; hidden files not),
/// a pattern that is no file's name the files that it matches. Within one folder or pattern numbers
/// in names count as numbers, so that frame_2 comes before frame_10. Calibrations and their plots
/// among them are no frames.
/// @param between_files called before each file; what it throws ends the search
/// @throws Argument_error if `layout` is given for a picture
Found_frames find_frames(
    std::vector<std::string> const& inputs, std::optional<Raw_layout> const& layout,
    Frame_selection const& selection = {}, std::function<void()> const& between_files = {},
    Damaged_files damaged = Damaged_files::are_failures);

struct Described_recording {
    std::filesystem::path file;
    Recording_description description; ///< without `captures`
};

/// What stands beside the files that `find_frames` would take; nothing at all if one of them is no
/// recording. Files that are not there are passed over.
/// @param has_layout whether `find_frames` would get one
/// @throws File_failure if a description is damaged
std::vector<Described_recording> described_recordings(
    std::vector<std::string> const& inputs, bool has_layout);

/// Frames of any files in any order. Keeps the last file open, since the next frame is mostly of
/// the same.
class Frame_list : public Frame_source {
public:
    Frame_list(std::vector<Frame_place> frames, std::optional<Raw_layout> const& layout);
    /// With the failures.
    Frame_list(Found_frames found, std::optional<Raw_layout> const& layout);

    std::string name() const override;
    std::optional<std::size_t> count() const override { return frames_.size(); }
    /// That of the layout; pictures need not be alike.
    std::optional<Frame_shape> shape() const override;
    Frame_place place(std::size_t number) const override { return frames_.at(number); }
    std::vector<std::string> failures() const override { return failures_; }

private:
    void fetch(std::size_t number, Fetched_frame& target) override;

    std::vector<Frame_place> frames_;
    std::vector<std::string> failures_;
    std::optional<Raw_layout> layout_;
    std::filesystem::path open_file_;
    std::unique_ptr<Frame_source> open_source_;
};

} // namespace veldrane_mrv::polarization
