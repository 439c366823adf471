#include "view/view_token.hpp"

#include <array>
#include <cerrno>
#include <cstddef>
#include <sys/random.h>
#include <system_error>

namespace polarize_tool {

std::string new_token() {
    std::array<unsigned char, 32> bytes{};
    // So few bytes come at once or not at all.
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
        throw std::system_error(errno, std::generic_category(), "random numbers");
    }
    constexpr std::string_view digits = "0123456789abcdef";
    std::string token;
    for (unsigned const byte : bytes) {
        token += digits[byte >> 4U];
        token += digits[byte & 0xfU];
    }
    return token;
}

bool is_token(std::string_view given, std::string_view expected) {
    // Volatile, lest the compiler ends the loop at the first difference.
    unsigned volatile difference = given.size() == expected.size() ? 0 : 1;
    for (std::size_t index = 0; index < given.size(); ++index) {
        auto const own = static_cast<unsigned char>(expected[index % expected.size()]);
        difference = difference | (static_cast<unsigned char>(given[index]) ^ own);
    }
    return difference == 0;
}

} // namespace polarize_tool
