#include "terminal/visible_text.hpp"

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace polarize_tool {
namespace {

// A code point and its length in bytes, 0 where the text is no UTF-8.
struct Character {
    std::uint32_t code;
    std::size_t length;
};

bool continues(std::string_view text, std::size_t index) {
    return index < text.size() && (static_cast<unsigned char>(text[index]) & 0xc0U) == 0x80U;
}

Character first_character(std::string_view text) {
    auto const lead = static_cast<unsigned char>(text.front());
    if (lead < 0x80U) {
        return {lead, 1};
    }
    std::size_t const length = lead >= 0xf0U ? 4 : lead >= 0xe0U ? 3 : 2;
    constexpr std::uint32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    std::uint32_t code = lead & (0xffU >> (length + 1));
    for (std::size_t index = 1; index < length; ++index) {
        if (!continues(text, index)) {
            return {lead, 0};
        }
        code = (code << 6) | (static_cast<unsigned char>(text[index]) & 0x3fU);
    }
    // Also refuses lone continuations (as too small), surrogates and what lies behind Unicode.
    bool const is_good = lead >= 0xc0U && lead < 0xf8U && code >= smallest[length] &&
                         code <= 0x10ffffU && (code < 0xd800U || code > 0xdfffU);
    return {is_good ? code : lead, is_good ? length : 0};
}

bool is_control(std::uint32_t code) {
    bool const is_control_code = code < 0x20U || (code >= 0x7fU && code <= 0x9fU);
    bool const ends_line = code == 0x2028U || code == 0x2029U;
    bool const turns_direction = code == 0x061cU || code == 0x200eU || code == 0x200fU ||
                                 (code >= 0x202aU && code <= 0x202eU) ||
                                 (code >= 0x2066U && code <= 0x2069U);
    return is_control_code || ends_line || turns_direction;
}

enum class Controls { kept, escaped };

std::string escaped(std::string_view text, Controls controls) {
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        auto const [code, length] = first_character(text);
        char escape[8];
        bool const is_layout = controls == Controls::escaped && code < 0x20U;
        if (is_layout && (code == '\n' || code == '\r' || code == '\t')) {
            result += code == '\n' ? "\\n" : code == '\r' ? "\\r" : "\\t";
        } else if (length == 0 || is_layout) {
            std::snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned>(code & 0xffU));
            result += escape;
        } else if (controls == Controls::escaped && is_control(code)) {
            std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(code & 0xffffU));
            result += escape;
        } else {
            result += text.substr(0, length);
        }
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return result;
}

} // namespace

std::string visible(std::string_view text) {
    return escaped(text, Controls::escaped);
}

std::string utf8(std::string_view text) {
    return escaped(text, Controls::kept);
}

bool is_utf8(std::string_view text) {
    return utf8(text) == text;
}

} // namespace polarize_tool
