/// @file
/// Between Beast's requests and answers and the view's. For the server's own files: Beast is slow
/// to compile.
#pragma once

#include "view/view_answer.hpp"
#include "view/view_request.hpp"

#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>
#include <cstddef>

namespace polarize_tool {

using Request_parser = boost::beast::http::request_parser<boost::beast::http::empty_body>;
using Response = boost::beast::http::response<boost::beast::http::string_body>;

constexpr std::size_t longest_header = 8192; // bytes of the first line, and as many of the fields

/// Before a request is read: how much of it.
void limit(Request_parser& parser);

/// What is looked at in a request whose header has been read; points into the parser.
Request_head head_of(Request_parser const& parser);

/// What is said to a header that could not be read for `error`.
Refusal refusal_of_header(boost::beast::error_code const& error);

/// With what keeps a browser from doing anything with it but show the page.
/// @param is_head the request was one for a header alone, so that a body would be read as an answer
Response response_to(Answer answer, bool keeps_alive, bool is_head);

} // namespace polarize_tool
