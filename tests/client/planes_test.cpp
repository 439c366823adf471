// Sets of planes and the lists by which people name them.

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/planes.hpp"

#include <gtest/gtest.h>

namespace {

using namespace veldrane_mrv::polarization;

TEST(Plane_table, stands_in_the_order_of_the_enumerators) {
    for (std::size_t index = 0; index < plane_table.size(); ++index) {
        EXPECT_EQ(static_cast<std::size_t>(plane_table[index].plane), index);
        EXPECT_EQ(every_plane[index], plane_table[index].plane);
    }
}

TEST(Plane_table, tells_the_members_that_planes_are_visited_with) {
    Per_plane<std::vector> vectors;
    std::size_t visited = 0;
    for_each_plane(
        [&]<class Element>(auto plane, std::vector<Element>& elements) {
            static_assert(element_type_of<Element> == description_of(plane).element);
            elements.resize(elements_per_pixel(plane));
            EXPECT_EQ(static_cast<std::size_t>(Plane{plane}), visited++);
        },
        vectors);
    EXPECT_EQ(visited, 8);
    EXPECT_EQ(vectors.s0.size() + vectors.s1.size() + vectors.s2.size(), 3);
    EXPECT_EQ(vectors.azimuth.size() + vectors.dolp.size(), 2);
    EXPECT_EQ(vectors.normalized_stokes.size(), 2);
    EXPECT_EQ(vectors.validity.size(), 1);
    EXPECT_EQ(vectors.uncertainty.size(), 3);
}

TEST(Plane_set, holds_what_was_inserted) {
    Plane_set set{Plane::s1, Plane::dolp};
    EXPECT_TRUE(set.contains(Plane::s1));
    EXPECT_FALSE(set.contains(Plane::s0));
    EXPECT_EQ(set.list(), (std::vector{Plane::s1, Plane::dolp}));
    set.erase(Plane::s1);
    set.erase(Plane::s1);
    EXPECT_EQ(set, Plane_set{Plane::dolp});
    EXPECT_TRUE(Plane_set{}.empty());
    EXPECT_EQ(Plane_set::all().list().size(), 6);
    EXPECT_FALSE(Plane_set::all().contains(Plane::validity));
    EXPECT_FALSE(Plane_set::all().contains(Plane::uncertainty));
}

TEST(Plane_set, is_read_from_every_list_that_it_writes) {
    for (unsigned bits = 1; bits < 256; ++bits) {
        Plane_set set;
        for (Plane const plane : every_plane) {
            if ((bits >> static_cast<unsigned>(plane) & 1) != 0) {
                set.insert(plane);
            }
        }
        EXPECT_EQ(parse_planes(to_string(set)), set);
    }
    EXPECT_EQ(parse_planes("all"), Plane_set::all());
    EXPECT_EQ(parse_planes("dolp,s0,dolp"), (Plane_set{Plane::s0, Plane::dolp}));
}

TEST(Plane_set, refuses_names_that_are_none_and_says_which_there_are) {
    for (char const* list : {"", "s3", "s0,", ",s0", "s0,,s1", "S0", "s0 ,s1", "all,s0"}) {
        try {
            parse_planes(list);
            FAIL() << list;
        } catch (Argument_error const& error) {
            EXPECT_NE(
                error.remedy().find("s0,s1,s2,azimuth,dolp,normalized_stokes,validity,uncertainty"),
                std::string::npos);
            EXPECT_NE(error.value().find(list), std::string::npos);
        }
    }
}

TEST(Argument_error, tells_argument_value_and_remedy_in_one_sentence) {
    Argument_error const error{"the width", "8", "give at least 16 columns"};
    EXPECT_STREQ(error.what(), "the width is 8; give at least 16 columns");
    EXPECT_EQ(error.argument(), "the width");
    EXPECT_EQ(error.value(), "8");
    EXPECT_EQ(error.remedy(), "give at least 16 columns");
}

} // namespace
