/// @file
/// Where the values of a JSON text stand, which the parser's tree does not tell.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace veldrane_mrv::polarization {

/// A value as the text spells it. The views end with the call that is given them.
struct Json_value {
    /// Its first character if it is an array, an object or a text, or else all of it.
    std::string_view token;
    /// The keys to it: "analysers/2/throughput", "" for the whole.
    std::string_view path;
    /// 0 for the whole.
    int depth;
    bool has_key;
    /// Its object has had the same key before.
    bool has_repeated_key;
};

struct Json_place {
    /// Counted from 1; 0 if there is no such value.
    std::size_t line;
    std::string path;
};

/// The first value that `is_wanted`. The text may be anything; what is behind the value does not
/// matter, and nothing is searched above a depth that is wanted. Texts are searched anew for each
/// question, since only a refusal asks one: an index of all paths would take the memory of the
/// longest key for each value below it.
Json_place find_json_value(
    std::string_view text, std::function<bool(Json_value const&)> const& is_wanted);

/// The line of a byte.
std::size_t line_at(std::string_view text, std::size_t byte);

} // namespace veldrane_mrv::polarization
