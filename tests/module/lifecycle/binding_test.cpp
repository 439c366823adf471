/// @file
/// Covers one binding from initialise to terminate, with every degree of what the logging library
/// offers: which calls are made, in which order, under the lock, and what the record then holds.

#include "expected_log.hpp"
#include "scenario_run.hpp"

#include <gtest/gtest.h>

#include <iostream>

namespace lifecycle {
namespace {

constexpr char const* once = "initialize state terminate state logging_library";
std::string const left = idle() + "logging library not in memory\n";

TEST(Binding, with_a_complete_library_opens_gets_and_looks_up_then_frees_and_closes) {
    std::string const log = log_of({once});
    std::cout << log;
    EXPECT_EQ(log, initialize(full_binding) + bound(1) + terminate(full_release) + left);
}

TEST(Binding, without_a_library_leaves_an_unbound_record_and_closes_nothing) {
    EXPECT_EQ(
        log_of({once, "missing"}), initialize(open) +
                                       held(1, "library null, log null, function null, not bound") +
                                       terminate() + left);
}

TEST(Binding, without_mrv_get_log_keeps_the_library_open_until_the_release) {
    EXPECT_EQ(
        log_of({"initialize state logging_library terminate state", "without_get_log"}),
        initialize(open + look_up("mrv_get_log")) +
            held(1, "library open, log null, function null, not bound") +
            "logging library in memory\n" + terminate(full_release) + idle());
}

TEST(Binding, with_a_null_log_does_not_look_up_mrv_log_and_still_frees_the_log) {
    EXPECT_EQ(
        log_of({once, "get_log_returns_null"}),
        initialize(open + look_up("mrv_get_log") + get_log) +
            held(1, "library open, log null, function null, not bound") + terminate(full_release) +
            left);
}

TEST(Binding, without_mrv_log_keeps_the_log_and_is_not_bound) {
    EXPECT_EQ(
        log_of({once, "without_log"}),
        initialize(full_binding) + held(1, "library open, log got, function null, not bound") +
            terminate(full_release) + left);
}

TEST(Binding, without_mrv_free_log_is_bound_and_closes_the_library) {
    EXPECT_EQ(
        log_of({once, "without_free_log"}),
        initialize(full_binding) + bound(1) + terminate(look_up("mrv_free_log") + close) + left);
}

TEST(Binding, with_a_library_of_no_function_at_all_opens_and_closes_it) {
    EXPECT_EQ(
        log_of({once, "without_any_function"}),
        initialize(open + look_up("mrv_get_log")) +
            held(1, "library open, log null, function null, not bound") +
            terminate(look_up("mrv_free_log") + close) + left);
}

// A call of mrv_log would be a line of the log.
TEST(Binding, stores_mrv_log_and_never_calls_it) {
    EXPECT_EQ(
        log_of({"initialize initialize transform state terminate terminate"}),
        initialize(full_binding) + initialize() +
            "transform returned 0, every pixel, the same planes\n" + bound(2) + terminate() +
            terminate(full_release));
}

TEST(Binding, names_the_module_and_leaves_the_qualifier_empty_whatever_was_found) {
    for (char const* library : {"complete", "missing", "without_get_log"}) {
        std::string const log = log_of({"initialize names", library});
        EXPECT_NE(
            log.find("names: \"VELDRANE_MRV_POLARIZATION_PROCESSOR_VECTOR_AVX2\" of 47, \"\" of "
                     "0\n"),
            std::string::npos)
            << log;
    }
}

TEST(Binding, shows_in_logger_after_it_is_made_and_is_gone_from_it_before_it_is_released) {
    std::string const empty = "  meanwhile count 0, no record\n";
    EXPECT_EQ(
        log_of({"watch_logger initialize terminate"}),
        initialize(open + look_up("mrv_get_log") + get_log + empty + look_up("mrv_log")) +
            terminate(look_up("mrv_free_log") + free_log + empty + close));
}

} // namespace
} // namespace lifecycle
