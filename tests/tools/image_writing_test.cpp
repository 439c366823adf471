// Written files: their contents by an independent reader, and that they appear whole or not at all.
#include "image_writing.hpp"

#include "failure.hpp"
#include "test_files.hpp"

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

namespace {

using namespace polarize_tool;
using test_files::Folder;

TEST(Image_writing, tiff_of_16_bits_is_read_by_the_image_library) {
    std::vector<std::uint16_t> samples(33 * 21);
    for (std::size_t index = 0; index < samples.size(); ++index) {
        samples[index] = static_cast<std::uint16_t>(index * 97);
    }
    cv::Mat const image = cv::imdecode(encode_tiff(samples, 33, 21), cv::IMREAD_UNCHANGED);
    ASSERT_EQ(image.type(), CV_16UC1);
    ASSERT_EQ(image.size(), cv::Size(33, 21));
    EXPECT_EQ(
        std::vector<std::uint16_t>(image.begin<std::uint16_t>(), image.end<std::uint16_t>()),
        samples);
}

TEST(Image_writing, tiff_of_floats_is_read_by_the_image_library) {
    std::vector<float> const samples = {0.0F, -1.5F, 3.25F, 1e30F, 179.99F, 0.125F};
    cv::Mat const image = cv::imdecode(encode_tiff(samples, 2, 3), cv::IMREAD_UNCHANGED);
    ASSERT_EQ(image.type(), CV_32FC1);
    EXPECT_EQ(std::vector<float>(image.begin<float>(), image.end<float>()), samples);
}

TEST(Image_writing, tiff_of_two_float_channels_keeps_pairs_together) {
    Folder const folder;
    std::vector<float> const samples = {1.0F, -2.0F, 3.0F, -4.0F};
    test_files::write(folder / "pairs.tif", encode_tiff(samples, 1, 2, 2));
    test_files::Tiff const tiff = test_files::read_tiff(folder / "pairs.tif");
    EXPECT_EQ(tiff.width, 1U);
    EXPECT_EQ(tiff.height, 2U);
    EXPECT_EQ(tiff.channels, 2U);
    EXPECT_EQ(tiff.samples, (std::vector<double>{1, -2, 3, -4}));
}

TEST(Image_writing, fields_of_a_tiff_stand_in_ascending_order) {
    for (std::size_t const channels : {1U, 2U}) {
        auto const bytes = encode_tiff(std::vector<float>(4), 4 / channels, 1, channels);
        unsigned previous = 0;
        for (std::size_t entry = 0; entry < bytes[8]; ++entry) {
            std::size_t const place = 10 + 12 * entry;
            unsigned const tag = bytes[place] + 256U * bytes[place + 1];
            EXPECT_GT(tag, previous);
            previous = tag;
        }
    }
}

TEST(Image_writing, files_appear_on_publishing_only) {
    Folder const folder;
    std::vector<std::uint8_t> const bytes = {1, 2, 3};
    Staged_files files;
    files.add(folder / "a", bytes);
    files.add(folder / "b", bytes);
    EXPECT_FALSE(std::filesystem::exists(folder / "a"));
    files.publish();
    EXPECT_EQ(test_files::names_in(folder.path()), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(test_files::read(folder / "b"), bytes);
}

TEST(Image_writing, unpublished_files_leave_nothing_and_the_old_file_stays) {
    Folder const folder;
    std::vector<std::uint8_t> const old = {9};
    test_files::write(folder / "a", old);
    {
        Staged_files files;
        files.add(folder / "a", std::vector<std::uint8_t>{1, 2, 3});
        EXPECT_THROW(files.add(folder / "no" / "b", old), File_failure);
    }
    EXPECT_EQ(test_files::names_in(folder.path()), std::vector<std::string>{"a"});
    EXPECT_EQ(test_files::read(folder / "a"), old);
}

TEST(Image_writing, a_folder_below_a_file_is_refused) {
    Folder const folder;
    test_files::write(folder / "file", "x");
    EXPECT_THROW(make_folder(folder / "file"), File_failure);
    EXPECT_THROW(make_folder(folder / "file" / "deeper"), File_failure);
    make_folder(folder / "new" / "deeper");
    EXPECT_TRUE(std::filesystem::is_directory(folder / "new" / "deeper"));
}

} // namespace
