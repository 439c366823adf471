/// @file
/// Covers the guard itself: every access one element beyond either edge must end the process, and
/// so must a write to read-only memory. A guard that does not trap would let every test pass.

#include "support/guarded_pages.hpp"

#include <gtest/gtest.h>

#include <cstring>

namespace {

using support::Edge;
using support::Guarded_pages;
using enum Guarded_pages::Access;

std::byte read(std::byte const* address) {
    return *static_cast<std::byte const volatile*>(address);
}

void write(std::byte* address) {
    *static_cast<std::byte volatile*>(address) = std::byte{1};
}

class Guarded_pages_of : public testing::TestWithParam<Guarded_pages::Access> {
protected:
    Guarded_pages pages{10'000, GetParam()};
};

TEST_P(Guarded_pages_of, either_access_lay_a_buffer_flush_against_its_edge) {
    EXPECT_EQ(pages.guarded(6'000, Edge::start), pages.first());
    EXPECT_EQ(pages.guarded(6'000, Edge::end) + 6'000, pages.last());
    EXPECT_GE(pages.last() - pages.first(), 10'000);
}

TEST_P(Guarded_pages_of, either_access_show_what_was_written) {
    for (Edge const edge : support::both_edges) {
        std::memset(pages.writable(3'000, edge), 0x5A, 3'000);
        EXPECT_EQ(read(pages.guarded(3'000, edge)), std::byte{0x5A});
        EXPECT_EQ(read(pages.guarded(3'000, edge) + 2'999), std::byte{0x5A});
    }
}

TEST_P(Guarded_pages_of, either_access_trap_a_read_behind_the_end) {
    EXPECT_DEATH(read(pages.guarded(100, Edge::end) + 100), "");
}

TEST_P(Guarded_pages_of, either_access_trap_a_read_before_the_start) {
    EXPECT_DEATH(read(pages.guarded(100, Edge::start) - 1), "");
}

TEST_P(Guarded_pages_of, either_access_trap_a_write_behind_the_end) {
    EXPECT_DEATH(write(pages.guarded(100, Edge::end) + 100), "");
}

TEST_P(Guarded_pages_of, either_access_trap_a_write_before_the_start) {
    EXPECT_DEATH(write(pages.guarded(100, Edge::start) - 1), "");
}

INSTANTIATE_TEST_SUITE_P(
    Both, Guarded_pages_of, testing::Values(read_only, read_write),
    [](auto const& access) { return access.param == read_only ? "read_only" : "read_write"; });

TEST(Guarded_pages, read_only_memory_traps_a_write_to_its_first_and_last_byte) {
    Guarded_pages const pages{100, read_only};
    EXPECT_DEATH(write(pages.first()), "");
    EXPECT_DEATH(write(pages.last() - 1), "");
}

TEST(Guarded_pages, read_write_memory_takes_a_write_to_its_first_and_last_byte) {
    Guarded_pages const pages{100, read_write};
    write(pages.first());
    write(pages.last() - 1);
    EXPECT_EQ(read(pages.first()), std::byte{1});
    EXPECT_EQ(read(pages.last() - 1), std::byte{1});
}

} // namespace
