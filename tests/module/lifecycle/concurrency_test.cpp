/// @file
/// Covers clients in several threads. That every call to the outside is made under the lock is part
/// of each single-threaded log, where a line would say otherwise.

#include "expected_log.hpp"
#include "scenario_run.hpp"

#include <gtest/gtest.h>

namespace lifecycle {
namespace {

TEST(Concurrency, of_eight_clients_and_a_transform_leaves_every_binding_released) {
    std::string const verdicts = "every call returned 0: yes\n"
                                 "at least one binding: yes\n"
                                 "as many dlopen, mrv_get_log, mrv_free_log and dlclose: yes\n"
                                 "never two calls to the outside at once: yes\n"
                                 "every transform gave the same planes: yes\n";
    EXPECT_EQ(
        log_of({"threads=10000 state logging_library"}),
        verdicts + idle() + "logging library not in memory\n");
}

} // namespace
} // namespace lifecycle
