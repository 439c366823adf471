/// @file
/// What `calibrate` has to say of a series, each thing once however many frames share it.
#pragma once

#include "input/frame_finding.hpp"
#include "veldrane_mrv/polarization/calibration.hpp"

#include <cstddef>
#include <string>
#include <vector>

namespace polarize_tool {

/// Frames that cannot be used.
class Frame_failures {
public:
    /// `kind` is what frames with the same fault have in common.
    void add(Frame_place const& place, std::string const& message, std::string const& kind);

    std::size_t count() const { return count_; }

    /// One for each kind, with the first frame's message, in the order of first frames.
    std::vector<std::string> lines() const;

private:
    struct Group {
        std::string kind;
        std::string message;
        std::size_t more = 0;
        std::string last;
    };

    std::vector<Group> groups_;
    std::size_t count_ = 0;
};

/// A line for each flag, and one for the frames that do not go with the others.
std::vector<std::string> quality_warnings(
    veldrane_mrv::polarization::Calibration const& calibration);

} // namespace polarize_tool
