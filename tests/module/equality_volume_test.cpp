/// @file
/// Covers the volume of the comparison with the reference: whatever is rearranged in the suites of
/// this program, a whole run of it makes as many guarded calls as a round has to.

#include "support/equality_checker.hpp"

#include <gtest/gtest.h>

namespace {

class Volume_of_this_program : public testing::Environment {
    void TearDown() override {
        auto const& program = *testing::UnitTest::GetInstance();
        support::expect_volume(
            {program.test_to_run_count() == program.total_test_count(), support::checked_calls(),
             support::equality_rounds().count});
    }
};

[[maybe_unused]] testing::Environment* const equality_volume =
    testing::AddGlobalTestEnvironment(new Volume_of_this_program);

} // namespace
