#include "page/page_encoding.hpp"

#include "terminal/visible_text.hpp"

#include <algorithm>

namespace polarize_tool {
namespace {

constexpr std::string_view base64_digits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

} // namespace

std::string base64(std::span<std::uint8_t const> bytes) {
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t start = 0; start < bytes.size(); start += 3) {
        std::size_t const count = std::min<std::size_t>(3, bytes.size() - start);
        std::uint32_t bits = 0;
        for (std::size_t byte = 0; byte < 3; ++byte) {
            bits = (bits << 8) | (byte < count ? bytes[start + byte] : 0U);
        }
        for (std::size_t digit = 0; digit < 4; ++digit) {
            text += digit <= count ? base64_digits[(bits >> (18 - 6 * digit)) & 63U] : '=';
        }
    }
    return text;
}

std::string data_uri(std::string_view media_type, std::span<std::uint8_t const> bytes) {
    return "data:" + std::string(media_type) + ";base64," + base64(bytes);
}

std::string html_text(std::string_view text) {
    std::string escaped;
    for (char const character : visible(text)) {
        switch (character) {
        case '&':
            escaped += "&amp;";
            break;
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        case '"':
            escaped += "&quot;";
            break;
        default:
            escaped += character;
        }
    }
    return escaped;
}

} // namespace polarize_tool
