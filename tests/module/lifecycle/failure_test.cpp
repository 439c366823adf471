/// @file
/// Covers failures on the way: a lock that cannot be taken, each allocation, and a logging library
/// that throws. After each of them the module is as it was, its lock is free and nothing is lost.

#include "expected_log.hpp"
#include "scenario_run.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <iostream>

namespace lifecycle {
namespace {

std::string lock_failure(std::string const& function, int error) {
    std::string const number = std::to_string(error);
    return "lock fails with " + number + "\n" + function + " threw std::system_error, error " +
           number + "\n";
}

std::string step_lock_fails(int error) {
    return "lock_fails=" + std::to_string(error) + " ";
}

constexpr int lock_errors[] = {EINVAL, EAGAIN, EDEADLK, EOWNERDEAD, ENOTRECOVERABLE};

TEST(Failing_lock, leaves_both_functions_as_its_error_number_when_idle) {
    for (int const error : lock_errors) {
        std::string const fails = step_lock_fails(error);
        EXPECT_EQ(
            log_of(
                {fails + "initialize state " + fails +
                 "terminate state initialize state terminate"}),
            lock_failure("initialize", error) + idle() + lock_failure("terminate", error) + idle() +
                initialize(full_binding) + bound(1) + terminate(full_release));
    }
}

TEST(Failing_lock, leaves_both_functions_as_its_error_number_when_held) {
    for (int const error : lock_errors) {
        std::string const fails = step_lock_fails(error);
        EXPECT_EQ(
            log_of(
                {"initialize " + fails + "initialize state " + fails +
                 "terminate state terminate state"}),
            initialize(full_binding) + lock_failure("initialize", error) + bound(1) +
                lock_failure("terminate", error) + bound(1) + terminate(full_release) + idle());
    }
}

// The record itself, its text, and whatever else there may be: fails one after another until an
// initialise gets through.
TEST(Failing_allocation, leaves_initialise_with_nothing_changed_and_nothing_lost) {
    std::string const failure = "lock\nunlock\ninitialize threw std::bad_alloc\n" + idle();
    std::string const success = initialize(full_binding) + bound(1) + terminate(full_release);
    int failures = 0;
    std::string log;
    do {
        std::string const nth = std::to_string(failures + 1);
        log = log_of({"allocation_fails=" + nth + " initialize state"});
        failures += log.starts_with(failure) ? 1 : 0;
    } while (log == failure && failures < 100);
    EXPECT_EQ(log, initialize(full_binding) + bound(1) + without_lock(full_release));
    std::cout << "allocations of one initialise that were made to fail: " << failures << '\n';
    EXPECT_GE(failures, 2) << "the record and the text of its name";
    for (int nth = 1; nth <= failures; ++nth) {
        // A second attempt of the same client binds as if nothing had happened.
        EXPECT_EQ(
            log_of(
                {"allocation_fails=" + std::to_string(nth) +
                 " initialize state initialize state terminate"}),
            failure + success);
    }
}

TEST(Failing_allocation, does_not_reach_a_held_module) {
    EXPECT_EQ(
        log_of({"initialize allocation_fails=1 initialize state terminate terminate state"}),
        initialize(full_binding) + initialize() + bound(2) + terminate() + terminate(full_release) +
            idle());
}

struct Throwing_library {
    char const* name;
    std::string outcome;
};

TEST(Throwing_mrv_get_log, leaves_initialise_with_nothing_changed_but_the_library_open) {
    for (auto const& [name, outcome] :
         {Throwing_library{"get_log_throws_exception", "std::runtime_error: the log is broken"},
          Throwing_library{"get_log_throws_number", "the number 7"}}) {
        std::string const attempt = "lock\n" + open + look_up("mrv_get_log") + get_log +
                                    "unlock\ninitialize threw " + outcome + "\n" + idle();
        EXPECT_EQ(
            log_of({"initialize state logging_library terminate", name}),
            attempt + "logging library in memory\n" + terminate());
        // Still idle, so the next initialise is an attempt of its own.
        EXPECT_EQ(log_of({"initialize state initialize state", name}), attempt + attempt);
    }
}

TEST(Throwing_mrv_free_log, is_dropped_by_terminate_which_leaves_the_library_open) {
    std::string const cycle = initialize(full_binding) + bound(1) +
                              terminate(look_up("mrv_free_log") + free_log) + idle();
    for (char const* library : {"free_log_throws_exception", "free_log_throws_number"}) {
        EXPECT_EQ(
            log_of({"initialize state terminate state logging_library", library}),
            cycle + "logging library in memory\n");
        EXPECT_EQ(
            log_of({"initialize state terminate state initialize state terminate state", library}),
            cycle + cycle);
    }
}

} // namespace
} // namespace lifecycle
