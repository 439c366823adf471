/// @file
/// What a run of `live` must not begin with: files that it would replace for good, and a stack for
/// which there is no room.
#pragma once

#include "commands/plane_options.hpp"
#include "input/frame_preparation.hpp"

#include <cstddef>
#include <filesystem>

namespace polarize_tool {

/// Whatever --overwrite says: it means older recordings.
/// @throws File_failure if what stands at FILE.json is no recording's description
void refuse_other_description(std::filesystem::path const& recording);

/// @throws File_failure if one of the recording's files is a calibration or a dark frame
void refuse_lost_inputs(
    std::filesystem::path const& recording, std::filesystem::path const& calibration,
    Frame_preparation const& preparation);

/// Frames that are taken for a stack: of each there is an entry in memory.
constexpr std::size_t most_stacked_frames = 1'000'000;

/// Before the list of the frames is made.
/// @throws Usage_error if the folder's disk has no room for a stack of so many frames
void check_room_of_stack(
    Results const& results, polarization::Size const& size, std::size_t frames);

} // namespace polarize_tool
