/// @file
/// Any bytes as what a browser sends to the view: parsed, decided and answered as the server does
/// it. No handler is called without the token and a host's name, nothing is served that is none of
/// the page's files, and every answer carries what it has to.

#include "memory_file.hpp"

#include "view/view_http.hpp"

#include <boost/asio/buffer.hpp>
#include <string>

namespace {

using fuzz::require;
using namespace polarize_tool;

// Bytes of the corpus are written with this token.
std::string const token(64, 'a');

Request_rules const& rules() {
    static Request_rules const all = {
        own_hosts("127.0.0.1", 8080),
        token,
        {{"/", {"text/html", "page"}}, {"/page/main.js", {"text/javascript", "script"}}},
        {{"/frame", [](Query const&) { return Answer{}; }}, {"/source", {}}}};
    return all;
}

std::size_t count_of(std::string_view text, std::string_view part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != text.npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

Answer answer_of(Request_head const& request, std::string_view bytes) {
    Decision const decision = rules().decide(request);
    if (auto const* const refused = std::get_if<Refusal>(&decision)) {
        require(refused->answer.status >= 400, "a refusal has the status of an answer");
        return refused->answer;
    }
    require(request.host.count == 1, "a request without one host is answered");
    require(
        request.host.value == "127.0.0.1:8080" || request.host.value == "localhost:8080",
        "a request to another host is answered");
    require(request.method == "GET" && !request.has_body, "more than GET is answered");
    if (auto const* const file = std::get_if<Page_file const*>(&decision)) {
        bool const is_root = request.target == "/" && (*file)->content == "page";
        bool const is_script = request.target == "/page/main.js" && (*file)->content == "script";
        require(is_root || is_script, "a file is served under another name");
        return {200, std::string((*file)->media_type), std::string((*file)->content)};
    }
    Call const& call = std::get<Call>(decision);
    require(count_of(bytes, token) > 0, "a handler is called without the token");
    require(request.token.count == 1 && request.token.value == token, "a wrong token is taken");
    require(call.query.size() <= 16, "there are more parameters than are allowed");
    for (auto const& [name, value] : call.query) {
        require(!name.empty() && (name + value).find('\0') == value.npos, "a parameter is none");
    }
    return {200, "application/json", "{}"};
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string_view const bytes(reinterpret_cast<char const*>(data), size);
    Request_parser parser;
    limit(parser);
    boost::beast::error_code error;
    std::size_t const used = parser.put(boost::asio::buffer(data, size), error);
    if (error == boost::beast::http::error::need_more) {
        return 0;
    }
    require(error || used <= 2 * longest_header, "a header is longer than is allowed");
    Answer answer = error ? refusal_of_header(error).answer : answer_of(head_of(parser), bytes);
    auto const status = static_cast<unsigned>(answer.status);
    std::size_t const length = answer.body.size();
    bool const is_head = parser.get().method() == boost::beast::http::verb::head;
    bool const is_coded = parser.get().count(boost::beast::http::field::transfer_encoding) > 0;
    require(status >= 400 || !is_coded, "a body in some coding is taken for the next request");
    Response const response = response_to(std::move(answer), parser.keep_alive(), is_head);
    require(response.result_int() == status, "a status is none of HTTP");
    require(response.count("Content-Security-Policy") == 1, "an answer has no policy");
    require(response.count("Set-Cookie") == 0, "an answer has a field of the request's");
    require(response.body().size() == (is_head ? 0 : length), "an answer's body is another");
    return 0;
}
