/// @file
/// Covers the count of clients: every move between the idle and the held state, and a transform in
/// each of them.

#include "expected_log.hpp"
#include "scenario_run.hpp"

#include <gtest/gtest.h>

namespace lifecycle {
namespace {

std::string const same_planes = "transform returned 0, every pixel, the same planes\n";

TEST(Counting, begins_idle_and_loading_calls_nothing) {
    for (Client const client : {Client::loads_it, Client::is_linked_with_it}) {
        EXPECT_EQ(
            log_of({.steps = "state logging_library", .client = client}),
            idle() + "logging library not in memory\n");
    }
}

TEST(Counting, first_initialise_binds_and_counts_1) {
    EXPECT_EQ(
        log_of({"initialize state terminate"}),
        initialize(full_binding) + bound(1) + terminate(full_release));
}

TEST(Counting, later_initialise_only_counts) {
    EXPECT_EQ(
        log_of({"initialize initialize state initialize state terminate terminate terminate"}),
        initialize(full_binding) + initialize() + bound(2) + initialize() + bound(3) + terminate() +
            terminate() + terminate(full_release));
}

TEST(Counting, later_initialise_does_not_retry_a_failed_binding) {
    EXPECT_EQ(
        log_of({"initialize initialize state", "missing"}),
        initialize(open) + initialize() +
            held(2, "library null, log null, function null, not bound"));
    EXPECT_EQ(
        log_of({"initialize initialize state terminate terminate", "get_log_returns_null"}),
        initialize(open + look_up("mrv_get_log") + get_log) + initialize() +
            held(2, "library open, log null, function null, not bound") + terminate() +
            terminate(full_release));
}

TEST(Counting, two_initialisations_and_terminations_share_one_binding_until_the_second) {
    EXPECT_EQ(
        log_of({"initialize initialize terminate state terminate state"}),
        initialize(full_binding) + initialize() + terminate() + bound(1) + terminate(full_release) +
            idle());
}

TEST(Counting, terminate_without_a_client_stays_at_0_and_does_not_spoil_the_next_binding) {
    EXPECT_EQ(
        log_of({"terminate terminate state initialize state terminate state"}),
        terminate() + terminate() + idle() + initialize(full_binding) + bound(1) +
            terminate(full_release) + idle());
}

TEST(Counting, one_terminate_too_many_changes_nothing) {
    EXPECT_EQ(
        log_of({"initialize terminate terminate state"}),
        initialize(full_binding) + terminate(full_release) + terminate() + idle());
}

TEST(Counting, every_cycle_from_idle_binds_anew_with_a_new_record) {
    std::string const cycle =
        initialize(full_binding) + bound(1) + terminate(full_release) + idle();
    EXPECT_EQ(
        log_of({"initialize state terminate state initialize state terminate state"}),
        cycle + cycle);
}

TEST(Counting, cycle_after_a_failed_binding_tries_again) {
    EXPECT_EQ(
        log_of({"initialize terminate initialize terminate", "missing"}),
        initialize(open) + terminate() + initialize(open) + terminate());
}

// The object is exported: its owner may find a count and an object that do not go together.
TEST(Counting, initialise_with_a_count_but_no_record_only_counts) {
    EXPECT_EQ(log_of({"set_count=1 initialize state set_count=0"}), initialize() + idle(2));
}

TEST(Counting, initialise_with_a_record_but_no_count_only_counts) {
    EXPECT_EQ(
        log_of({"initialize set_count=0 initialize state terminate"}),
        initialize(full_binding) + initialize() + bound(1) + terminate(full_release));
}

TEST(Counting, terminate_with_a_record_but_no_count_leaves_the_record) {
    EXPECT_EQ(
        log_of({"initialize set_count=0 terminate state set_count=1 terminate"}),
        initialize(full_binding) + terminate() + bound(0) + terminate(full_release));
}

TEST(Counting, terminate_with_a_count_but_no_record_counts_down_and_releases_nothing) {
    EXPECT_EQ(log_of({"set_count=1 terminate state"}), terminate() + idle());
}

TEST(Counting, transform_works_without_initialise_and_touches_no_logging_library) {
    for (char const* library : {"complete", "missing"}) {
        EXPECT_EQ(
            log_of({"transform logging_library state", library}),
            same_planes + "logging library not in memory\n" + idle());
    }
}

TEST(Counting, transform_gives_the_same_planes_before_during_and_after_a_binding) {
    EXPECT_EQ(
        log_of({"transform initialize transform state terminate transform state"}),
        same_planes + initialize(full_binding) + same_planes + bound(1) + terminate(full_release) +
            same_planes + idle());
}

// An allocation by the transform would throw out of it.
TEST(Counting, transform_allocates_nothing) {
    EXPECT_EQ(log_of({"allocation_fails=1 transform state"}), same_planes + idle());
}

} // namespace
} // namespace lifecycle
