// Reading of raw frames: every sample as stored, everything else refused with its reason.
#include "veldrane_mrv/polarization/frame_list.hpp"

#include "test_files.hpp"

#include <gtest/gtest.h>
#include <iostream>
#include <opencv2/imgcodecs.hpp>
#include <string_view>
#include <sys/resource.h>

namespace {

using namespace veldrane_mrv::polarization;
using test_files::encoded;
using test_files::Folder;
using test_files::pattern;

std::string refusal(std::filesystem::path const& file) {
    try {
        read_frame(file);
    } catch (File_failure const& failure) {
        return failure.what();
    }
    return "not refused";
}

void expect_same_samples(Frame const& frame, cv::Mat const& image) {
    ASSERT_EQ(frame.width, static_cast<std::size_t>(image.cols));
    ASSERT_EQ(frame.height, static_cast<std::size_t>(image.rows));
    ASSERT_EQ(frame.samples.size(), image.total());
    std::size_t index = 0;
    for (int row = 0; row < image.rows; ++row) {
        for (int column = 0; column < image.cols; ++column, ++index) {
            unsigned const expected = image.depth() == CV_8U ? image.at<std::uint8_t>(row, column)
                                                             : image.at<std::uint16_t>(row, column);
            ASSERT_EQ(frame.samples[index], expected) << "row " << row << " column " << column;
        }
    }
}

class Frame_reading : public testing::Test {
protected:
    std::filesystem::path file(std::vector<std::uint8_t> const& bytes) {
        test_files::write(folder_ / "frame", bytes);
        return folder_ / "frame";
    }
    std::filesystem::path file(std::string const& text) {
        test_files::write(folder_ / "frame", text);
        return folder_ / "frame";
    }
    Folder folder_;
};

TEST_F(Frame_reading, png_and_pgm_of_8_and_16_bits) {
    int files = 0;
    for (int const type : {CV_8UC1, CV_16UC1}) {
        for (char const* const ending : {".png", ".pgm"}) {
            cv::Mat const image = pattern(61, 43, type);
            SCOPED_TRACE(ending);
            expect_same_samples(read_frame(file(encoded(image, ending))), image);
            ++files;
        }
    }
    std::printf("%d files read\n", files);
}

TEST_F(Frame_reading, tiff_uncompressed_and_lzw) {
    int files = 0;
    for (int const type : {CV_8UC1, CV_16UC1}) {
        for (int const compression : {1, 5}) {
            for (int const predictor : {1, 2}) {
                // Enough rows for several strips, enough entropy for 12-bit codes and a new table.
                cv::Mat const image = pattern(301, 203, type);
                SCOPED_TRACE(testing::Message() << "compression " << compression);
                expect_same_samples(
                    read_frame(file(encoded(
                        image, ".tif",
                        {cv::IMWRITE_TIFF_COMPRESSION, compression, 317, predictor}))),
                    image);
                ++files;
            }
        }
    }
    std::printf("%d files read\n", files);
}

// Long runs make strings that end with the byte they add; the table fills and is cleared.
TEST_F(Frame_reading, lzw_tiff_of_runs) {
    cv::Mat image = cv::Mat::zeros(600, 500, CV_8UC1);
    image(cv::Rect(100, 100, 200, 300)).setTo(7);
    expect_same_samples(
        read_frame(file(encoded(image, ".tif", {cv::IMWRITE_TIFF_COMPRESSION, 5}))), image);
}

TEST_F(Frame_reading, tiff_written_by_the_tools) {
    std::vector<std::uint16_t> const samples = {1, 2, 3, 40000, 65535, 0};
    Frame const frame = read_frame(file(test_files::tool_tiff(samples, 3, 2)));
    EXPECT_EQ(frame.samples, samples);
    EXPECT_EQ(frame.width, 3U);
}

TEST_F(Frame_reading, big_endian_tiff) {
    std::vector<std::uint8_t> bytes = {'M', 'M', 0, 42, 0, 0, 0, 8, 0, 7};
    auto const entry = [&bytes](unsigned tag, unsigned type, unsigned value) {
        for (unsigned const byte : {tag >> 8, tag & 255U, 0U, type, 0U, 0U, 0U, 1U}) {
            bytes.push_back(static_cast<std::uint8_t>(byte));
        }
        std::uint32_t const stored = type == 3 ? value << 16 : value;
        for (int shift = 24; shift >= 0; shift -= 8) {
            bytes.push_back(static_cast<std::uint8_t>(stored >> shift));
        }
    };
    entry(256, 3, 2);
    entry(257, 3, 1);
    entry(258, 3, 16);
    entry(259, 3, 1);
    entry(262, 3, 1);
    entry(273, 4, 8 + 2 + 7 * 12 + 4);
    entry(279, 4, 4);
    bytes.insert(bytes.end(), {0, 0, 0, 0, 0x12, 0x34, 0xFF, 0x01});
    EXPECT_EQ(read_frame(file(bytes)).samples, (std::vector<std::uint16_t>{0x1234, 0xFF01}));
}

TEST_F(Frame_reading, binary_pgm_samples_are_unchanged_whatever_the_maximum) {
    using Samples = std::vector<std::uint16_t>;
    EXPECT_EQ(
        read_frame(file(std::string("P5\n2 2\n15\n\x01\x0f\x02\x03"))).samples,
        (Samples{1, 15, 2, 3}));
    EXPECT_EQ(
        read_frame(file(std::string("P5 2 1 4095 \x0f\xff\x01\x02"))).samples,
        (Samples{4095, 258}));
}

TEST_F(Frame_reading, a_pgm_of_several_pictures_is_refused) {
    std::string const narrow = "P5 # 9 9\n2 2\n255\n\x01\x02P5";
    std::string const wide = std::string("P5\n1 1\n4095\n\x01\x02", 14);
    EXPECT_EQ(read_frame(file(narrow)).samples, (std::vector<std::uint16_t>{1, 2, 'P', '5'}));
    EXPECT_EQ(read_frame(file(wide + "\n")).samples, (std::vector<std::uint16_t>{0x0102}));
    for (std::string const& first : {narrow, wide}) {
        for (char const* const between : {"", "\n"}) {
            EXPECT_NE(
                refusal(file(first + between + wide)).find("several pictures"), std::string::npos);
        }
    }
    EXPECT_NE(refusal(file("P5 a b c\n")).find("damaged"), std::string::npos);
}

TEST_F(Frame_reading, a_tiff_whose_compression_may_change_samples_is_refused) {
    cv::Mat const image = pattern(64, 48, CV_8UC1);
    std::size_t read = 0;
    for (int const compression : {1, 5, 8, 32773, 32946}) {
        expect_same_samples(
            read_frame(file(encoded(image, ".tif", {cv::IMWRITE_TIFF_COMPRESSION, compression}))),
            image);
        ++read;
    }
    std::printf("%zu compressions read\n", read);
    EXPECT_NE(
        refusal(file(encoded(image, ".tif", {cv::IMWRITE_TIFF_COMPRESSION, 7})))
            .find("compressed as JPEG, which changes them; save it uncompressed"),
        std::string::npos);
}

TEST_F(Frame_reading, what_is_no_frame_is_refused) {
    struct Case {
        std::vector<std::uint8_t> bytes;
        char const* reason;
    };
    cv::Mat const colour(20, 20, CV_8UC3, cv::Scalar(1, 2, 3));
    cv::Mat const alpha(20, 20, CV_8UC4, cv::Scalar(1, 2, 3, 4));
    cv::Mat const floats(20, 20, CV_32FC1, cv::Scalar(0.5));
    std::string const text = "a text\n";
    std::vector<Case> const cases = {
        {encoded(colour, ".png"), "colour image"},
        {encoded(alpha, ".png"), "colour image"},
        {encoded(colour, ".tif"), "colour image"},
        {encoded(colour, ".ppm"), "colour image"},
        {encoded(pattern(20, 20, CV_8UC1) > 99, ".png", {cv::IMWRITE_PNG_BILEVEL, 1}),
         "8 or 16 bits"},
        {test_files::tool_tiff(std::vector<float>(400), 20, 20), "8 or 16 bits"},
        {{'P', '2', ' ', '1', ' ', '1', ' ', '9', ' ', '5'}, "plain (ASCII) PGM"},
        {encoded(pattern(20, 20, CV_8UC1), ".bmp"), "not a PNG, TIFF, binary PGM or npy file"},
        {{text.begin(), text.end()}, "not a PNG, TIFF, binary PGM or npy file"},
        {encoded(pattern(20, 20, CV_8UC1), ".jpg"),
         "a JPEG, not a PNG, TIFF, binary PGM or npy file"},
        {{}, "is empty, not a PNG, TIFF, binary PGM or npy file"}};
    for (Case const& refused : cases) {
        std::string const line = refusal(file(refused.bytes));
        EXPECT_NE(line.find(refused.reason), std::string::npos) << line;
        EXPECT_EQ(line.find((folder_ / "frame").string()), 0U) << line;
    }
    std::printf("%zu refusals\n", cases.size());
}

TEST_F(Frame_reading, a_field_of_a_tiff_that_would_change_samples_is_refused) {
    std::vector<std::uint16_t> const samples(6, 9);
    std::vector<std::uint8_t> const whole = test_files::tool_tiff(samples, 3, 2);
    std::size_t const directory = whole[4] + 256U * whole[5];
    // Changes the field `tag` into `new_tag` with a value.
    auto const with = [&](unsigned tag, unsigned new_tag, std::uint8_t value) {
        std::vector<std::uint8_t> bytes = whole;
        bool found = false;
        for (std::size_t entry = directory + 2; entry + 12 <= bytes.size(); entry += 12) {
            if (bytes[entry] + 256U * bytes[entry + 1] == tag) {
                bytes[entry] = static_cast<std::uint8_t>(new_tag);
                bytes[entry + 8] = value;
                found = true;
            }
        }
        EXPECT_TRUE(found) << tag;
        return refusal(file(bytes));
    };
    EXPECT_EQ(with(262, 262, 1), "not refused");
    EXPECT_NE(with(262, 262, 0).find("0 is white"), std::string::npos);
    EXPECT_NE(with(262, 262, 2).find("colour"), std::string::npos);
    EXPECT_NE(with(339, 339, 2).find("8 or 16 bits"), std::string::npos);
    EXPECT_NE(with(284, 274, 3).find("turned"), std::string::npos);
    // A number that nobody has given out.
    EXPECT_NE(with(259, 259, 99).find("number 99 in TIFF, is not read; save"), std::string::npos);
}

// No prefix of a file gives a wrong picture. A TIFF may lack the end of its directory, four bytes
// that say that no other picture follows, and still hold every sample.
TEST_F(Frame_reading, every_truncation_is_refused) {
    std::vector<std::vector<std::uint8_t>> const files = {
        encoded(pattern(40, 20, CV_8UC1), ".png"),
        encoded(pattern(40, 20, CV_16UC1), ".png"),
        encoded(pattern(40, 20, CV_8UC1), ".tif", {cv::IMWRITE_TIFF_COMPRESSION, 5}),
        encoded(pattern(40, 20, CV_16UC1), ".tif", {cv::IMWRITE_TIFF_COMPRESSION, 1}),
        test_files::tool_tiff(std::vector<std::uint16_t>(800, 77), 40, 20),
        encoded(pattern(40, 20, CV_8UC1), ".pgm"),
        encoded(pattern(40, 20, CV_16UC1), ".pgm")};
    std::size_t refused = 0;
    for (auto const& whole : files) {
        std::vector<std::uint16_t> const samples = read_frame(file(whole)).samples;
        bool const is_tiff = whole[0] == 'I';
        std::size_t const step = 1 + whole.size() / 200;
        for (std::size_t missing = 1; missing <= whole.size(); missing += step) {
            auto const part = file(std::vector<std::uint8_t>(
                whole.begin(), whole.end() - static_cast<std::ptrdiff_t>(missing)));
            if (is_tiff && missing <= 4) {
                EXPECT_TRUE(refusal(part) != "not refused" || read_frame(part).samples == samples);
            } else {
                ASSERT_NE(refusal(part), "not refused") << missing << " of " << whole.size();
                ++refused;
            }
        }
    }
    std::printf("%zu truncated files refused\n", refused);
    EXPECT_GT(refused, 700U);
}

TEST_F(Frame_reading, a_changed_byte_of_a_png_is_noticed) {
    std::vector<std::uint8_t> bytes = encoded(pattern(40, 20, CV_16UC1), ".png");
    bytes[bytes.size() / 2] ^= 1U;
    EXPECT_NE(refusal(file(bytes)).find("damaged"), std::string::npos);
}

// A wild directory or strip may yield a wrong picture, but never an access outside the file.
TEST_F(Frame_reading, changed_bytes_of_a_tiff_do_no_harm) {
    std::vector<std::uint8_t> const whole =
        encoded(pattern(40, 20, CV_8UC1), ".tif", {cv::IMWRITE_TIFF_COMPRESSION, 5});
    std::size_t refused = 0;
    for (std::size_t index = 0; index < whole.size(); ++index) {
        std::vector<std::uint8_t> bytes = whole;
        bytes[index] ^= 0xA5U;
        refused += refusal(file(bytes)) == "not refused" ? 0U : 1U;
    }
    std::printf("%zu of %zu changed files refused\n", refused, whole.size());
    EXPECT_GT(refused, whole.size() / 10);
}

TEST_F(Frame_reading, missing_files_and_folders_are_named) {
    EXPECT_NE(refusal(folder_ / "none.png").find("No such file"), std::string::npos);
    EXPECT_NE(refusal(folder_.path()).find("folder"), std::string::npos);
}

TEST_F(Frame_reading, nothing_is_written_to_standard_error) {
    std::vector<std::uint8_t> bytes = encoded(pattern(40, 20, CV_16UC1), ".png");
    bytes.resize(bytes.size() / 2);
    auto const damaged = file(bytes);
    testing::internal::CaptureStderr();
    EXPECT_NE(refusal(damaged), "not refused");
    std::fprintf(stderr, "restored");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "restored");
}

/// An 8-bit TIFF of one page for each width, two rows high, each sample the width of its page. The
/// directory of a page of width 0 is empty, as that of no picture is.
std::vector<std::uint8_t> pages_of(std::vector<std::uint32_t> const& widths) {
    std::vector<std::uint8_t> file{'I', 'I', '*', 0};
    auto const put = [&](std::uint32_t value, std::size_t bytes) {
        for (std::size_t byte = 0; byte < bytes; ++byte) {
            file.push_back(static_cast<std::uint8_t>(value >> 8 * byte));
        }
    };
    auto const tag = [&](std::uint32_t name, std::uint32_t count, std::uint32_t value) {
        put(name, 2);
        put(4, 2); // a number of 32 bits
        put(count, 4);
        put(value, 4);
    };
    put(8, 4);
    for (std::size_t page = 0; page < widths.size(); ++page) {
        std::uint32_t const width = widths[page];
        std::uint32_t const tags = width == 0 ? 0 : 8;
        auto const samples_begin = static_cast<std::uint32_t>(file.size()) + 2 + 12 * tags + 4;
        std::uint32_t const next = page + 1 < widths.size() ? samples_begin + 2 * width : 0;
        put(tags, 2);
        if (width == 0) {
            put(next, 4);
            continue;
        }
        tag(256, 1, width);
        tag(257, 1, 2); // height
        tag(258, 1, 8); // bits of a sample
        tag(259, 1, 1); // not compressed
        tag(262, 1, 1); // 0 is black
        tag(273, 1, samples_begin);
        tag(278, 1, 2); // rows of the strip
        tag(279, 1, 2 * width);
        put(next, 4);
        file.insert(file.end(), 2 * width, static_cast<std::uint8_t>(width));
    }
    return file;
}

// Pages of this process that were in use at once, in MB.
long most_memory() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss / 1024;
}

TEST_F(Frame_reading, a_picture_of_300_million_strips_takes_no_memory) {
    // As a fuzzer found it: two heights, no rows of a strip, and an end two bytes too early.
    using namespace std::string_view_literals;
    constexpr std::string_view text = "\x49\x49\x2a\x00\x14\x00\x00\x00"
                                      "\x03\x0a\x11\x18\x1f\x26\x2d\x34\x3b\x42\x49\x50\x08\x00"
                                      "\x00\x01\x04\x00\x01\x00\x00\x00\x04\x00\xff\x00"
                                      "\x01\x01\x04\x00\x01\x00\x00\x00\x00\xa3\xe1\x11"
                                      "\x2f\x01\x04\x00\x01\x00\x00\x00\x04\x00\x00\x00"
                                      "\x01\x01\x04\x00\x01\x00\x00\x00\x03\x00\x00\x00"
                                      "\x02\x01\x03\x00\x01\x00\x00\x00\x08\x00\x00\x00"
                                      "\x03\x01\x03\x00\x01\x00\x00\x00\x01\x00\x00\x00"
                                      "\x06\x01\x03\x00\x01\x00\x00\x00\x01\x00\x00\x00"
                                      "\x11\x01\x04\x00\x01\x00\x00\x00\x08\x00\x00\x00"
                                      "\x00\x00"sv;
    std::vector<std::uint8_t> const bytes(text.begin(), text.end());
    auto const path = file(bytes);
    long const before = most_memory();
    EXPECT_THROW(read_frame(path), File_failure);
    Frame_list source({{path, 0, 2}}, std::nullopt);
    Frame_slot slot;
    EXPECT_THROW(
        {
            source.read(0, slot);
            slot.frame();
        },
        File_failure);
    long const taken = most_memory() - before;
    std::cout << taken << " MB taken\n";
    EXPECT_LT(taken, 100);
}

TEST_F(Frame_reading, a_picture_that_cannot_be_found_puts_no_other_in_its_place) {
    std::vector<std::uint32_t> const widths{3, 4, 0, 6, 0};
    auto const path = file(pages_of(widths));
    std::vector<Frame_place> places;
    for (std::size_t page = 0; page < widths.size(); ++page) {
        places.push_back({path, page, widths.size()});
    }
    std::size_t reads = 0;
    for (std::vector<std::size_t> const& order : std::vector<std::vector<std::size_t>>{
             {0, 1, 2, 3, 4}, {4, 3, 2, 1, 0}, {2, 2, 1, 2, 3}, {4, 0, 4, 1, 3}, {2, 0, 3, 4, 4}}) {
        Frame_list source(places, std::nullopt);
        Frame_slot slot;
        for (std::size_t const page : order) {
            SCOPED_TRACE(page);
            ++reads;
            if (widths[page] == 0) {
                EXPECT_THROW(source.read(page, slot), File_failure);
                EXPECT_THROW(slot.frame(), std::logic_error);
                continue;
            }
            ASSERT_NO_THROW(source.read(page, slot));
            Frame const& frame = slot.frame();
            auto const sample = static_cast<std::uint16_t>(widths[page]);
            EXPECT_EQ(frame.width, widths[page]);
            EXPECT_EQ(frame.samples, std::vector<std::uint16_t>(2 * std::size_t{sample}, sample));
        }
    }
    std::cout << reads << " pages in five orders\n";
}

} // namespace
