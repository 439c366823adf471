/// @file
/// Where the values of a JSON text stand, which the parser's tree does not tell.
#ifndef VELDRANE_CLIENT_JSON_LINES_HPP
#define VELDRANE_CLIENT_JSON_LINES_HPP

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace veldrane_mrv::polarization {

/// Lines, counted from 1, of all values of a text that is known to be well-formed, by their paths:
/// "analysers/2/throughput", "" for the whole.
struct Json_lines {
    std::map<std::string, std::size_t> line_of;
    /// Path of a key that stands twice in its object, or empty.
    std::string repeated_key;
};

Json_lines find_json_lines(std::string_view text);

struct Json_place {
    std::size_t line;
    std::string path;
};

/// The first value that `is_wanted`, given its first character if it is an array, an object or a
/// text, or else all of it, and its depth, 0 for the whole. Line 0 if there is none. The text may
/// be anything; what is behind the value does not matter, and nothing is searched above a depth
/// that is wanted.
Json_place find_json_value(
    std::string_view text, std::function<bool(std::string_view, int)> const& is_wanted);

/// The line of a byte.
std::size_t line_at(std::string_view text, std::size_t byte);

} // namespace veldrane_mrv::polarization

#endif
