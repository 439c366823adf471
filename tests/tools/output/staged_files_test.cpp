// Written files appear whole or not at all, and folders made for them go if there are none.
#include "output/staged_files.hpp"

#include "terminal/failure.hpp"
#include "test_files.hpp"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
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

// In a folder that others can write, they may have laid links in the way of a file to come.
TEST(Staged_files, no_link_under_a_foreseeable_name_is_followed) {
    Folder const folder;
    test_files::write(folder / "victim", "mine");
    constexpr unsigned most_counts = 200;
    for (unsigned count = 0; count < most_counts; ++count) {
        std::filesystem::create_symlink(
            "victim",
            folder / ("a.part-" + std::to_string(getpid()) + "-" + std::to_string(count)));
    }
    Staged_files files;
    files.add(folder / "a", std::string("x"));
    files.publish();
    EXPECT_EQ(test_files::read(folder / "victim"), (std::vector<std::uint8_t>{'m', 'i', 'n', 'e'}));
    EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(folder / "a")));
}

// The only name in the folder that is none of `known`.
std::string other_name(Folder const& folder, std::vector<std::string> const& known) {
    for (std::string const& name : test_files::names_in(folder.path())) {
        if (std::find(known.begin(), known.end(), name) == known.end()) {
            return name;
        }
    }
    return "none";
}

TEST(Staged_files, temporary_names_cannot_be_foreseen) {
    Folder const folder;
    Staged_files files;
    files.add(folder / "a", std::string("x"));
    std::string const first = other_name(folder, {});
    files.add(folder / "b", std::string("x"));
    std::string const second = other_name(folder, {first});
    std::string const start = ".veldrane.part-";
    for (std::string const& name : {first, second}) {
        EXPECT_EQ(name.find(start), 0U) << name;
        EXPECT_EQ(name.size(), start.size() + 32) << name;
    }
    EXPECT_NE(first, second);
}

TEST(Staged_files, what_has_come_in_the_place_of_a_temporary_file_is_not_written_to) {
    enum class Trap { link, pipe, file, nothing };
    for (Trap const trap : {Trap::link, Trap::pipe, Trap::file, Trap::nothing}) {
        Folder const folder;
        test_files::write(folder / "victim", "mine");
        Staged_files files;
        files.add(folder / "a", std::string("x"));
        auto const temporary = folder / other_name(folder, {"victim"});
        std::filesystem::rename(temporary, folder / "away");
        if (trap == Trap::link) {
            std::filesystem::create_symlink("victim", temporary);
        } else if (trap == Trap::pipe) {
            ASSERT_EQ(mkfifo(temporary.c_str(), 0600), 0);
        } else if (trap == Trap::file) {
            std::filesystem::create_hard_link(folder / "victim", temporary);
        }
        std::vector<std::uint8_t> const more = {1};
        EXPECT_THROW(files.append(more), File_failure);
        EXPECT_EQ(test_files::read(folder / "victim").size(), 4U);
    }
}

TEST(Staged_files, what_keeps_the_system_from_opening_a_temporary_file_is_told) {
    Folder const folder;
    Staged_files files;
    files.add(folder / "a", std::string("x"));
    std::vector<std::uint8_t> const more = {1};
    rlimit old = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &old), 0);
    rlimit const none = {0, old.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    std::string problem;
    try {
        files.append(more);
    } catch (File_failure const& failure) {
        problem = failure.what();
    }
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &old), 0);
    EXPECT_EQ(problem, (folder / "a").string() + ": cannot be written: Too many open files");
}

TEST(Staged_files, only_regular_files_are_replaced) {
    Folder const folder;
    test_files::write(folder / "file", "mine");
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    std::filesystem::create_symlink("file", folder / "link");
    std::filesystem::create_symlink("nowhere", folder / "dangling");
    unsigned refused = 0;
    for (Existing_files const existing : {Existing_files::keep, Existing_files::replace}) {
        for (auto const& [name, reason] :
             {std::pair("pipe", "it is no regular file but a pipe; "),
              std::pair("link", "it is a link to file; "),
              std::pair("dangling", "it is a link to nowhere, which is not there; ")}) {
            try {
                Staged_files files(existing);
                files.add(folder / name, std::string("x"));
                files.publish();
                ADD_FAILURE() << name << " was replaced";
            } catch (File_failure const& failure) {
                std::string const start = (folder / name).string() + ": cannot be written: ";
                EXPECT_EQ(std::string(failure.what()).find(start + reason), 0U) << failure.what();
                ++refused;
            }
        }
    }
    EXPECT_EQ(
        test_files::names_in(folder.path()),
        (std::vector<std::string>{"dangling", "file", "link", "pipe"}));
    EXPECT_TRUE(std::filesystem::is_fifo(folder / "pipe"));
    EXPECT_TRUE(std::filesystem::is_symlink(folder / "link"));
    EXPECT_TRUE(std::filesystem::is_symlink(folder / "dangling"));
    std::printf("%u refusals\n", refused);
}

// What is a leftover, and what only looks like one, is for calibration_file_test.
TEST(Staged_files, leftovers_of_killed_runs_are_removed_after_an_hour) {
    Folder const folder;
    std::string const ours = ".veldrane.part-0123456789abcdef0123456789abcde";
    test_files::write(folder / (ours + "0"), "young");
    test_files::write(folder / (ours + "1"), "old");
    std::filesystem::last_write_time(
        folder / (ours + "1"),
        std::filesystem::file_time_type::clock::now() - std::chrono::minutes(61));
    Staged_files files;
    files.add(folder / "a", std::string("x"));
    files.publish();
    EXPECT_EQ(test_files::names_in(folder.path()), (std::vector<std::string>{ours + "0", "a"}));
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
