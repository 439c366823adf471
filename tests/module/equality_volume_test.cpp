/// @file
/// Covers the volume of the comparison with the reference: whatever is rearranged in the suites of
/// this program, a whole run of it makes at least this many guarded calls.

#include "support/equality_checker.hpp"

#include <gtest/gtest.h>

namespace {

constexpr std::size_t least_calls_of_a_round{400'000};

class Equality_volume : public testing::Environment {
    void TearDown() override {
        auto const& program = *testing::UnitTest::GetInstance();
        if (program.test_to_run_count() == program.total_test_count()) {
            EXPECT_GE(
                support::checked_calls(),
                least_calls_of_a_round * support::equality_rounds().count);
        }
    }
};

[[maybe_unused]] testing::Environment* const equality_volume =
    testing::AddGlobalTestEnvironment(new Equality_volume);

} // namespace
