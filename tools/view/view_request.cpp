#include "view/view_request.hpp"

#include "terminal/visible_text.hpp"
#include "view/view_token.hpp"

#include <algorithm>
#include <optional>
#include <utility>

namespace polarize_tool {
namespace {

constexpr std::size_t longest_target = 2048;
constexpr std::size_t most_parameters = 16;

std::optional<unsigned> hexadecimal_digit(char digit) {
    constexpr std::string_view digits = "0123456789abcdef";
    bool const is_capital = digit >= 'A' && digit <= 'F';
    std::size_t const place = digits.find(is_capital ? static_cast<char>(digit | 0x20) : digit);
    return place == digits.npos ? std::nullopt : std::optional(static_cast<unsigned>(place));
}

// As forms are encoded. Nothing if it is not, or no text of one line.
std::optional<std::string> decoded(std::string_view text) {
    std::string result;
    for (std::size_t index = 0; index < text.size(); ++index) {
        char character = text[index] == '+' ? ' ' : text[index];
        if (character == '%') {
            if (text.size() - index < 3) {
                return std::nullopt;
            }
            auto const high = hexadecimal_digit(text[index + 1]);
            auto const low = hexadecimal_digit(text[index + 2]);
            if (!high || !low) {
                return std::nullopt;
            }
            character = static_cast<char>(*high << 4U | *low);
            index += 2;
        }
        result += character;
    }
    // Text that would not be visible as it stands has control characters or is no UTF-8.
    return visible(result) == result ? std::optional(std::move(result)) : std::nullopt;
}

std::optional<Query> query_of(std::string_view parameters) {
    Query query;
    while (!parameters.empty()) {
        std::size_t const end = std::min(parameters.find('&'), parameters.size());
        std::string_view const parameter = parameters.substr(0, end);
        // What ends in & has an empty parameter behind it, which is refused as well.
        bool const is_last = end == parameters.size();
        parameters.remove_prefix(is_last ? end : end + 1);
        std::size_t const equals = parameter.find('=');
        if (equals == 0 || equals == parameter.npos || (!is_last && parameters.empty())) {
            return std::nullopt;
        }
        auto name = decoded(parameter.substr(0, equals));
        auto value = decoded(parameter.substr(equals + 1));
        if (!name || !value || query.size() == most_parameters ||
            !query.emplace(std::move(*name), std::move(*value)).second) {
            return std::nullopt;
        }
    }
    return query;
}

std::optional<Refusal> refusal_of_form(
    Request_head const& request, std::set<std::string, std::less<>> const& hosts) {
    if (request.host.count != 1 || !hosts.contains(request.host.value)) {
        return refusal(
            421, "This is no address of the view; open the one that it printed, letter by letter, "
                 "or start it with --host for this one.");
    }
    if (request.method != "GET") {
        return refusal(405, "The view only answers GET.");
    }
    if (request.has_body) {
        return refusal(413, "The view takes no data; ask without any.");
    }
    if (request.target.size() > longest_target) {
        return refusal(414, "This address is longer than any of the view.");
    }
    return std::nullopt;
}

std::optional<Refusal> refusal_of_sender(Request_head const& request, std::string_view token) {
    std::string_view const site = request.fetch_site.value;
    if (request.fetch_site.count > 1 ||
        (request.fetch_site.count == 1 && site != "same-origin" && site != "none")) {
        return refusal(403, "The view only answers its own page.");
    }
    if (request.token.count == 0) {
        return refusal(403, "The token is missing; open the address that the view printed.");
    }
    if (request.token.count > 1 || !is_token(request.token.value, token)) {
        Refusal wrong =
            refusal(403, "The token is wrong; open the address that the view printed last.");
        wrong.is_guess = true;
        return wrong;
    }
    return std::nullopt;
}

} // namespace

Refusal refusal(int status, std::string sentence) {
    return {{status, "text/plain; charset=utf-8", std::move(sentence += '\n')}};
}

Decision Request_rules::decide(Request_head const& request) const {
    if (auto refused = refusal_of_form(request, hosts)) {
        return std::move(*refused);
    }
    if (auto const file = files.find(request.target); file != files.end()) {
        return &file->second;
    }
    std::size_t const path_end = std::min(request.target.find('?'), request.target.size());
    auto const handler = handlers.find(request.target.substr(0, path_end));
    if (handler == handlers.end()) {
        return refusal(404, "The view has nothing of this name.");
    }
    if (auto refused = refusal_of_sender(request, token)) {
        return std::move(*refused);
    }
    auto query = query_of(request.target.substr(std::min(path_end + 1, request.target.size())));
    if (!query) {
        return refusal(
            400, "The parameters are NAME=VALUE with & between them, each name once, 16 at most.");
    }
    return Call{&handler->second, std::move(*query)};
}

std::set<std::string, std::less<>> own_hosts(std::string const& address, unsigned port) {
    std::set<std::string, std::less<>> names = {
        address.find(':') == address.npos ? address : "[" + address + "]"};
    if (address == "127.0.0.1" || address == "::1") {
        names.insert("localhost");
    }
    std::set<std::string, std::less<>> hosts;
    for (std::string const& name : names) {
        add_host(hosts, name + ":" + std::to_string(port));
    }
    return hosts;
}

void add_host(std::set<std::string, std::less<>>& hosts, std::string const& host) {
    for (char const* const port : {":80", ":443"}) {
        if (host.ends_with(port)) {
            hosts.insert(host.substr(0, host.rfind(':')));
        }
    }
    hosts.insert(host);
}

} // namespace polarize_tool
