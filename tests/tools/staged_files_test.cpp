// Written files appear whole or not at all, and folders made for them go if there are none.
#include "staged_files.hpp"

#include "failure.hpp"
#include "test_files.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

namespace {

using namespace polarize_tool;
using test_files::Folder;

TEST(Staged_files, files_appear_on_publishing_only) {
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

TEST(Staged_files, unpublished_files_leave_nothing_and_the_old_file_stays) {
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

TEST(Staged_files, a_file_that_is_there_is_kept_unless_it_may_be_replaced) {
    Folder const folder;
    std::vector<std::uint8_t> const bytes = {1};
    Staged_files files(Existing_files::keep);
    files.add(folder / "a", bytes);
    files.add(folder / "b", bytes);
    test_files::write(folder / "b", "somebody was quicker");
    EXPECT_THROW(files.publish(), File_failure);
    EXPECT_FALSE(std::filesystem::exists(folder / "a"));
    EXPECT_THROW(Staged_files(Existing_files::keep).add(folder / "b", bytes), File_failure);
    Staged_files replacing;
    replacing.add(folder / "b", bytes);
    replacing.publish();
    EXPECT_EQ(test_files::read(folder / "b"), bytes);
}

TEST(Staged_files, a_folder_of_the_name_is_refused_before_anything_appears) {
    Folder const folder;
    Staged_files files;
    files.add(folder / "a", std::string("x"));
    files.add(folder / "b", std::string("x"));
    std::filesystem::create_directory(folder / "b");
    EXPECT_THROW(files.publish(), File_failure);
    EXPECT_FALSE(std::filesystem::exists(folder / "a"));
}

TEST(Staged_files, parts_lie_behind_one_another) {
    Folder const folder;
    std::vector<std::uint8_t> const one = {1, 2};
    std::vector<std::uint8_t> const two = {3};
    Staged_files files;
    files.add(folder / "a", {one, two});
    files.append(one);
    files.publish();
    EXPECT_EQ(test_files::read(folder / "a"), (std::vector<std::uint8_t>{1, 2, 3, 1, 2}));
}

TEST(Staged_files, want_of_room_is_told_from_other_failures) {
    std::vector<std::uint8_t> const bytes(100);
    try {
        Staged_files on_proc;
        on_proc.add("/proc/self/a", bytes);
        ADD_FAILURE() << "not refused";
    } catch (Output_exhausted const&) {
        ADD_FAILURE() << "not for want of room";
    } catch (File_failure const& failure) {
        EXPECT_EQ(std::string(failure.what()).find("/proc/self/a: cannot be written: "), 0U);
    }
}

// Root may write anywhere, so the test becomes another user for the while.
TEST(Staged_files, a_folder_without_permission_takes_no_file_at_all) {
    Folder const folder;
    std::filesystem::permissions(folder.path(), std::filesystem::perms(0555));
    bool const is_root = geteuid() == 0;
    constexpr uid_t nobody = 65534;
    if (is_root && seteuid(nobody) != 0) {
        GTEST_SKIP() << "this root cannot become another user";
    }
    bool const has_permission = euidaccess(folder.path().c_str(), W_OK) == 0;
    std::string problem;
    try {
        Staged_files files;
        files.add(folder / "a", std::string("x"));
    } catch (Output_exhausted const& failure) {
        problem = failure.what();
    } catch (std::exception const& failure) {
        problem = std::string("another failure: ") + failure.what();
    }
    ASSERT_TRUE(!is_root || seteuid(0) == 0);
    std::filesystem::permissions(folder.path(), std::filesystem::perms(0755));
    if (has_permission) {
        GTEST_SKIP() << "no permission keeps this user from writing";
    }
    EXPECT_EQ(
        problem, (folder / "a").string() +
                     ": cannot be written: Permission denied; choose another folder with -o");
}

TEST(Made_folder, below_a_file_is_refused) {
    Folder const folder;
    test_files::write(folder / "file", "x");
    EXPECT_THROW(Made_folder(folder / "file"), File_failure);
    EXPECT_THROW(Made_folder(folder / "file" / "deeper"), File_failure);
    EXPECT_EQ(test_files::names_in(folder.path()), std::vector<std::string>{"file"});
}

TEST(Made_folder, leaves_what_was_there_and_what_holds_a_file) {
    Folder const folder;
    std::filesystem::create_directory(folder / "old");
    {
        Made_folder const none(folder / "old");
        Made_folder const unused(folder / "old" / "new" / "deeper");
        EXPECT_TRUE(std::filesystem::is_directory(folder / "old" / "new" / "deeper"));
        Made_folder const used(folder / "full" / "of" / "");
        test_files::write(folder / "full" / "file", "x");
        Made_folder const by_a_detour(folder / "there" / ".." / "back");
    }
    EXPECT_EQ(test_files::names_in(folder.path()), (std::vector<std::string>{"full", "old"}));
    EXPECT_TRUE(test_files::names_in(folder / "old").empty());
    EXPECT_EQ(test_files::names_in(folder / "full"), std::vector<std::string>{"file"});
}

} // namespace
