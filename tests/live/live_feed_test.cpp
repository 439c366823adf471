// The queue between receiving and processing: order, drops by each policy, every frame counted.
#include "veldrane_mrv/polarization/live_feed.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

#include <gtest/gtest.h>

#include <iostream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace polarization = veldrane_mrv::polarization;

namespace {

using polarization::Drop_policy;
using polarization::Incomplete_cause;
using polarization::Live_feed;
using polarization::Live_frame;
using polarization::Steady_time;

constexpr std::size_t frame_bytes = 4;

std::string bytes_of(std::uint64_t number) {
    return std::string(frame_bytes, static_cast<char>('a' + number % 26));
}

bool give(Live_feed& feed, std::uint64_t number) {
    return feed.give(bytes_of(number), {number, number * 10, number * 100}, Steady_time());
}

std::vector<std::uint64_t> taken(Live_feed& feed) {
    std::vector<std::uint64_t> numbers;
    Live_frame frame;
    while (feed.take(frame, std::chrono::steady_clock::now())) {
        EXPECT_EQ(frame.bytes, bytes_of(frame.capture.frame_number));
        EXPECT_EQ(frame.capture.host_time_ns, frame.capture.frame_number * 100);
        numbers.push_back(frame.capture.frame_number);
    }
    return numbers;
}

using Numbers = std::vector<std::uint64_t>;

TEST(Live_feed, newest_frames_go_where_there_is_no_room) {
    Live_feed feed(frame_bytes, 2, Drop_policy::newest);
    for (std::uint64_t number = 1; number <= 5; ++number) {
        EXPECT_TRUE(give(feed, number));
    }
    EXPECT_EQ(taken(feed), (Numbers{1, 2}));
    EXPECT_EQ(feed.counts().received, 5U);
    EXPECT_EQ(feed.counts().dropped, 3U);
    EXPECT_EQ(feed.counts().lost, 0U);
}

TEST(Live_feed, oldest_frames_go_where_there_is_no_room) {
    Live_feed feed(frame_bytes, 2, Drop_policy::oldest);
    for (std::uint64_t number = 1; number <= 5; ++number) {
        EXPECT_TRUE(give(feed, number));
    }
    EXPECT_EQ(taken(feed), (Numbers{4, 5}));
    EXPECT_EQ(feed.counts().dropped, 3U);
}

TEST(Live_feed, without_drops_every_frame_comes_in_its_order) {
    constexpr std::uint64_t count = 20'000;
    Live_feed feed(frame_bytes, 3, Drop_policy::none);
    std::thread giver([&feed] {
        for (std::uint64_t number = 1; number <= count; ++number) {
            give(feed, number);
        }
        feed.end();
    });
    std::uint64_t next = 1;
    Live_frame frame;
    while (feed.take(frame)) {
        ASSERT_EQ(frame.capture.frame_number, next++);
        ASSERT_EQ(frame.bytes, bytes_of(frame.capture.frame_number));
    }
    giver.join();
    EXPECT_EQ(next - 1, count);
    EXPECT_EQ(feed.counts().dropped, 0U);
    EXPECT_TRUE(feed.is_at_end());
    std::cout << count << " frames through a queue of 3\n";
}

TEST(Live_feed, who_waits_for_room_is_let_go) {
    for (bool const is_closed : {false, true}) {
        Live_feed feed(frame_bytes, 1, Drop_policy::none);
        EXPECT_TRUE(give(feed, 1));
        bool goes_on = false;
        std::thread giver([&] { goes_on = give(feed, 2); });
        if (is_closed) {
            feed.close();
        } else {
            feed.drain();
        }
        giver.join();
        EXPECT_EQ(goes_on, !is_closed);
        EXPECT_EQ(taken(feed), is_closed ? Numbers{1} : (Numbers{1, 2}));
        EXPECT_EQ(feed.counts().received, is_closed ? 1U : 2U);
        EXPECT_EQ(feed.counts().dropped, 0U);
    }
}

TEST(Live_feed, nothing_is_dropped_near_the_end_and_the_end_comes) {
    for (Drop_policy const drop : {Drop_policy::newest, Drop_policy::oldest, Drop_policy::none}) {
        Live_feed feed(frame_bytes, 1, drop);
        EXPECT_TRUE(give(feed, 1));
        feed.drain();
        std::uint64_t number = 2;
        while (give(feed, number)) {
            ASSERT_LT(++number, 100U);
        }
        EXPECT_EQ(number, 18U);
        EXPECT_EQ(taken(feed).size(), 17U);
        EXPECT_EQ(feed.counts().received, 17U);
        EXPECT_EQ(feed.counts().dropped, 0U);
    }
}

TEST(Live_feed, frames_that_wait_can_be_taken_behind_the_end) {
    Live_feed feed(frame_bytes, 4, Drop_policy::newest);
    give(feed, 1);
    give(feed, 2);
    feed.end("went away");
    EXPECT_FALSE(feed.is_at_end());
    EXPECT_EQ(taken(feed), (Numbers{1, 2}));
    EXPECT_TRUE(feed.is_at_end());
    EXPECT_EQ(feed.failure(), "went away");
}

TEST(Live_feed, waiting_ends_when_asked_to) {
    Live_feed feed(frame_bytes, 1, Drop_policy::newest);
    Live_frame frame;
    int asked = 0;
    EXPECT_FALSE(feed.take(frame, std::nullopt, [&asked] { return ++asked == 3; }));
    EXPECT_EQ(asked, 3);
}

TEST(Live_feed, frames_of_another_size_are_incomplete) {
    Live_feed feed(frame_bytes, 4, Drop_policy::newest);
    give(feed, 1);
    EXPECT_TRUE(feed.give("abc", {2, 0, 0}, Steady_time()));
    EXPECT_TRUE(feed.give("abcde", {3, 0, 0}, Steady_time()));
    give(feed, 4);
    EXPECT_EQ(taken(feed), (Numbers{1, 4}));
    EXPECT_EQ(feed.counts().of(Incomplete_cause::size_mismatch), 2U);
    EXPECT_EQ(feed.counts().all_incomplete(), 2U);
    EXPECT_EQ(feed.counts().lost, 0U);
}

TEST(Live_feed, every_frame_is_accounted_for) {
    Live_feed feed(frame_bytes, 2, Drop_policy::oldest);
    give(feed, 65530);
    feed.note_incomplete(Incomplete_cause::missing_packets, 65532); // 65531 is lost
    give(feed, 65535);                                              // and 65533, 65534
    give(feed, 1);
    feed.note_incomplete(Incomplete_cause::time_out, 3); // and 2
    feed.note_incomplete(Incomplete_cause::other);
    auto const counts = feed.counts();
    EXPECT_EQ(counts.received, 3U);
    EXPECT_EQ(counts.dropped, 1U);
    EXPECT_EQ(counts.lost, 4U);
    EXPECT_EQ(counts.of(Incomplete_cause::missing_packets), 1U);
    EXPECT_EQ(counts.of(Incomplete_cause::time_out), 1U);
    EXPECT_EQ(counts.of(Incomplete_cause::other), 1U);
    feed.note_reconnection();
    give(feed, 77);
    EXPECT_EQ(feed.counts().lost, 4U);
    EXPECT_EQ(feed.counts().reconnections, 1U);
}

TEST(Live_feed, an_incomplete_frame_without_a_number_is_not_counted_as_lost_too) {
    Live_feed feed(frame_bytes, 2, Drop_policy::oldest);
    give(feed, 5);
    feed.note_incomplete(Incomplete_cause::time_out);
    give(feed, 8);
    EXPECT_EQ(feed.counts().lost, 1U);
    give(feed, 10);
    EXPECT_EQ(feed.counts().lost, 2U);
}

TEST(Live_feed, numbers_wrap_as_cameras_count) {
    using polarization::frames_between;
    EXPECT_EQ(frames_between(7, 8), 0U);
    EXPECT_EQ(frames_between(7, 10), 2U);
    EXPECT_EQ(frames_between(65535, 1), 0U); // 16 bits, without 0
    EXPECT_EQ(frames_between(65535, 0), 0U);
    EXPECT_EQ(frames_between(65534, 1), 1U);
    EXPECT_EQ(frames_between(65535, 3), 2U);
    EXPECT_EQ(frames_between(65535, 65536), 0U); // 64 bits
    EXPECT_EQ(frames_between(65536, 65540), 3U);
    EXPECT_EQ(frames_between(8, 8), 0U);
    EXPECT_EQ(frames_between(500, 1), 0U); // begun anew
    EXPECT_EQ(frames_between(100'000, 1), 0U);
}

TEST(Live_feed, a_queue_without_room_is_refused) {
    EXPECT_THROW(Live_feed(frame_bytes, 0, Drop_policy::none), polarization::Argument_error);
}

} // namespace
