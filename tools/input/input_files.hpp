/// @file
/// Files that a run reads: they are not to be lost.
#pragma once

#include "input/frame_preparation.hpp"

#include <filesystem>
#include <set>
#include <string>
#include <sys/types.h>
#include <unordered_set>
#include <utility>
#include <vector>

namespace polarize_tool {

/// What no result may replace, whatever --overwrite says: it means older results.
class Input_files {
public:
    /// The frames and the dark frames.
    Input_files(std::vector<Frame_place> const& frames, Frame_preparation const& preparation);

    /// A calibration or table; an empty name is none.
    void add(std::filesystem::path const& file);

    /// Also under another name, through links or a second mount.
    bool contains(std::filesystem::path const& file) const;

    /// @throws File_failure if `output`, as given by `option`, is one of them
    void refuse(std::filesystem::path const& output, std::string const& option) const;

private:
    std::unordered_set<std::string> names_; // with links resolved, also of files that are missing
    std::set<std::pair<dev_t, ino_t>> identities_;
};

} // namespace polarize_tool
