/// @file
/// The pieces of the report page, taken from the files of this folder when the program is built.
#ifndef VELDRANE_TOOLS_HTML_REPORT_TEMPLATE_HPP
#define VELDRANE_TOOLS_HTML_REPORT_TEMPLATE_HPP

#include <string_view>

namespace polarize_tool {

/// The page, with places of the form {{name}}.
extern std::string_view const report_html;
extern std::string_view const report_style;
extern std::string_view const report_script;

} // namespace polarize_tool

#endif
