// The four mosaics: derived here from the arithmetic of the processor's vector blocks, which know a
// phase and no matrix, and from frames cut out of one another.

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/transform.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <iostream>
#include <set>
#include <vector>

namespace {

using namespace veldrane_mrv::polarization;

/// What the first pixel of a vector block makes of light on one position of the cell alone.
Mosaic::Layout layout_seen_by_vector_blocks(Mosaic const& mosaic) {
    constexpr std::size_t height = 4;
    constexpr std::size_t width = 48;
    Mosaic::Layout layout{};
    for (std::size_t lit = 0; lit < 4; ++lit) {
        std::vector<std::uint16_t> samples(height * width);
        for (std::size_t pixel = 0; pixel < samples.size(); ++pixel) {
            samples[pixel] = cell_position(pixel / width, pixel % width) == lit ? 100 : 0;
        }
        Planes planes{height, width, {Plane::azimuth}};
        Scale const scale{12, 180};
        transform({samples, height, width}, ideal_settings(mosaic, scale), planes.views());
        // The azimuth in whole degrees has an offset of 90, and 180 stands for 90 too.
        layout[lit] = (planes.integer_plane(Plane::azimuth)[0] + 90) % 180;
    }
    return layout;
}

TEST(Mosaic, layouts_are_those_of_the_vector_blocks) {
    for (Mosaic const& mosaic : all_mosaics()) {
        EXPECT_EQ(mosaic.layout(), layout_seen_by_vector_blocks(mosaic)) << mosaic.phase();
    }
    std::cout << "16 polarisers of 4 mosaics found from vector blocks\n";
}

TEST(Mosaic, has_orthogonal_polarisers_on_the_diagonals) {
    std::set<Mosaic::Layout> different;
    for (Mosaic const& mosaic : all_mosaics()) {
        different.insert(mosaic.layout());
        EXPECT_EQ((mosaic.angle(0, 0) + 90) % 180, mosaic.angle(1, 1));
        EXPECT_EQ((mosaic.angle(0, 1) + 90) % 180, mosaic.angle(1, 0));
    }
    EXPECT_EQ(different.size(), 4);
}

TEST(Mosaic, of_a_region_has_the_polarisers_of_the_whole_frame) {
    std::size_t compared = 0;
    for (Mosaic const& mosaic : all_mosaics()) {
        for (std::size_t row = 0; row < 5; ++row) {
            for (std::size_t column = 0; column < 5; ++column) {
                Mosaic const region = mosaic.of_region(row, column);
                for (std::size_t r = 0; r < 3; ++r) {
                    for (std::size_t c = 0; c < 3; ++c) {
                        EXPECT_EQ(region.angle(r, c), mosaic.angle(row + r, column + c));
                        ++compared;
                    }
                }
            }
        }
    }
    std::cout << compared << " polarisers of regions compared\n";
}

TEST(Mosaic, has_an_opposite_with_every_polariser_turned) {
    for (Mosaic const& mosaic : all_mosaics()) {
        EXPECT_EQ(mosaic.opposite().opposite(), mosaic);
        for (std::size_t position = 0; position < 4; ++position) {
            EXPECT_EQ(mosaic.opposite().layout()[position], (mosaic.layout()[position] + 90) % 180);
        }
    }
}

TEST(Mosaic, is_read_from_a_phase_a_layout_and_a_text) {
    EXPECT_EQ(Mosaic::parse("90,45,135,0").phase(), 2);
    EXPECT_EQ(Mosaic::parse(" 0 , 135,45 ,90").phase(), 0);
    for (int phase = 0; phase < 4; ++phase) {
        Mosaic const mosaic = Mosaic::from_phase(phase);
        EXPECT_EQ(mosaic.phase(), phase);
        EXPECT_EQ(Mosaic::parse(mosaic.to_string()), mosaic);
        EXPECT_EQ(Mosaic::from_layout(mosaic.layout()), mosaic);
    }
}

TEST(Mosaic, refuses_every_other_layout_with_the_list_of_those_that_work) {
    Mosaic::Layout layout = {0, 45, 90, 135};
    int refused = 0;
    do {
        try {
            Mosaic::from_layout(layout);
        } catch (Argument_error const& error) {
            ++refused;
            for (Mosaic const& mosaic : all_mosaics()) {
                EXPECT_NE(error.remedy().find(mosaic.to_string()), std::string::npos);
            }
        }
    } while (std::ranges::next_permutation(layout).found);
    EXPECT_EQ(refused, 20);
    for (char const* text :
         {"", "90", "90,45,135", "90,45,135,0,0", "90,45,135,", "90 45 135 0", "90,45,135,0x",
          ",,,", "90;45;135;0", "270,45,135,0", "90,45,135,99999999999"}) {
        EXPECT_THROW(Mosaic::parse(text), Argument_error) << text;
    }
    EXPECT_THROW(Mosaic::from_phase(-1), Argument_error);
    EXPECT_THROW(Mosaic::from_phase(4), Argument_error);
    std::cout << refused << " of 24 layouts refused\n";
}

} // namespace
