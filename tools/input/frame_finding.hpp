/// @file
/// From what the user names (files, folders, patterns) to a list of frames.
#pragma once

#include "input/raw_layout.hpp"

#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace polarize_tool {

/// One frame: a file, or one of several in a file.
struct Frame_place {
    std::filesystem::path file;
    std::size_t index = 0;
    std::size_t count = 1; // frames in the file

    bool is_part() const { return count > 1; }
    /// For messages: the file, and the number in it of one of several.
    std::string name() const;
    /// Start of the names of its results: the file's name without ending, and behind it the number
    /// of one of several, with as many digits as sort.
    std::string stem() const;
};

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
};

/// Looks into every input: a file counts itself, a folder the frames in it (names that end like
/// images or, with `raw`, like recordings; hidden files not), a pattern that is no file's name the
/// files that it matches. Within one folder or pattern numbers in names count as numbers, so that
/// frame_2 comes before frame_10. Calibrations and their plots among them are no frames.
/// @throws Interrupted
Found_frames find_frames(
    std::vector<std::string> const& inputs, std::optional<Raw_layout> const& raw,
    Frame_selection const& selection = {});

/// @throws Usage_error if no frame was selected, though no input failed
void require_frames(Found_frames const& found);

} // namespace polarize_tool
