// Frames from a pipe: each as soon as it is whole, the same samples as from a file, and one line
// for a stream that breaks off.
#include "veldrane_mrv/polarization/sample_stream.hpp"

#include "test_files.hpp"
#include "veldrane_mrv/polarization/argument_error.hpp"

#include <array>
#include <atomic>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <new>
#include <thread>
#include <unistd.h>

namespace {

using namespace veldrane_mrv::polarization;
using Samples = std::vector<std::uint16_t>;

class Pipe {
public:
    Pipe() { EXPECT_EQ(pipe2(ends_.data(), O_CLOEXEC), 0); }
    ~Pipe() {
        close(ends_[0]);
        end();
    }
    int reading_end() const { return ends_[0]; }
    void put(std::string const& bytes) {
        EXPECT_EQ(write(ends_[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    void end() { close(std::exchange(ends_[1], -1)); }

private:
    std::array<int, 2> ends_{-1, -1};
};

std::string text_of(std::size_t size) {
    std::string text;
    for (std::size_t place = 0; place < size; ++place) {
        text += static_cast<char>(place * 31 + place / 7);
    }
    return text;
}

// 5 columns of 12 bits take 8 bytes, rows begin 11 bytes apart.
Raw_layout const layout = make_raw_layout("Mono12p", 5, 3, 4, 11);

class Sample_streams : public testing::Test {
protected:
    Sample_stream stream(Frame_selection const& selection = {}) {
        return Sample_stream(pipe_.reading_end(), "the pipe", "stdin", layout, selection);
    }

    // What becomes of a stream of these bytes.
    std::string ending(std::string const& bytes, Raw_layout const& of = layout) {
        Pipe pipe;
        pipe.put(bytes);
        pipe.end();
        Sample_stream source(pipe.reading_end(), "the pipe", "stdin", of);
        Frame_slot slot;
        std::string line;
        std::size_t frames = 0;
        try {
            while (source.read_next(slot)) {
                ++frames;
            }
        } catch (File_failure const& failure) {
            line = failure.what();
        }
        EXPECT_FALSE(source.read_next(slot));
        EXPECT_EQ(source.count(), frames);
        return std::to_string(frames) + " " + line;
    }

    Pipe pipe_;
    Frame_slot slot_;
};

TEST_F(Sample_streams, give_what_a_file_gives) {
    test_files::Folder const folder;
    std::string const bytes = text_of(4 + 4 * 33 - 3);
    test_files::write(folder / "run.raw", bytes);
    auto const file = open_frames(folder / "run.raw", layout);
    pipe_.put(bytes);
    pipe_.end();
    Sample_stream source = stream();
    EXPECT_FALSE(source.count());
    Frame_slot expected;
    std::size_t number = 0;
    for (; source.read_next(slot_); ++number) {
        ASSERT_TRUE(file->read_next(expected));
        EXPECT_EQ(slot_.frame().samples, expected.frame().samples);
        EXPECT_EQ(slot_.place().stem(), "stdin_00000" + std::to_string(number));
    }
    EXPECT_EQ(number, 4U);
    EXPECT_EQ(source.count(), 4U);
}

// Without the padding behind it, let alone a byte of the next one; the writer stays.
TEST_F(Sample_streams, a_frame_is_there_with_its_last_byte) {
    std::string const bytes = text_of(4 + 2 * 33);
    Sample_stream source = stream();
    pipe_.put(bytes.substr(0, 4 + 30));
    ASSERT_TRUE(source.read_next(slot_));
    pipe_.put(bytes.substr(4 + 30, 33));
    ASSERT_TRUE(source.read_next(slot_));
    EXPECT_EQ(slot_.place().index, 1U);
}

TEST_F(Sample_streams, selected_frames_have_their_numbers_in_the_stream) {
    pipe_.put(text_of(4 + 9 * 33));
    Sample_stream source = stream({1, 8, 3}); // and does not wait for what is behind 7
    std::vector<std::size_t> numbers;
    while (source.read_next(slot_)) {
        numbers.push_back(slot_.place().index);
    }
    EXPECT_EQ(numbers, (std::vector<std::size_t>{1, 4, 7}));
    EXPECT_EQ(source.count(), 3U);
    Pipe other;
    other.put(text_of(4 + 2 * 33));
    other.end();
    Sample_stream once(other.reading_end(), "", "", layout, {1, {}, ~std::size_t{0}});
    EXPECT_TRUE(once.read_next(slot_));
    EXPECT_FALSE(once.read_next(slot_));
}

TEST_F(Sample_streams, are_read_in_order) {
    pipe_.put(text_of(4 + 3 * 33));
    Sample_stream source = stream();
    ASSERT_TRUE(source.has_frame(1)); // frame 0 is passed over
    EXPECT_THROW(source.read(0, slot_), Argument_error);
    source.read(1, slot_);
    EXPECT_THROW(source.read(1, slot_), Argument_error);
    source.read(2, slot_);
    EXPECT_EQ(slot_.place().index, 2U);
}

TEST_F(Sample_streams, one_that_breaks_off_gives_its_whole_frames_and_a_line) {
    std::size_t lines = 0;
    for (std::size_t size = 0; size <= 4 + 3 * 33; ++size) {
        std::string const line = ending(text_of(size));
        std::size_t const samples = size - std::min<std::size_t>(size, 4);
        std::size_t const frames = (samples + 3) / 33;
        std::size_t const rest = samples - std::min(samples, frames * 33);
        bool const ends_in_padding = samples % 33 > 30;
        bool const is_whole = frames > 0 && rest == 0 && !ends_in_padding;
        std::string const expected =
            is_whole ? " "
            : size < 4
                ? size == 0 ? " the pipe: is empty" : " the pipe: ends within its header, after "
            : ends_in_padding ? " the pipe: ends within the padding behind frame "
                              : " the pipe: ends within frame " + std::to_string(frames) +
                                    ", after " + std::to_string(rest) + " of its 30 bytes; ";
        EXPECT_TRUE(line.starts_with(std::to_string(frames) + expected)) << size << ": " << line;
        lines += is_whole ? 0 : 1;
    }
    EXPECT_EQ(lines, 104U - 6U);
}

TEST_F(Sample_streams, pictures_are_told_from_samples) {
    Raw_layout const bare = make_raw_layout("Mono8", 4, 3, 0, 0);
    for (std::string const start : {"\x89PNG\r\n\x1a\n", "\x93NUMPY", "II+"}) {
        std::string const bytes = start + std::string(60, '\0');
        EXPECT_NE(ending(bytes, bare).find("0 the pipe: begins like a"), std::string::npos);
    }
}

TEST_F(Sample_streams, memory_is_taken_as_bytes_come) {
    Raw_layout const huge = make_raw_layout("Mono16", 1 << 20, 1 << 20, 0, 0);
    EXPECT_NE(
        ending(text_of(1000), huge).find("after 1000 of its 2199023255552 bytes"),
        std::string::npos);
}

// What fails within a frame (memory that its next bytes lack, say) fails here in the question
// whether to stop, which is asked before each read.
TEST_F(Sample_streams, nothing_is_given_out_behind_a_frame_that_was_left_within) {
    for (int const failing : {1, 2, 3}) {
        Pipe pipe;
        pipe.put(text_of(20));
        int questions = 0;
        Sample_stream source(pipe.reading_end(), "", "stdin", layout, {}, [&]() -> bool {
            return ++questions == failing ? throw std::bad_alloc() : false;
        });
        EXPECT_THROW(source.has_frame(0), std::bad_alloc) << failing;
        pipe.put(text_of(4 + 3 * 33).substr(20));
        pipe.end();
        bool const was_left_within = failing > 1; // the first read is that of the header
        EXPECT_EQ(source.has_frame(0), !was_left_within) << failing;
        EXPECT_EQ(source.count().has_value(), was_left_within) << failing;
        EXPECT_EQ(questions > failing, !was_left_within) << failing;
    }
}

TEST_F(Sample_streams, whoever_waits_can_be_stopped) {
    std::atomic<bool> stop = false;
    Sample_stream source(
        pipe_.reading_end(), "the pipe", "stdin", layout, {}, [&] { return stop.load(); });
    pipe_.put(text_of(20));
    std::thread stopper([&] { stop = true; });
    EXPECT_FALSE(source.read_next(slot_));
    stopper.join();
}

} // namespace
