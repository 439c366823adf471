/// @file
/// The pieces of the report page, taken from the files of this folder when the program is built.
#pragma once

#include <string_view>

namespace polarize_tool {

/// The page, with places of the form {{name}}.
extern std::string_view const report_html;
extern std::string_view const report_theme;
extern std::string_view const report_style;
/// What its script shares with other pages, then the script.
extern std::string_view const report_parts;
extern std::string_view const report_script;

} // namespace polarize_tool
