// What a browser gets of frames in a list and of a camera, and what it is told.
#include "view/view_frames.hpp"

#include "shown_frames.hpp"
#include "veldrane_mrv/polarization/pixel_format.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <atomic>
#include <future>
#include <thread>

namespace {

using namespace polarize_tool;

TEST_F(Frames_of_a_list, are_s0_azimuth_and_degree_without_further_words) {
    Got const got = parsed(ask("/frame", {{"after", "-1"}, {"scale", "5"}}));
    EXPECT_EQ(got.header["number"], 0);
    EXPECT_EQ(got.header["width"], 10);
    EXPECT_EQ(got.header["height"], 6);
    EXPECT_EQ(got.header["planes"].size(), 3U);
    EXPECT_EQ(parsed(ask("/frame", {{"after", "8"}})).header["number"], 9);
    EXPECT_EQ(ask("/frame", {{"after", "19"}}).status, 204);
}

TEST_F(Frames_of_a_list, are_read_once_while_they_are_kept) {
    for (unsigned round = 0; round < 4; ++round) {
        for (char const* const number : {"0", "1", "2", "5"}) {
            EXPECT_EQ(ask("/statistics", {{"number", number}}).status, 200);
        }
    }
    EXPECT_EQ(source_.reads, 4U);
    ask("/frame", {{"number", "4"}});
    ask("/frame", {{"number", "2"}});
    EXPECT_EQ(source_.reads, 5U);
    ask("/frame", {{"number", "0"}});
    EXPECT_EQ(source_.reads, 6U);
}

TEST_F(Frames_of_a_list, that_cannot_be_had_are_told_in_a_line) {
    EXPECT_EQ(
        line("/frame", {{"number", "20"}}, 404),
        "number is 20, but there are 20 frames; give a smaller one");
    EXPECT_EQ(line("/frame", {{"number", "3"}}, 422), "made, frame 3: ends too early");
    EXPECT_EQ(line("/statistics", {{"number", "3"}}, 422), "made, frame 3: ends too early");
    EXPECT_EQ(
        line("/frame", {{"number", "0"}, {"region", "48,0,1,1"}}, 404),
        "region is 1 x 1 at column 48, row 0, but the frame has 48 x 30 pixels; give a part of it");
    EXPECT_EQ(ask("/frame", {{"number", "4"}}).status, 200);
}

TEST_F(Frames_of_a_list, are_not_had_with_wrong_parameters) {
    EXPECT_EQ(
        line("/frame", {{"number", "0"}, {"scale", "0"}}, 400),
        "scale is 0; give a whole number from 1 to 128");
    EXPECT_EQ(
        line("/frame", {}, 400),
        "neither number nor after is given; give the number of a frame, or after=-1 for the "
        "newest");
    for (Query const& query : std::vector<Query>{
             {{"number", "0"}, {"after", "1"}},
             {{"number", "-1"}},
             {{"number", ""}},
             {{"number", "1e3"}},
             {{"number", "99999999999999999999"}},
             {{"after", "-2"}},
             {{"number", "0"}, {"scale", "129"}},
             {{"number", "0"}, {"scale", " 1"}},
             {{"number", "0"}, {"region", "0,0,1"}},
             {{"number", "0"}, {"region", "0,0,0,1"}},
             {{"number", "0"}, {"region", "0,0,1,1,"}},
             {{"number", "0"}, {"region", "0,0,18446744073709551615,1"}},
             {{"number", "0"}, {"planes", ""}},
             {{"number", "0"}, {"planes", "s0,s0"}},
             {{"number", "0"}, {"planes", "s3"}},
             {{"number", "0"}, {"colour", "1"}}}) {
        line("/frame", query, 400);
    }
    line("/statistics", {}, 400);
    line("/statistics", {{"number", "0"}, {"scale", "1"}}, 400);
    line("/source", {{"number", "0"}}, 400);
}

TEST_F(Frames_of_a_list, are_the_same_for_many_who_ask_at_once) {
    std::vector<Query> queries;
    std::vector<std::string> expected;
    for (std::size_t number = 4; number < 12; ++number) {
        for (char const* const scale : {"1", "2", "3"}) {
            queries.push_back(
                {{"number", std::to_string(number)},
                 {"scale", scale},
                 {"planes", "s0,azimuth,dolp,validity,i45"}});
            expected.push_back(ask("/frame", queries.back()).body);
        }
    }
    std::vector<std::future<unsigned>> wrong;
    for (unsigned thread = 0; thread < 8; ++thread) {
        wrong.push_back(std::async(std::launch::async, [&, thread] {
            unsigned count = 0;
            for (std::size_t step = 0; step < 12; ++step) {
                std::size_t const at = (step * (thread + 1) + thread) % queries.size();
                count += ask("/frame", queries[at]).body != expected[at] ? 1U : 0U;
                count += ask("/statistics", {{"number", "5"}}).status != 200 ? 1U : 0U;
            }
            return count;
        }));
    }
    for (auto& one : wrong) {
        EXPECT_EQ(one.get(), 0U);
    }
}

TEST(Frames_that_fail, say_the_same_each_time) {
    Sample_options options = twelve_bits();
    options.region_text = "20,3,1,10";
    Frame_preparation const preparation(options, std::nullopt);
    Made_frames source;
    View_frames frames(setup(), preparation, source);
    Handlers const handlers = frames.handlers();
    Answer const first = handlers.at("/frame")({{"number", "0"}});
    EXPECT_EQ(first.status, 422);
    EXPECT_TRUE(first.body.starts_with("made, frame 0: ")) << first.body;
    for (char const* const path : {"/frame", "/statistics"}) {
        Answer const again = handlers.at(path)({{"number", "0"}});
        EXPECT_EQ(again.body, first.body);
    }
}

class Frames_of_a_camera : public testing::Test {
protected:
    static polarization::Raw_layout layout() {
        return polarization::make_raw_layout("Mono12p", size.width, size.height, 0, 0);
    }

    void give(std::uint64_t number) {
        std::string bytes(layout().frame_bytes(), '\0');
        polarization::pack_frame(
            layout().format, samples_of(number), size.width,
            std::as_writable_bytes(std::span(bytes.data(), bytes.size())));
        source_.feed().give(
            bytes, {number + 100, number, number}, std::chrono::steady_clock::now());
    }

    Answer ask(Query const& query) const { return handlers_.at("/frame")(query); }

    /// Waits for it.
    Got frame_after(int number) const {
        Answer answer{204, "", ""};
        for (unsigned round = 0; round < 60 && answer.status == 204; ++round) {
            answer = ask({{"after", std::to_string(number)}, {"planes", "raw"}});
        }
        return parsed(answer);
    }

    /// Drops none, so that the last one that is given comes.
    static polarization::Live_options options() {
        polarization::Live_options result;
        result.drop = polarization::Drop_policy::none;
        return result;
    }

    polarization::Live_source source_{"camera A", "live", layout(), options()};
    Frame_preparation preparation_{twelve_bits(), std::nullopt};
    View_frames frames_{setup(), preparation_, source_};
    Handlers handlers_ = frames_.handlers();
};

TEST_F(Frames_of_a_camera, are_the_newest) {
    for (std::size_t number = 0; number < 6; ++number) {
        give(number);
        Got const got = frame_after(static_cast<int>(number) - 1);
        EXPECT_EQ(got.header["number"], number);
        EXPECT_EQ(got.header["capture"]["frame_number"], std::to_string(number + 100));
        EXPECT_EQ(got.planes.substr(0, 2 * size.width * size.height), bytes_of(samples_of(number)));
    }
    source_.feed().note_reconnection();
    Got const got = frame_after(1);
    EXPECT_EQ(got.header["number"], 5);
    EXPECT_EQ(got.header["camera"]["received"], 6);
    EXPECT_EQ(got.header["camera"]["dropped"], 0);
    EXPECT_EQ(got.header["camera"]["reconnections"], 1);
    EXPECT_GT(got.header["camera"]["rate"], 0);
    EXPECT_GE(got.header["camera"]["latency_ms"], 0);
    EXPECT_EQ(nlohmann::json::parse(handlers_.at("/source")({}).body)["kind"], "camera");
}

TEST_F(Frames_of_a_camera, can_be_had_again_while_others_come) {
    give(0);
    frame_after(-1);
    for (std::size_t number = 1; number < 12; ++number) {
        give(number);
    }
    frame_after(10);
    Got const again = parsed(ask({{"number", "0"}, {"planes", "raw"}}));
    EXPECT_EQ(again.planes, bytes_of(samples_of(0)));
    for (std::size_t number = 12; number < 20; ++number) {
        give(number);
        frame_after(static_cast<int>(number) - 1);
    }
    EXPECT_EQ(ask({{"number", "0"}}).status, 410);
    EXPECT_EQ(ask({{"number", "20"}}).status, 404);
}

TEST_F(Frames_of_a_camera, come_to_an_end_that_is_told) {
    EXPECT_EQ(ask({{"after", "-1"}}).status, 204);
    EXPECT_FALSE(frames_.has_ended());
    give(0);
    frame_after(-1);
    source_.feed().end("sends nothing any more; plug it in");
    Answer const answer = ask({{"after", "0"}});
    EXPECT_EQ(answer.status, 410);
    EXPECT_EQ(answer.body, "camera A: sends nothing any more; plug it in");
    EXPECT_TRUE(frames_.has_ended());
    EXPECT_EQ(frames_.failure(), answer.body);
    EXPECT_EQ(frame_after(-1).header["number"], 0);
}

TEST_F(Frames_of_a_camera, are_waited_for_by_the_last_who_asked) {
    constexpr unsigned count = 12;
    auto const begin = std::chrono::steady_clock::now();
    std::atomic<unsigned> gone = 0;
    std::vector<std::future<int>> statuses;
    for (unsigned thread = 0; thread < count; ++thread) {
        statuses.push_back(std::async(std::launch::async, [&] {
            int const status = ask({{"after", "-1"}}).status;
            ++gone;
            return status;
        }));
    }
    while (gone < count - 4) {
        std::this_thread::yield();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(30)); // to see that the others stay
    give(0);
    bool const stood_still = std::chrono::steady_clock::now() - begin > std::chrono::seconds(1);
    unsigned answered = 0;
    for (auto& status : statuses) {
        answered += status.get() == 200 ? 1U : 0U;
    }
    EXPECT_LE(answered, 4U);
    EXPECT_TRUE(answered == 4 || stood_still) << answered; // nobody waits longer than a second
}

TEST_F(Frames_of_a_camera, are_asked_for_by_many_at_once) {
    std::atomic<bool> is_over = false;
    std::vector<std::future<unsigned>> wrong;
    struct Over { // before the futures, which wait as they go
        std::atomic<bool>& flag;
        ~Over() { flag = true; }
    } const over{is_over};
    for (unsigned thread = 0; thread < 6; ++thread) {
        wrong.push_back(std::async(std::launch::async, [&] {
            unsigned count = 0;
            int last = -1;
            while (!is_over) {
                Answer const answer =
                    ask({{"after", std::to_string(last)}, {"planes", "raw,dolp"}});
                if (answer.status != 200) {
                    continue;
                }
                Got const got = parsed(answer);
                int const number = got.header["number"];
                auto const expected = bytes_of(samples_of(static_cast<std::size_t>(number)));
                count += number <= last || !got.planes.starts_with(expected) ? 1U : 0U;
                last = number;
            }
            return count;
        }));
    }
    for (std::size_t number = 0; number < 100; ++number) {
        give(number);
    }
    frame_after(98);
    is_over = true;
    source_.feed().end();
    for (auto& one : wrong) {
        EXPECT_EQ(one.get(), 0U);
    }
}

} // namespace
