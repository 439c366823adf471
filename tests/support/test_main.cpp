/// @file
/// Entry of every test program: runs the tests and prints how much was compared.

#include "support/equality_checker.hpp"

#include <gtest/gtest.h>

#include <iostream>

int main(int argument_count, char** arguments) {
    testing::InitGoogleTest(&argument_count, arguments);
    int const result = RUN_ALL_TESTS();
    if (std::size_t const calls = support::checked_calls(); calls != 0) {
        auto const rounds = support::equality_rounds();
        std::cout << "guarded calls compared with the reference: " << calls << ", seed "
                  << rounds.seed << ", first round " << rounds.first << ", rounds " << rounds.count
                  << '\n';
    }
    return result;
}
