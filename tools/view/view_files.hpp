/// @file
/// The page that a browser loads: the files of `web` and of the page parts it shares with others.
#pragma once

#include "view/view_answer.hpp"

namespace polarize_tool {

/// "/" and "/page/NAME" for each style and script. The contents live as long as the program.
Page_files view_files();

} // namespace polarize_tool
