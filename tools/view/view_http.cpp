#include "view/view_http.hpp"

#include <boost/beast/http/error.hpp>
#include <boost/beast/http/field.hpp>
#include <cstdint>
#include <limits>
#include <utility>

namespace polarize_tool {
namespace {

namespace http = boost::beast::http;

std::string_view view_of(boost::beast::string_view text) {
    return {text.data(), text.size()};
}

template <typename Name>
Field field_of(Request_parser::value_type const& request, Name name) {
    auto const fields = request.equal_range(name);
    Field field;
    for (auto one = fields.first; one != fields.second; ++one) {
        field.value = field.count++ == 0 ? view_of(one->value()) : field.value;
    }
    return field;
}

} // namespace

void limit(Request_parser& parser) {
    parser.header_limit(longest_header);
    // Whoever sends a body is told so, whatever its length. Beast takes no limit for one of zero.
    parser.body_limit(std::numeric_limits<std::uint64_t>::max());
}

Request_head head_of(Request_parser const& parser) {
    Request_parser::value_type const& request = parser.get();
    return {
        .method = view_of(request.method_string()),
        .target = view_of(request.target()),
        .host = field_of(request, http::field::host),
        .token = field_of(request, token_field),
        .fetch_site = field_of(request, "Sec-Fetch-Site"),
        // Beast reads a body in chunks, and takes one in any other coding for the next request.
        .has_body = request.count(http::field::transfer_encoding) > 0 ||
                    parser.content_length().value_or(0) != 0,
    };
}

Refusal refusal_of_header(boost::beast::error_code const& error) {
    if (error == http::error::header_limit || error == http::error::buffer_overflow) {
        return refusal(431, "The header is longer than any that a browser sends here.");
    }
    return refusal(400, "This is no request of HTTP.");
}

Response response_to(Answer answer, bool keeps_alive, bool is_head) {
    auto const status = static_cast<unsigned>(answer.status);
    Response response(http::int_to_status(status), 11);
    response.set(http::field::cache_control, "no-store");
    response.set(
        "Content-Security-Policy",
        "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; "
        "img-src data: blob:; base-uri 'none'; form-action 'none'; frame-ancestors 'none'");
    response.set("Cross-Origin-Opener-Policy", "same-origin");
    response.set("Cross-Origin-Resource-Policy", "same-origin");
    response.set("Permissions-Policy", "camera=(), geolocation=(), microphone=(), usb=()");
    response.set("Referrer-Policy", "no-referrer");
    response.set("X-Content-Type-Options", "nosniff");
    if (status == 405) {
        response.set(http::field::allow, "GET");
    }
    response.keep_alive(keeps_alive);
    if (status != 204 && !is_head) {
        response.set(http::field::content_type, answer.media_type);
        response.body() = std::move(answer.body);
        response.prepare_payload();
    }
    return response;
}

} // namespace polarize_tool
