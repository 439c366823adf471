// The token: long, different each time, and nothing but itself is taken for it.
#include "view/view_token.hpp"

#include <gtest/gtest.h>

namespace {

using namespace polarize_tool;

TEST(View_token, is_64_hexadecimal_digits_and_new_each_time) {
    std::string const token = new_token();
    EXPECT_EQ(token.size(), 64U);
    EXPECT_EQ(token.find_first_not_of("0123456789abcdef"), token.npos);
    EXPECT_NE(new_token(), token);
}

TEST(View_token, is_taken_as_a_whole_alone) {
    std::string const token = new_token();
    EXPECT_TRUE(is_token(token, token));
    for (std::size_t index = 0; index < token.size(); ++index) {
        std::string wrong = token;
        wrong[index] = wrong[index] == '0' ? '1' : '0';
        EXPECT_FALSE(is_token(wrong, token));
        EXPECT_FALSE(is_token(token.substr(0, index), token));
    }
    EXPECT_FALSE(is_token(token + token, token));
    EXPECT_FALSE(is_token(token + '\0', token));
}

} // namespace
