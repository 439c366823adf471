/// @file
/// Covers the destructor of `logger`: at the exit of the process and at the unloading of the
/// module, with a record held or not, and with a logging library that fails meanwhile. The lock is
/// not taken there; the log would show it.

#include "expected_log.hpp"
#include "scenario_run.hpp"

#include <gtest/gtest.h>

namespace lifecycle {
namespace {

std::string const lock_free_release = without_lock(full_release);

class Exit : public testing::TestWithParam<Client> {};

TEST_P(Exit, with_a_record_held_frees_the_log_and_closes_the_library_once) {
    EXPECT_EQ(
        log_of({.steps = "initialize initialize initialize state", .client = GetParam()}),
        initialize(full_binding) + initialize() + initialize() + bound(3) + lock_free_release);
}

TEST_P(Exit, with_a_record_held_but_a_count_of_0_releases_it) {
    EXPECT_EQ(
        log_of({.steps = "initialize set_count=0", .client = GetParam()}),
        initialize(full_binding) + lock_free_release);
}

TEST_P(Exit, with_an_unbound_record_held_calls_nothing) {
    EXPECT_EQ(log_of({"initialize", "missing", GetParam()}), initialize(open));
}

TEST_P(Exit, with_a_partial_binding_held_still_frees_the_log) {
    EXPECT_EQ(
        log_of({"initialize", "get_log_returns_null", GetParam()}),
        initialize(open + look_up("mrv_get_log") + get_log) + lock_free_release);
}

TEST_P(Exit, when_idle_calls_nothing) {
    EXPECT_EQ(
        log_of({.steps = "initialize terminate", .client = GetParam()}),
        initialize(full_binding) + terminate(full_release));
}

TEST_P(Exit, drops_what_mrv_free_log_throws_and_leaves_the_library_open) {
    for (char const* library : {"free_log_throws_exception", "free_log_throws_number"}) {
        EXPECT_EQ(
            log_of({"initialize", library, GetParam()}),
            initialize(full_binding) + without_lock(look_up("mrv_free_log") + free_log));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Of_a_client, Exit, testing::Values(Client::loads_it, Client::is_linked_with_it),
    [](auto const& client) {
        return client.param == Client::loads_it ? "that_loads_it" : "that_is_linked_with_it";
    });

TEST(Exit_memory, is_given_back_by_the_destructor_even_if_mrv_free_log_throws) {
    for (char const* library : {"complete", "missing", "free_log_throws_exception"}) {
        std::string const log =
            log_of({"initialize", library, Client::loads_it, "allocations_at_exit"});
        EXPECT_TRUE(log.ends_with("at exit: 0 allocations\n")) << log;
    }
}

TEST(Unloading, with_a_record_held_frees_the_log_and_closes_the_library) {
    EXPECT_EQ(
        log_of({"initialize initialize unload logging_library"}),
        initialize(full_binding) + initialize() + lock_free_release +
            "module unloaded\n0 allocations\nlogging library not in memory\n");
}

TEST(Unloading, with_an_unbound_record_held_calls_nothing) {
    EXPECT_EQ(
        log_of({"initialize unload", "missing"}),
        initialize(open) + "module unloaded\n0 allocations\n");
}

TEST(Unloading, when_idle_calls_nothing) {
    EXPECT_EQ(log_of({"unload"}), "module unloaded\n0 allocations\n");
    EXPECT_EQ(
        log_of({"initialize terminate unload"}),
        initialize(full_binding) + terminate(full_release) + "module unloaded\n0 allocations\n");
}

TEST(Unloading, drops_what_mrv_free_log_throws_and_leaves_the_library_open) {
    for (char const* library : {"free_log_throws_exception", "free_log_throws_number"}) {
        EXPECT_EQ(
            log_of({"initialize unload logging_library", library}),
            initialize(full_binding) + without_lock(look_up("mrv_free_log") + free_log) +
                "module unloaded\n0 allocations\nlogging library in memory\n");
    }
}

TEST(Unloading, lets_the_module_be_loaded_and_bound_again) {
    EXPECT_EQ(
        log_of({"initialize unload load state initialize state terminate"}),
        initialize(full_binding) + lock_free_release + "module unloaded\n0 allocations\n" + idle() +
            initialize(full_binding) + bound(1) + terminate(full_release));
}

} // namespace
} // namespace lifecycle
