// What a browser gets of frames in a list and of a camera, and what it is told.
#include "view/view_frames.hpp"

#include "input/frame_preparation.hpp"
#include "support/samples.hpp"
#include "veldrane_mrv/polarization/pixel_format.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <atomic>
#include <cstring>
#include <future>
#include <thread>

namespace {

using namespace polarize_tool;
using polarization::File_failure;
using polarization::Frame_place;
using polarization::Mode;
using polarization::Size;

constexpr Size size{48, 30};

support::Samples samples_of(std::size_t number) {
    return support::make_samples(
        support::Sample_kind::random_12_bit, size.height, size.width, number);
}

/// Frames that are made when they are read. Number 3 cannot be.
class Made_frames : public polarization::Frame_source {
public:
    std::string name() const override { return "made"; }
    std::optional<std::size_t> count() const override { return 20; }
    Frame_place place(std::size_t number) const override { return {"made", number, 20}; }

    std::atomic<unsigned> reads = 0;

private:
    void fetch(std::size_t number, polarization::Fetched_frame& target) override {
        ++reads;
        if (number == 3) {
            throw File_failure(place(number).name(), "ends too early");
        }
        target.frame = {size.width, size.height, samples_of(number)};
    }
};

View_setup setup() {
    auto const settings =
        polarization::ideal_settings(polarization::Mosaic::from_phase(2), polarization::Scale(12));
    return {
        .name = "made",
        .transform = {settings, std::nullopt},
        .calibration_file = {},
        .rate = {},
        .camera = {},
        .generator = "test"};
}

Sample_options twelve_bits() {
    Sample_options options;
    options.bit_depth = 12;
    return options;
}

struct Got {
    nlohmann::json header;
    std::string planes;
};

Got parsed(Answer const& answer) {
    EXPECT_EQ(answer.status, 200) << answer.body;
    EXPECT_EQ(answer.media_type, "application/octet-stream");
    std::uint32_t length = 0;
    std::memcpy(&length, answer.body.data(), sizeof length);
    EXPECT_EQ((sizeof length + length) % 8, 0U);
    EXPECT_EQ(answer.body.size() % 8, 0U);
    return {
        nlohmann::json::parse(answer.body.substr(sizeof length, length)),
        answer.body.substr(sizeof length + length)};
}

std::string bytes_of(support::Samples const& samples) {
    return {reinterpret_cast<char const*>(samples.data()), 2 * samples.size()};
}

class Frames_of_a_list : public testing::Test {
protected:
    Answer ask(std::string const& path, Query const& query) const {
        return handlers_.at(path)(query);
    }
    std::string line(std::string const& path, Query const& query, int status) const {
        Answer const answer = ask(path, query);
        EXPECT_EQ(answer.status, status) << answer.body;
        EXPECT_EQ(answer.body.find('\n'), std::string::npos);
        return answer.body;
    }

    Made_frames source_;
    Frame_preparation preparation_{twelve_bits(), std::nullopt};
    View_frames frames_{setup(), preparation_, source_};
    Handlers handlers_ = frames_.handlers();
};

TEST_F(Frames_of_a_list, tell_what_they_are) {
    auto const json = nlohmann::json::parse(ask("/source", {}).body);
    EXPECT_EQ(json["kind"], "recording");
    EXPECT_EQ(json["frames"], 20);
    EXPECT_EQ(json["width"], size.width);
    EXPECT_EQ(json["height"], size.height);
    EXPECT_EQ(json["bit_depth"], 12);
    EXPECT_EQ(json["full_scale"], 65535);
    EXPECT_DOUBLE_EQ(json["s0_unit"], 8190.0 / 65535.0);
    EXPECT_EQ(json["mosaic"], nlohmann::json::parse("[[90,45],[135,0]]"));
    EXPECT_EQ(
        json["settings"][0],
        nlohmann::json::parse(R"json(["Mosaic","phase 2 (90,45,135,0)"])json"));
    EXPECT_TRUE(json["camera"].is_null());
    EXPECT_TRUE(json["rate"].is_null());
}

TEST_F(Frames_of_a_list, come_with_what_was_asked_for) {
    Got const got = parsed(ask(
        "/frame", {{"number", "7"}, {"region", "40,2,100,3"}, {"planes", "validity,raw,s1_s0"}}));
    EXPECT_EQ(got.header["number"], 7);
    EXPECT_EQ(got.header["name"], "made, frame 7");
    EXPECT_EQ(got.header["region"], nlohmann::json::parse("[40,2,8,3]"));
    EXPECT_EQ(got.header["width"], 8);
    EXPECT_EQ(got.header["height"], 3);
    EXPECT_EQ(got.header["planes"][0], nlohmann::json::parse(R"({"name":"validity","type":"u8"})"));
    EXPECT_EQ(got.header["planes"][2]["type"], "i16");
    EXPECT_TRUE(got.header["camera"].is_null());
    ASSERT_EQ(got.planes.size(), 24U + 48U + 48U);
    auto const samples = samples_of(7);
    EXPECT_EQ(got.planes.substr(24, 16), bytes_of(samples).substr(2 * (2 * size.width + 40), 16));
}

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
        for (char const* const number : {"0", "1", "2"}) {
            EXPECT_EQ(ask("/statistics", {{"number", number}}).status, 200);
        }
    }
    EXPECT_EQ(source_.reads, 3U);
    ask("/frame", {{"number", "4"}});
    ask("/frame", {{"number", "2"}});
    EXPECT_EQ(source_.reads, 4U);
    ask("/frame", {{"number", "0"}});
    EXPECT_EQ(source_.reads, 5U);
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
    Got const got = frame_after(1);
    EXPECT_EQ(got.header["number"], 5);
    EXPECT_EQ(got.header["camera"]["received"], 6);
    EXPECT_EQ(got.header["camera"]["dropped"], 0);
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
    unsigned answered = 0;
    for (auto& status : statuses) {
        answered += status.get() == 200 ? 1U : 0U;
    }
    EXPECT_EQ(answered, 4U);
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
