/// @file
/// Frames and figures in the form that a page reads.
#pragma once

#include "input/frame_preparation.hpp"
#include "veldrane_mrv/polarization/live_feed.hpp"
#include "view/kept_frames.hpp"
#include "view/plane_making.hpp"
#include "view/view_answer.hpp"
#include "view/view_frames.hpp"
#include "view/view_parameters.hpp"
#include "view/view_statistics.hpp"

#include <optional>
#include <string>

namespace polarize_tool {

/// One line for the reader.
Answer refusal(int status, std::string const& line);

/// What a camera has sent so far.
struct Reception {
    polarization::Live_counts counts;
    std::optional<double> rate;       ///< frames a second that arrive
    std::optional<double> latency_ms; ///< from the arrival of this frame until now
};

/// Of the first frame of a view.
/// @param reception of a camera, until now
/// @param frames how many there are, if that is known
/// @param size as frames are shown, if it is known
Answer source_answer(
    View_setup const& setup, Frame_preparation const& preparation,
    std::optional<Reception> const& reception, std::optional<std::size_t> frames,
    std::optional<polarization::Size> const& size);

/// A header in JSON, and behind it planes, each from a multiple of 8 bytes on.
/// @param region has a pixel in the frame
/// @throws polarization::Argument_error if the frame cannot be transformed
Answer frame_answer(
    Plane_making& making, Kept_frames::Use const& frame, polarization::Region const& region,
    Frame_request const& request, std::optional<Reception> const& reception);

Answer statistics_answer(
    std::size_t number, polarization::Region const& region, View_statistics const& statistics);

} // namespace polarize_tool
