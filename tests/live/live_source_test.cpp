// Frames that a thread gives, through the interface of all sources: samples, ends, failures.
#include "veldrane_mrv/polarization/live_source.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

namespace polarization = veldrane_mrv::polarization;

namespace {

using polarization::Frame_slot;
using polarization::Live_options;
using polarization::Live_source;

constexpr std::size_t width = 4;
constexpr std::size_t height = 2;

polarization::Raw_layout layout() {
    return polarization::make_raw_layout("Mono12p", width, height, 0, 0);
}

std::vector<std::uint16_t> samples_of(std::uint64_t number) {
    std::vector<std::uint16_t> samples(width * height);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        samples[i] = static_cast<std::uint16_t>((number * 101 + i * 37) % 4096);
    }
    return samples;
}

void give(Live_source& source, std::uint64_t number) {
    std::string bytes(layout().frame_bytes(), '\0');
    polarization::pack_frame(
        layout().format, samples_of(number), width,
        std::as_writable_bytes(std::span(bytes.data(), bytes.size())));
    source.feed().give(bytes, {number, number * 10, number * 100}, {});
}

class Live_source_of_a_thread : public testing::Test {
protected:
    static std::vector<std::uint64_t> read_all(Live_source& source) {
        std::vector<std::uint64_t> numbers;
        Frame_slot slot;
        for (std::size_t i = 0; source.has_frame(i); ++i) {
            EXPECT_FALSE(source.count());
            source.read(i, slot);
            std::uint64_t const number = slot.place().capture.value().frame_number;
            EXPECT_EQ(slot.place().capture->camera_time_ns, number * 10);
            EXPECT_EQ(slot.frame().samples, samples_of(number));
            numbers.push_back(number);
        }
        EXPECT_EQ(source.count(), numbers.size());
        return numbers;
    }
};

using Numbers = std::vector<std::uint64_t>;

TEST_F(Live_source_of_a_thread, frames_are_those_that_were_given) {
    Live_options options;
    options.drop = polarization::Drop_policy::none;
    Live_source source("camera A", "live", layout(), options);
    std::thread giver([&source] {
        for (std::uint64_t number = 5; number < 105; ++number) {
            give(source, number);
        }
        source.feed().end();
    });
    Numbers const numbers = read_all(source);
    giver.join();
    ASSERT_EQ(numbers.size(), 100U);
    EXPECT_EQ(numbers.front(), 5U);
    EXPECT_EQ(numbers.back(), 104U);
}

TEST_F(Live_source_of_a_thread, the_place_of_a_frame_has_its_number_and_its_capture) {
    Live_source source("camera A", "live", layout());
    give(source, 9);
    ASSERT_TRUE(source.has_frame(0));
    EXPECT_EQ(source.place(0).stem(), "live_000000");
    EXPECT_EQ(source.place(0).capture, (polarization::Capture{9, 90, 900}));
    EXPECT_FALSE(source.place(1).capture);
}

TEST_F(Live_source_of_a_thread, it_ends_behind_so_many_frames) {
    Live_options options;
    options.frames = 2;
    Live_source source("camera A", "live", layout(), options);
    for (std::uint64_t number = 1; number <= 5; ++number) {
        give(source, number);
    }
    EXPECT_EQ(read_all(source), (Numbers{1, 2}));
}

class Beginning_source : public Live_source {
public:
    explicit Beginning_source(bool fails)
        : Live_source("camera A", "live", ::layout()), fails_{fails} {}
    int begun() const { return begun_; }

private:
    void begin_receiving() override {
        ++begun_;
        if (fails_) {
            throw polarization::File_failure("camera A", "does not begin to send");
        }
        give(*this, 1);
        feed().end();
    }

    bool fails_;
    int begun_ = 0;
};

TEST_F(Live_source_of_a_thread, whoever_gives_frames_begins_with_the_first_question_for_one) {
    Beginning_source source(false);
    EXPECT_EQ(source.begun(), 0);
    EXPECT_EQ(read_all(source), (Numbers{1}));
    EXPECT_EQ(source.begun(), 1);
    Beginning_source silent(true);
    EXPECT_THROW(silent.has_frame(0), polarization::File_failure);
    EXPECT_FALSE(silent.has_frame(0));
}

TEST_F(Live_source_of_a_thread, it_ends_in_time) {
    Live_options options;
    options.seconds = 0.05;
    Live_source source("camera A", "live", layout(), options);
    give(source, 1);
    EXPECT_EQ(read_all(source), (Numbers{1}));
}

TEST_F(Live_source_of_a_thread, it_ends_though_frames_go_on_coming) {
    for (auto const drop :
         {polarization::Drop_policy::newest, polarization::Drop_policy::oldest,
          polarization::Drop_policy::none}) {
        Live_options options;
        options.seconds = 0.05;
        options.waiting_frames = 2;
        options.drop = drop;
        Live_source source("camera A", "live", layout(), options);
        std::atomic<bool> has_ended = false;
        std::thread giver([&] {
            for (std::uint64_t number = 1; !has_ended; ++number) {
                give(source, number);
            }
        });
        std::size_t const frames = read_all(source).size();
        has_ended = true;
        giver.join();
        EXPECT_GT(frames, 0U);
    }
}

TEST_F(Live_source_of_a_thread, it_hands_on_what_has_arrived_when_it_is_stopped) {
    std::atomic<bool> is_requested = false;
    Live_options options;
    options.stop_requested = [&is_requested] { return is_requested.load(); };
    Live_source source("camera A", "live", layout(), options);
    give(source, 1);
    ASSERT_TRUE(source.has_frame(0));
    give(source, 2);
    give(source, 3);
    is_requested = true;
    EXPECT_TRUE(source.has_frame(1));
    EXPECT_TRUE(source.has_frame(2));
    EXPECT_FALSE(source.has_frame(3));
    EXPECT_EQ(source.count(), 3U);
}

TEST_F(Live_source_of_a_thread, a_camera_that_goes_away_fails_behind_its_frames) {
    Live_source source("camera A", "live", layout());
    give(source, 1);
    source.feed().end("went away");
    EXPECT_TRUE(source.has_frame(0));
    try {
        source.has_frame(1);
        FAIL() << "it did not fail";
    } catch (polarization::File_failure const& failure) {
        EXPECT_STREQ(failure.what(), "camera A: went away");
    }
    EXPECT_FALSE(source.has_frame(1));
    EXPECT_EQ(source.count(), 1U);
}

TEST_F(Live_source_of_a_thread, frames_are_read_once_and_in_order) {
    Live_source source("camera A", "live", layout());
    give(source, 1);
    give(source, 2);
    Frame_slot slot;
    ASSERT_TRUE(source.has_frame(1));
    EXPECT_THROW(source.read(0, slot), polarization::Argument_error);
    source.read(1, slot);
    EXPECT_THROW(source.read(1, slot), polarization::Argument_error);
}

TEST_F(Live_source_of_a_thread, options_beyond_their_range_are_refused) {
    auto const opened = [](Live_options const& options) {
        Live_source source("camera A", "live", layout(), options);
    };
    Live_options options;
    options.waiting_frames = 0;
    EXPECT_THROW(opened(options), polarization::Argument_error);
    options.waiting_frames = 4097;
    EXPECT_THROW(opened(options), polarization::Argument_error);
    options.waiting_frames = 4096;
    EXPECT_NO_THROW(opened(options));
    for (double const seconds : {0.0, -1.0, 1e10, std::nan("")}) {
        options.seconds = seconds;
        EXPECT_THROW(opened(options), polarization::Argument_error) << seconds;
    }
}

} // namespace
