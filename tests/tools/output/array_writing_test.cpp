// Planes as contents of files, by independent readers.
#include "output/array_writing.hpp"

#include "test_files.hpp"

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

namespace {

using namespace polarize_tool;
using test_files::Folder;

TEST(Array_writing, tiff_of_16_bits_is_read_by_the_image_library) {
    std::vector<std::uint16_t> samples(33 * 21);
    for (std::size_t index = 0; index < samples.size(); ++index) {
        samples[index] = static_cast<std::uint16_t>(index * 97);
    }
    cv::Mat const image =
        cv::imdecode(test_files::tool_tiff(samples, 33, 21), cv::IMREAD_UNCHANGED);
    ASSERT_EQ(image.type(), CV_16UC1);
    ASSERT_EQ(image.size(), cv::Size(33, 21));
    EXPECT_EQ(
        std::vector<std::uint16_t>(image.begin<std::uint16_t>(), image.end<std::uint16_t>()),
        samples);
}

TEST(Array_writing, tiff_of_floats_is_read_by_the_image_library) {
    std::vector<float> const samples = {0.0F, -1.5F, 3.25F, 1e30F, 179.99F, 0.125F};
    cv::Mat const image = cv::imdecode(test_files::tool_tiff(samples, 2, 3), cv::IMREAD_UNCHANGED);
    ASSERT_EQ(image.type(), CV_32FC1);
    EXPECT_EQ(std::vector<float>(image.begin<float>(), image.end<float>()), samples);
}

TEST(Array_writing, tiff_of_two_float_channels_keeps_pairs_together) {
    Folder const folder;
    std::vector<float> const samples = {1.0F, -2.0F, 3.0F, -4.0F};
    test_files::write(folder / "pairs.tif", test_files::tool_tiff(samples, 1, 2, 2));
    test_files::Tiff const tiff = test_files::read_tiff(folder / "pairs.tif");
    EXPECT_EQ(tiff.width, 1U);
    EXPECT_EQ(tiff.height, 2U);
    EXPECT_EQ(tiff.channels, 2U);
    EXPECT_EQ(tiff.samples, (std::vector<double>{1, -2, 3, -4}));
}

TEST(Array_writing, tiff_of_three_float_channels_keeps_them_together) {
    Folder const folder;
    std::vector<float> const samples = {1.0F, -2.0F, 3.0F, -4.0F, 5.5F, 6.0F};
    test_files::write(folder / "threes.tif", test_files::tool_tiff(samples, 1, 2, 3));
    test_files::Tiff const tiff = test_files::read_tiff(folder / "threes.tif");
    EXPECT_EQ(tiff.height, 2U);
    EXPECT_EQ(tiff.channels, 3U);
    EXPECT_EQ(tiff.samples, (std::vector<double>{1, -2, 3, -4, 5.5, 6}));
}

TEST(Array_writing, numbers_of_8_bits) {
    std::vector<std::uint8_t> const samples = {0, 1, 2, 255, 8, 15};
    Array_view const array(std::span<std::uint8_t const>(samples), 3, 2);
    for (File_format const format : {File_format::tiff, File_format::png}) {
        Encoded_array const encoded = encode(array, format);
        auto bytes = encoded.head;
        if (encoded.samples_follow) {
            bytes.insert(bytes.end(), samples.begin(), samples.end());
        }
        cv::Mat const image = cv::imdecode(bytes, cv::IMREAD_UNCHANGED);
        ASSERT_EQ(image.type(), CV_8UC1);
        EXPECT_EQ(
            std::vector<std::uint8_t>(image.begin<std::uint8_t>(), image.end<std::uint8_t>()),
            samples);
    }
    auto const head = encode(array, File_format::npy).head;
    EXPECT_NE(std::string(head.begin(), head.end()).find("'|u1'"), std::string::npos);
}

// Baseline TIFF asks for the order, and readers for the fields.
TEST(Array_writing, fields_of_a_tiff_stand_in_ascending_order) {
    for (std::size_t const channels : {1U, 2U, 3U}) {
        std::vector<unsigned> expected = {256, 257, 258, 259, 262, 273, 277, 278, 279, 284, 339};
        if (channels > 1) {
            expected.insert(expected.end() - 1, 338);
        }
        auto const bytes = test_files::tool_tiff(std::vector<float>(6), 6 / channels, 1, channels);
        std::vector<unsigned> tags;
        for (std::size_t entry = 0; entry < bytes[8]; ++entry) {
            std::size_t const place = 10 + 12 * entry;
            tags.push_back(bytes[place] + 256U * bytes[place + 1]);
        }
        EXPECT_EQ(tags, expected);
    }
}

// So that a plane can be written as it lies, behind its head.
TEST(Array_writing, samples_of_a_tiff_lie_behind_all_else) {
    for (std::size_t const channels : {1U, 2U, 3U}) {
        std::vector<float> const samples(6);
        Encoded_array const encoded = encode(
            Array_view(std::span<float const>(samples), 6 / channels, 1, channels),
            File_format::tiff);
        EXPECT_TRUE(encoded.samples_follow);
        EXPECT_EQ(encoded.head[10 + 12 * 5], 273 % 256); // where they begin
        EXPECT_EQ(encoded.head[10 + 12 * 5 + 8], encoded.head.size());
        EXPECT_EQ(encoded.head[10 + 12 * 8 + 8], 4 * samples.size());
    }
}

TEST(Array_writing, signed_numbers_of_32_bits) {
    std::vector<std::int32_t> const samples = {-131070, 131070, 0, -1, 7, 65536};
    Array_view const array(std::span<std::int32_t const>(samples), 3, 2);
    auto bytes = encode(array, File_format::tiff).head;
    bytes.insert(bytes.end(), array.bytes().begin(), array.bytes().end());
    cv::Mat const image = cv::imdecode(bytes, cv::IMREAD_UNCHANGED);
    ASSERT_EQ(image.type(), CV_32SC1);
    EXPECT_EQ(std::vector<std::int32_t>(image.begin<int>(), image.end<int>()), samples);
}

TEST(Array_writing, numpy_head_has_shape_and_type_and_ends_at_64_bytes) {
    std::vector<float> const samples(24);
    Array_view const array(std::span<float const>(samples), 4, 3, 2);
    Encoded_array const encoded = encode(array, File_format::npy);
    EXPECT_TRUE(encoded.samples_follow);
    EXPECT_EQ(encoded.head.size() % 64, 0U);
    EXPECT_EQ(encoded.head[8] + 256U * encoded.head[9] + 10U, encoded.head.size());
    std::string const head(encoded.head.begin(), encoded.head.end());
    EXPECT_NE(head.find("'descr': '<f4'"), std::string::npos);
    EXPECT_NE(head.find("'shape': (3, 4, 2)"), std::string::npos);
    EXPECT_EQ(head.back(), '\n');
}

TEST(Array_writing, what_a_png_cannot_hold_is_refused) {
    std::vector<float> const samples(6);
    EXPECT_THROW(
        encode(Array_view(std::span<float const>(samples), 3, 2), File_format::png),
        std::runtime_error);
}

} // namespace
