/// @file
/// What a request for a frame asks for, from its parameters.
#pragma once

#include "veldrane_mrv/polarization/geometry.hpp"
#include "view/view_answer.hpp"

#include <array>
#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace polarize_tool {

namespace polarization = veldrane_mrv::polarization;

/// What a page can show of a frame.
enum class View_plane { s0, azimuth, dolp, s1_s0, s2_s0, raw, i0, i45, i90, i135, validity };

struct View_plane_description {
    View_plane plane;
    std::string_view name;
    std::string_view type; ///< "u16", "i16" or "u8"
    std::size_t bytes;     ///< of an element
};

/// In the order of the enumerators.
inline constexpr std::array<View_plane_description, 11> view_plane_table{{
    {View_plane::s0, "s0", "u16", 2},
    {View_plane::azimuth, "azimuth", "u16", 2},
    {View_plane::dolp, "dolp", "u16", 2},
    {View_plane::s1_s0, "s1_s0", "i16", 2},
    {View_plane::s2_s0, "s2_s0", "i16", 2},
    {View_plane::raw, "raw", "u16", 2},
    {View_plane::i0, "i0", "u16", 2},
    {View_plane::i45, "i45", "u16", 2},
    {View_plane::i90, "i90", "u16", 2},
    {View_plane::i135, "i135", "u16", 2},
    {View_plane::validity, "validity", "u8", 1},
}};

constexpr View_plane_description const& description_of(View_plane plane) {
    return view_plane_table[static_cast<unsigned>(plane)];
}

/// A frame by its number, or the newest behind a number.
struct Frame_choice_by_number {
    std::optional<std::size_t> number;
    /// -1 stands before the first; without a number.
    long long after = -1;
};

struct Frame_request {
    Frame_choice_by_number frame;
    std::optional<polarization::Region> region; ///< may reach beyond the frame
    std::size_t scale = 1;
    /// Each once, in the order of the request.
    std::vector<View_plane> planes{View_plane::s0, View_plane::azimuth, View_plane::dolp};
};

/// A parameter is wrong; one sentence with its name, its value and the remedy.
class Parameter_error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// @throws Parameter_error
Frame_request frame_request(Query const& query);

struct Statistics_request {
    std::size_t number;
    std::optional<polarization::Region> region;
};
/// @throws Parameter_error
Statistics_request statistics_request(Query const& query);

/// @throws Parameter_error if there are any
void require_none(Query const& query);

/// The part of the region that lies in the frame, with no width or no height if none does.
polarization::Region clipped(
    std::optional<polarization::Region> const& region, polarization::Size const& frame);

} // namespace polarize_tool
