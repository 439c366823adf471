// Large pieces arrive in their places, and what fails is told from a want of room.
#include "output/bulk_writing.hpp"

#include "terminal/failure.hpp"
#include "test_files.hpp"

#include <array>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <thread>
#include <vector>

namespace {

using namespace polarize_tool;
using test_files::Folder;
using Bytes = Bulk_file::Bytes;
namespace regular_files = veldrane_mrv::polarization::regular_files;

std::vector<std::uint8_t> counted(std::size_t size, std::uint8_t first) {
    std::vector<std::uint8_t> bytes(size);
    for (std::uint8_t& byte : bytes) {
        byte = first++;
    }
    return bytes;
}

TEST(Bulk_file, parts_lie_behind_one_another_and_gaps_read_as_zeros) {
    Folder const folder;
    auto const head = counted(3, 1);
    auto const samples = counted(70000, 7);
    Bulk_file file(regular_files::create(folder / "a"), folder / "a");
    file.write(5, std::array<Bytes, 4>{head, Bytes(), samples, Bytes()});
    file.write(0, std::array<Bytes, 1>{head});
    file.write(80000, std::array<Bytes, 0>{});
    file.close();
    std::vector<std::uint8_t> expected(head);
    expected.resize(5);
    expected.insert(expected.end(), head.begin(), head.end());
    expected.insert(expected.end(), samples.begin(), samples.end());
    EXPECT_EQ(test_files::read(folder / "a"), expected);
}

TEST(Bulk_file, more_parts_than_one_call_takes) {
    Folder const folder;
    auto const samples = counted(3000, 0);
    std::vector<Bytes> parts;
    for (std::size_t place = 0; place < samples.size(); ++place) {
        parts.push_back(Bytes(samples).subspan(place, 1));
    }
    Bulk_file file(regular_files::create(folder / "a"), folder / "a");
    file.write(0, parts);
    file.close();
    EXPECT_EQ(test_files::read(folder / "a"), samples);
}

TEST(Bulk_file, threads_write_into_ranges_of_their_own) {
    constexpr std::size_t size = 100000;
    Folder const folder;
    auto const samples = counted(4 * size, 3);
    Bulk_file file(regular_files::create(folder / "a"), folder / "a");
    {
        std::vector<std::jthread> threads;
        for (std::size_t part = 0; part < 4; ++part) {
            threads.emplace_back([&, part] {
                Bytes const range = Bytes(samples).subspan(part * size, size);
                file.write(part * size, {&range, 1});
            });
        }
    }
    file.close();
    EXPECT_EQ(test_files::read(folder / "a"), samples);
}

// The first call writes as far as the limit, the second none.
TEST(Bulk_file, what_is_cut_short_fails) {
    Folder const folder;
    auto const samples = counted(8192, 0);
    Bulk_file file(regular_files::create(folder / "a"), folder / "result");
    rlimit before = {};
    getrlimit(RLIMIT_FSIZE, &before);
    auto const handler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit const limit = {6000, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
    std::string problem;
    try {
        file.write(0, std::array<Bytes, 2>{Bytes(samples).first(10), samples});
    } catch (File_failure const& failure) {
        problem = failure.what();
    }
    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, handler);
    EXPECT_EQ(problem.find((folder / "result").string() + ": cannot be written: "), 0U) << problem;
    EXPECT_EQ(std::filesystem::file_size(folder / "a"), 6000U);
}

TEST(Bulk_file, a_full_disk_takes_no_further_file) {
    regular_files::Descriptor full(open("/dev/full", O_WRONLY | O_CLOEXEC));
    if (!full.is_open()) {
        GTEST_SKIP() << "no /dev/full here";
    }
    auto const samples = counted(10, 0);
    Bulk_file file(std::move(full), "result");
    EXPECT_THROW(file.write(0, std::array<Bytes, 1>{samples}), Output_exhausted);
}

} // namespace
