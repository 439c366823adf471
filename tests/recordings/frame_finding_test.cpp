// Where frames lie in what the user names: numbers and sizes without the program around them.
#include "veldrane_mrv/polarization/frame_list.hpp"

#include "test_files.hpp"
#include "veldrane_mrv/polarization/argument_error.hpp"

#include <gtest/gtest.h>
#include <limits>

namespace {

using namespace veldrane_mrv::polarization;

TEST(Raw_layout, every_whole_number_of_frames_and_no_other_size) {
    Raw_layout const layout = make_raw_layout("Mono12p", 10, 4, 7, 20);
    std::size_t fitting = 0;
    for (std::uint64_t size = 0; size <= 7 + 5 * 80; ++size) {
        std::size_t const frames = layout.frames_in(size);
        bool const is_whole = size > 7 && ((size - 7) % 80 == 0 || (size - 7) % 80 == 75);
        EXPECT_EQ(frames > 0, is_whole) << size;
        if (is_whole) {
            EXPECT_EQ(frames, (size - 7 + 5) / 80) << size;
            ++fitting;
        }
    }
    EXPECT_EQ(fitting, 10U);
    EXPECT_EQ(layout.offset_of(3), 7U + 240U);
}

TEST(Raw_layout, numbers_that_do_not_fit_together_are_refused) {
    EXPECT_THROW(make_raw_layout("Mono13", 10, 4, 0, 0), Argument_error);
    EXPECT_THROW(make_raw_layout("Mono16", 10, 4, 0, 19), Argument_error);
}

TEST(Frame_place, parts_of_a_file_are_numbered) {
    EXPECT_EQ((Frame_place{"a/b.c.png", 0, 1}.stem()), "b.c");
    EXPECT_EQ((Frame_place{"a/run.raw", 12, 40}.stem()), "run_000012");
    EXPECT_EQ((Frame_place{"a/run.raw", 12345678, 99999999}.stem()), "run_12345678");
    EXPECT_EQ((Frame_place{"a/run.raw", 12, 40}.name()), "a/run.raw, frame 12");
}

TEST(Frame_finding, names_with_pattern_letters_are_files_first) {
    test_files::Folder const folder;
    test_files::write(folder / "a[1].png", "x");
    test_files::write(folder / "a1.png", "x");
    Found_frames const literal = find_frames({(folder / "a[1].png").string()}, std::nullopt);
    ASSERT_EQ(literal.frames.size(), 1U);
    EXPECT_EQ(literal.frames[0].file.filename(), "a[1].png");
    EXPECT_EQ(find_frames({(folder / "a[12].png").string()}, std::nullopt).frames.size(), 1U);
    EXPECT_EQ(find_frames({(folder / "*.png").string()}, std::nullopt).frames.size(), 2U);
}

TEST(Frame_finding, a_damaged_file_is_a_failure_or_a_frame_between_the_others) {
    test_files::Folder const folder;
    test_files::write(folder / "1.png", "x");
    test_files::write(folder / "2.tif", std::string("II*\0x", 5));
    test_files::write(folder / "3.png", "x");
    std::vector<std::string> const inputs = {folder.path().string()};
    Found_frames const without = find_frames(inputs, std::nullopt);
    EXPECT_EQ(without.frames.size(), 2U);
    EXPECT_EQ(without.failures.size(), 1U);
    Found_frames const with = find_frames(inputs, std::nullopt, {}, {}, Damaged_files::are_frames);
    ASSERT_EQ(with.frames.size(), 3U);
    EXPECT_EQ(with.frames[1].file.filename(), "2.tif");
    EXPECT_TRUE(with.failures.empty());
}

TEST(Frame_finding, selection_counts_over_all_inputs) {
    std::vector<std::string> const inputs = {"a.png", "b.png", "c.png", "d.png", "e.png"};
    auto const chosen = [&](Frame_selection const& selection) {
        std::string names;
        for (Frame_place const& frame : find_frames(inputs, std::nullopt, selection).frames) {
            names += frame.stem();
        }
        return names;
    };
    EXPECT_EQ(chosen({}), "abcde");
    EXPECT_EQ(chosen({1, 4, 2}), "bd");
    EXPECT_EQ(chosen({3, std::nullopt, 1}), "de");
    EXPECT_EQ(chosen({9, std::nullopt, 1}), "");
    EXPECT_EQ(chosen({0, 99, 3}), "ad");
    EXPECT_EQ(chosen({2, std::nullopt, std::numeric_limits<std::size_t>::max()}), "c");
}

} // namespace
