/// @file
/// The frames that a command line names.
#pragma once

#include "veldrane_mrv/polarization/frame_list.hpp"

#include <optional>
#include <string>
#include <vector>

namespace polarize_tool {

namespace polarization = veldrane_mrv::polarization;

using polarization::Found_frames;
using polarization::Frame_list;
using polarization::Frame_place;
using polarization::Frame_selection;
using polarization::Frame_slot;
using polarization::Raw_layout;

/// The name of standard input on the command line.
inline constexpr char const* standard_input = "-";

/// As `polarization::find_frames`, with its warnings printed.
/// @throws Interrupted, Usage_error
Found_frames look_for_frames(
    std::vector<std::string> const& inputs, std::optional<Raw_layout> const& raw,
    Frame_selection const& selection = {},
    polarization::Damaged_files damaged = polarization::Damaged_files::are_failures);

/// @throws Usage_error if no frame was selected, though no input failed
void require_frames(Found_frames const& found);

} // namespace polarize_tool
