/// @file
/// Bytes and texts in the forms that a page can hold.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace polarize_tool {

/// RFC 4648, with padding.
std::string base64(std::span<std::uint8_t const> bytes);

/// A URI that is the file: "data:image/png;base64,...".
std::string data_uri(std::string_view media_type, std::span<std::uint8_t const> bytes);

/// Text between tags or in a quoted attribute, as `visible` text.
std::string html_text(std::string_view text);

} // namespace polarize_tool
