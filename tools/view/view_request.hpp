/// @file
/// What becomes of a request to the view: a file of the page, a call, or a refusal. No network
/// here.
#pragma once

#include "view/view_answer.hpp"

#include <cstddef>
#include <set>
#include <string>
#include <string_view>
#include <variant>

namespace polarize_tool {

/// A header field that may stand in a request once: the first one's value, and how many there are.
struct Field {
    std::string_view value;
    std::size_t count = 0;
};

/// What is looked at in a request.
struct Request_head {
    std::string_view method;
    std::string_view target; ///< as it was sent: path, question mark, parameters
    Field host;
    Field token;      ///< Polarization-Token
    Field fetch_site; ///< Sec-Fetch-Site, by which browsers tell whose page asks
    bool has_body = false;
};

constexpr char const* token_field = "Polarization-Token";

struct Call {
    Handler const* handler;
    Query query;
};

/// A refusal, in one plain sentence.
struct Refusal {
    Answer answer;
    bool is_guess = false; ///< of the token, which are to come slowly
};

using Decision = std::variant<Page_file const*, Call, Refusal>;

/// Who may ask for what. Immutable, so that any thread may ask it.
struct Request_rules {
    /// As they stand in Host, "127.0.0.1:8080": any other name was made to point here by somebody
    /// whose page would then be of the same origin as the view's.
    std::set<std::string, std::less<>> hosts;
    std::string token; ///< not empty
    Page_files files;
    Handlers handlers;

    /// Points into `files` and `handlers`.
    Decision decide(Request_head const& request) const;
};

Refusal refusal(int status, std::string sentence);

/// The values of Host that are the server's own at `address` (numeric, IPv6 without brackets), the
/// short form without the port included where browsers leave it out.
std::set<std::string, std::less<>> own_hosts(std::string const& address, unsigned port);

/// Adds a value, and the short form of one whose port HTTP, or HTTPS in front, has anyway.
void add_host(std::set<std::string, std::less<>>& hosts, std::string const& host);

} // namespace polarize_tool
