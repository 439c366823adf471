// Covers: text of users and files before it reaches a terminal, a page or a JSON file.
#include "terminal/visible_text.hpp"

#include <gtest/gtest.h>
#include <utility>
#include <vector>

namespace {

using polarize_tool::is_utf8;
using polarize_tool::utf8;
using polarize_tool::visible;

TEST(Visible_text, leaves_what_can_be_read) {
    for (std::string const text :
         {"", "frame 1.png", "\u00e4\u00a0\u00e9.png", "\u6e2c\u5b9a.tif", "\U0001f4f7.png",
          "C:\\x1b", "\u05d0\u05d1"}) {
        EXPECT_EQ(visible(text), text);
        EXPECT_EQ(utf8(text), text);
        EXPECT_TRUE(is_utf8(text));
    }
}

TEST(Visible_text, escapes_controls_and_what_turns_the_direction) {
    std::vector<std::pair<std::string, std::string>> const cases = {
        {"a\x1b[31mb", "a\\x1b[31mb"},
        {"a\nb\rc\td", "a\\nb\\rc\\td"},
        {std::string("a\0b", 3), "a\\x00b"},
        {"\x7f", "\\u007f"},
        {"\u0085\u009b", "\\u0085\\u009b"},
        {"\u202egnp.exe", "\\u202egnp.exe"},
        {"\u2066\u2069\u200e\u200f\u061c", "\\u2066\\u2069\\u200e\\u200f\\u061c"},
        {"\u2028\u2029", "\\u2028\\u2029"}};
    for (auto const& [text, shown] : cases) {
        EXPECT_EQ(visible(text), shown);
        EXPECT_EQ(visible(shown), shown);
        EXPECT_EQ(utf8(text), text);
    }
}

TEST(Visible_text, escapes_bytes_that_are_no_utf8_one_by_one) {
    std::vector<std::pair<std::string, std::string>> const cases = {
        {"\xff", "\\xff"},
        {"caf\xe9.png", "caf\\xe9.png"},
        {"\x80z", "\\x80z"},
        {"\xc0\xaf", "\\xc0\\xaf"},                   // too long for its code point
        {"\xe0\x80\xaf", "\\xe0\\x80\\xaf"},          // the same
        {"\xed\xa0\x80", "\\xed\\xa0\\x80"},          // half of a pair
        {"\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"}, // behind the last code point
        {"\xf8\x88\x80\x80\x80", "\\xf8\\x88\\x80\\x80\\x80"},
        {"\xe6\xb8", "\\xe6\\xb8"},
        {"\xc3", "\\xc3"}};
    for (auto const& [text, shown] : cases) {
        EXPECT_EQ(visible(text), shown);
        EXPECT_EQ(utf8(text), shown);
        EXPECT_FALSE(is_utf8(text));
    }
}

} // namespace
