/// @file
/// Bytes and texts in the forms that a self-contained page can hold.
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace polarize_tool {

/// JSON that may stand in a script element: no less-than sign, so nothing ends the element.
std::string json_for_html(std::string json);

/// Whether a plane is stored as it is or each element minus the one before it (modulo 2^16), which
/// makes the total intensity smaller by a quarter.
enum class Element_order { plain, differences };

/// All low bytes of the plane, then all high bytes, as one zlib stream in base64: half of the high
/// bytes' information is in their neighbours, which deflate finds only if they adjoin.
std::string packed_plane(std::span<std::uint16_t const> plane, Element_order order);

/// Replaces every {{name}} of `page` by its value. A value is not searched again.
/// @throws std::out_of_range for a name without a value
std::string filled(std::string_view page, std::map<std::string, std::string> const& values);

} // namespace polarize_tool
