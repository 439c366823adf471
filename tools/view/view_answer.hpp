/// @file
/// What the view's server asks of those who know frames, and what it gives to a browser.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace polarize_tool {

/// The parameters behind the question mark, decoded, each name once.
using Query = std::map<std::string, std::string, std::less<>>;

struct Answer {
    int status = 200; ///< of HTTP
    std::string media_type;
    std::string body;
};

/// Answers requests for one path that carry the token. Called by several threads at a time; may
/// wait for up to a second.
using Handler = std::function<Answer(Query const&)>;
using Handlers = std::map<std::string, Handler, std::less<>>;

/// A file of the page, which is a part of the program.
struct Page_file {
    std::string_view media_type;
    std::string_view content;
};
/// By path: "/" and what the page asks for. They are served without the token.
using Page_files = std::map<std::string, Page_file, std::less<>>;

} // namespace polarize_tool
