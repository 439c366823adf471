// The pipeline of many frames: order, the bound on frames in flight, exceptions in each stage,
// stopping, numbers of threads, the rounding mode.

#include "veldrane_mrv/polarization/pipeline.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cfenv>
#include <chrono>
#include <condition_variable>
#include <iostream>
#include <memory>
#include <mutex>
#include <numeric>
#include <set>
#include <stdexcept>
#include <thread>

namespace client_test {
namespace {

using namespace veldrane_mrv::polarization;

using Slot = std::unique_ptr<std::size_t>;

Slot make_slot() {
    return std::make_unique<std::size_t>(0);
}

std::vector<std::size_t> numbers_below(std::size_t end) {
    std::vector<std::size_t> numbers(end);
    std::iota(numbers.begin(), numbers.end(), std::size_t{0});
    return numbers;
}

// Opens once and stays open. Whoever waits for it gives up after a minute: what never opens it is a
// failure and no hang.
class Gate {
public:
    void open() {
        std::scoped_lock const lock{mutex_};
        is_open_ = true;
        opened_.notify_all();
    }
    void wait() {
        std::unique_lock lock{mutex_};
        opened_.wait_for(lock, std::chrono::minutes{1}, [this] { return is_open_; });
    }

private:
    std::mutex mutex_;
    std::condition_variable opened_;
    bool is_open_ = false;
};

// Work of a length that differs from frame to frame, so that frames overtake each other.
void work_for(std::size_t index) {
    std::this_thread::sleep_for(std::chrono::microseconds{(index * 7919) % 500});
}

TEST(Pipeline, keeps_the_order_and_loses_no_frame) {
    std::size_t runs = 0;
    for (unsigned const threads : {0U, 1U, 2U, 5U}) {
        for (std::size_t const in_flight : {std::size_t{0}, std::size_t{1}, std::size_t{7}}) {
            constexpr std::size_t frames = 200;
            std::vector<std::size_t> written;
            auto const result = run_pipeline(
                {threads, in_flight, {}}, make_slot,
                [](std::size_t index, Slot& slot) {
                    *slot = index;
                    return index < frames;
                },
                [](std::size_t index, Slot& slot) {
                    work_for(index);
                    *slot = 3 * index + (*slot == index ? 0 : 1);
                },
                [&](std::size_t index, Slot const& slot) {
                    EXPECT_EQ(*slot, 3 * index);
                    written.push_back(index);
                });
            EXPECT_EQ(written, numbers_below(frames));
            EXPECT_EQ(result.done, numbers_below(frames));
            EXPECT_TRUE(result.failed.empty());
            EXPECT_FALSE(result.stopped);
            ++runs;
        }
    }
    std::cout << runs << " runs of 200 frames\n";
}

TEST(Pipeline, never_has_more_frames_in_flight_than_slots) {
    for (std::size_t const most : {1U, 2U, 3U, 8U}) {
        std::atomic<std::size_t> in_flight{0};
        std::atomic<std::size_t> slots{0};
        std::size_t highest = 0;
        std::atomic<bool> shared{false};
        Gate second_is_read;
        run_pipeline(
            {4, most, {}},
            [&] {
                ++slots;
                return std::make_unique<std::atomic<int>>(0);
            },
            [&](std::size_t index, auto& slot) {
                if (index == 300) {
                    return false;
                }
                shared = shared || slot->fetch_add(1) != 0;
                highest = std::max(highest, ++in_flight);
                if (index == 1) {
                    second_is_read.open();
                }
                return true;
            },
            [&](std::size_t index, auto&) {
                if (index == 0 && most > 1) {
                    second_is_read.wait();
                }
                work_for(index);
            },
            [&](std::size_t, auto& slot) {
                --*slot;
                --in_flight;
            });
        EXPECT_EQ(slots, most);
        EXPECT_LE(highest, most);
        EXPECT_FALSE(shared) << "a slot held two frames at once";
        // The bound is used, too: less would leave threads idle.
        EXPECT_GE(highest, std::min<std::size_t>(most, 2));
        std::cout << "at most " << highest << " of " << most << " in flight\n";
    }
}

TEST(Pipeline, an_exception_in_any_stage_ends_its_frame_alone) {
    auto const fail = [](std::size_t index, std::size_t remainder, char const* text) {
        if (index % 10 == remainder) {
            throw std::runtime_error{text + std::to_string(index)};
        }
    };
    for (unsigned const threads : {1U, 2U, 4U}) {
        std::vector<std::size_t> written;
        std::mutex mutex;
        std::set<std::size_t> worked;
        auto const result = run_pipeline(
            {threads, 5, {}}, make_slot,
            [&](std::size_t index, Slot&) {
                fail(index, 3, "r");
                return index < 100;
            },
            [&](std::size_t index, Slot&) {
                fail(index, 5, "w");
                std::scoped_lock const lock{mutex};
                worked.insert(index);
            },
            [&](std::size_t index, Slot&) {
                fail(index, 8, "o");
                if (index % 10 == 9) {
                    throw 7; // not a std::exception
                }
                written.push_back(index);
            });
        ASSERT_EQ(result.failed.size(), 40U);
        ASSERT_EQ(result.done.size(), 60U);
        EXPECT_EQ(result.done, written);
        EXPECT_EQ(worked.size(), 80U);
        EXPECT_TRUE(std::ranges::is_sorted(result.failed, {}, &Frame_failure::index));
        EXPECT_EQ(result.failed[4].index, 13U);
        EXPECT_EQ(result.failed[4].stage, Pipeline_stage::read);
        EXPECT_EQ(result.failed[4].message, "r13");
        EXPECT_EQ(result.failed[5].stage, Pipeline_stage::work);
        EXPECT_EQ(result.failed[5].message, "w15");
        EXPECT_EQ(result.failed[6].stage, Pipeline_stage::write);
        EXPECT_EQ(result.failed[6].message, "o18");
        EXPECT_EQ(result.failed[7].message, "an exception of unknown type");
    }
}

TEST(Pipeline, lack_of_memory_ends_its_frame_with_what_to_do) {
    auto const fail = [](std::size_t index, std::size_t which) {
        if (index == which) {
            throw std::bad_alloc{};
        }
    };
    auto const result = run_pipeline(
        {2, 4, {}}, make_slot,
        [&](std::size_t index, Slot&) {
            fail(index, 1);
            return index < 6;
        },
        [&](std::size_t index, Slot&) {
            fail(index, 2);
            if (index == 4) {
                throw std::runtime_error{"other"};
            }
        },
        [&](std::size_t index, Slot&) { fail(index, 3); });
    EXPECT_EQ(result.done, (std::vector<std::size_t>{0, 5}));
    ASSERT_EQ(result.failed.size(), 4U);
    for (Frame_failure const& failure : result.failed) {
        bool const lacked = failure.index != 4;
        EXPECT_EQ(failure.lacked_memory, lacked) << failure.index;
        EXPECT_EQ(failure.message.find("fewer threads") != std::string::npos, lacked)
            << failure.message;
    }
}

TEST(Pipeline, stops_when_asked_and_writes_no_frame_afterwards) {
    for (unsigned const threads : {1U, 3U}) {
        std::atomic<bool> stop{false};
        std::vector<std::size_t> written;
        std::atomic<std::size_t> read{0};
        auto const result = run_pipeline(
            {threads, 6, [&] { return stop.load(); }}, make_slot,
            [&](std::size_t, Slot&) {
                ++read;
                return true;
            },
            [](std::size_t, Slot&) {},
            [&](std::size_t index, Slot&) {
                EXPECT_FALSE(stop);
                written.push_back(index);
                stop = index == 20;
            });
        EXPECT_TRUE(result.stopped);
        EXPECT_EQ(result.done, numbers_below(21));
        EXPECT_EQ(written, result.done);
        EXPECT_TRUE(result.failed.empty());
        EXPECT_LE(read, 21U + 6U);
    }
    auto const at_once = run_pipeline(
        {2, 2, [] { return true; }}, make_slot,
        [](std::size_t, Slot&) -> bool { throw std::logic_error{"read"}; },
        [](std::size_t, Slot&) {}, [](std::size_t, Slot&) {});
    EXPECT_TRUE(at_once.stopped);
    EXPECT_TRUE(at_once.done.empty() && at_once.failed.empty());
}

TEST(Pipeline, works_on_as_many_frames_at_once_as_there_are_threads) {
    for (unsigned const threads : {1U, 2U, 6U}) {
        std::atomic<unsigned> working{0};
        std::atomic<unsigned> most{0};
        Gate second_has_come;
        run_pipeline(
            {threads, 16, {}}, make_slot, [](std::size_t index, Slot&) { return index < 60; },
            [&](std::size_t index, Slot&) {
                unsigned const now = ++working;
                unsigned seen = most;
                while (seen < now && !most.compare_exchange_weak(seen, now)) {
                }
                if (now == 2) {
                    second_has_come.open();
                } else if (index == 0 && threads > 1) {
                    second_has_come.wait();
                }
                work_for(index);
                --working;
            },
            [](std::size_t, Slot&) {});
        EXPECT_LE(most, threads);
        EXPECT_EQ(most > 1, threads > 1);
    }
}

TEST(Pipeline, all_stages_round_as_the_caller) {
    std::set<int> modes;
    std::mutex mutex;
    auto const note = [&] {
        std::scoped_lock const lock{mutex};
        modes.insert(std::fegetround());
    };
    std::fesetround(FE_UPWARD);
    run_pipeline(
        {3, 6, {}}, make_slot,
        [&](std::size_t index, Slot&) {
            note();
            return index < 50;
        },
        [&](std::size_t index, Slot&) {
            note();
            work_for(index);
        },
        [&](std::size_t, Slot&) { note(); });
    EXPECT_EQ(std::fegetround(), FE_UPWARD);
    std::fesetround(FE_TONEAREST);
    EXPECT_EQ(modes, std::set<int>{FE_UPWARD});
}

TEST(Pipeline, numbers_beyond_reason_are_refused_before_a_slot_is_made) {
    std::size_t slots = 0;
    auto const run = [&](Pipeline_options const& options) {
        run_pipeline(
            options,
            [&] {
                ++slots;
                return 0;
            },
            [](std::size_t, int&) { return false; }, [](std::size_t, int&) {},
            [](std::size_t, int&) {});
    };
    EXPECT_THROW(run({2000, 0, {}}), Argument_error);
    EXPECT_THROW(run({1, std::size_t{1} << 40, {}}), Argument_error);
    EXPECT_EQ(slots, 0U);
    run({3, 0, {}});
    EXPECT_EQ(slots, 6U);
    Pipeline_options const settled = resolved({});
    EXPECT_EQ(settled.threads, std::clamp(std::thread::hardware_concurrency(), 1U, 1024U));
    EXPECT_EQ(settled.frames_in_flight, 2 * settled.threads);
}

TEST(Pipeline, a_slot_that_cannot_be_made_ends_the_run_before_it_begins) {
    EXPECT_THROW(
        run_pipeline(
            {1, 3, {}}, []() -> int { throw std::bad_alloc{}; },
            [](std::size_t, int&) -> bool {
                ADD_FAILURE();
                return false;
            },
            [](std::size_t, int&) {}, [](std::size_t, int&) {}),
        std::bad_alloc);
}

} // namespace
} // namespace client_test
