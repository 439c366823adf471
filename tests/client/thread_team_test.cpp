// The team's own promises: every part once, by threads with numbers of their own, in the caller's
// floating-point environment, whatever is thrown and however many pieces of work follow each other.

#include "src/thread_team.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <cfenv>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace client_test {
namespace {

using veldrane_mrv::polarization::Thread_team;

TEST(Thread_team, does_every_part_once) {
    Thread_team team{4};
    std::size_t parts_done = 0;
    for (std::size_t parts = 0; parts < 300; ++parts) {
        std::vector<std::atomic<int>> times(parts);
        std::vector<std::atomic<bool>> is_busy(4);
        team.run(parts, [&](std::size_t part, unsigned thread) {
            EXPECT_FALSE(is_busy[thread].exchange(true)) << "a number of two threads at once";
            ++times[part];
            is_busy[thread] = false;
        });
        for (std::atomic<int> const& count : times) {
            EXPECT_EQ(count, 1);
            ++parts_done;
        }
    }
    std::cout << parts_done << " parts\n";
}

/// As many parts as threads, each of which waits for the others: every thread has one.
void run_in_each_of_three_threads(Thread_team& team, Thread_team::Task const& task) {
    ASSERT_EQ(team.threads(), 3U);
    std::barrier all_have_begun{3};
    team.run(3, [&](std::size_t part, unsigned thread) {
        all_have_begun.arrive_and_wait();
        task(part, thread);
    });
}

// New threads inherit the environment, so the team has to be older than it.
TEST(Thread_team, works_in_the_callers_floating_point_environment) {
    Thread_team team{3};
    run_in_each_of_three_threads(team, [](std::size_t, unsigned) {});
    std::atomic<int> parts{0};
    for (int const rounding : {FE_UPWARD, FE_TONEAREST, FE_DOWNWARD}) {
        std::fesetround(rounding);
        run_in_each_of_three_threads(team, [&](std::size_t, unsigned) {
            EXPECT_EQ(std::fegetround(), rounding);
            ++parts;
        });
    }
    std::fesetround(FE_TONEAREST);
    EXPECT_EQ(parts, 9);
}

TEST(Thread_team, throws_the_first_exception_and_goes_on_with_the_next_work) {
    Thread_team team{3};
    for (unsigned thrower = 0; thrower < 3; ++thrower) {
        EXPECT_THROW(
            run_in_each_of_three_threads(
                team,
                [&](std::size_t, unsigned thread) {
                    if (thread == thrower) {
                        throw std::runtime_error("of one thread");
                    }
                }),
            std::runtime_error);
        EXPECT_THROW(
            team.run(
                20, [](std::size_t part,
                       unsigned) { throw std::runtime_error("part " + std::to_string(part)); }),
            std::runtime_error);
        std::atomic<int> done{0};
        team.run(20, [&](std::size_t, unsigned) { ++done; });
        EXPECT_EQ(done, 20);
    }
}

} // namespace
} // namespace client_test
