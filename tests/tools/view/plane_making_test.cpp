// Planes of parts of frames against those of whole frames, and their means against sums written
// another way: pixel by pixel, in double and by the formulas of the convention.
#include "view/plane_making.hpp"

#include "support/samples.hpp"
#include "veldrane_mrv/polarization/units.hpp"
#include "view/stokes_reduction.hpp"
#include "whole_frame.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <iostream>
#include <vector>

namespace {

using namespace polarize_tool;
using polarization::Plane;
using polarization::Region;
using polarization::Size;

long rounded_ratio(double numerator, double denominator) {
    return std::lround(numerator / denominator);
}

class Expected {
public:
    Expected(Case const& one, Region const& region, std::size_t k)
        : one_{one}, whole_{one}, region_{region}, k_{k} {}

    long of(View_plane plane, Size const& square) {
        switch (plane) {
        case View_plane::raw:
            return mean(square, [&](std::size_t row, std::size_t column) {
                return static_cast<double>(one_.view()(row, column));
            });
        case View_plane::i0:
            return analyser(0, square);
        case View_plane::i45:
            return analyser(45, square);
        case View_plane::i90:
            return analyser(90, square);
        case View_plane::i135:
            return analyser(135, square);
        case View_plane::validity: {
            unsigned flags = 0;
            for_each_pixel(region_, k_, square, [&](std::size_t row, std::size_t column) {
                flags |= whole_.validity[index(row, column)];
            });
            return static_cast<long>(flags);
        }
        default:
            return k_ == 1 && plane < View_plane::s1_s0 ? stored(plane, square)
                                                        : stokes(plane, square);
        }
    }

private:
    std::size_t index(std::size_t row, std::size_t column) const {
        return row * one_.size.width + column;
    }

    template <class Value>
    long mean(Size const& square, Value value) const {
        double sum = 0;
        double count = 0;
        for_each_pixel(region_, k_, square, [&](std::size_t row, std::size_t column) {
            sum += value(row, column);
            ++count;
        });
        return rounded_ratio(sum, count);
    }

    // A square that lies in one row or column of cells may have no sample of an analyser: then that
    // of the cell, and where the frame cuts the cell off, of the cell before it.
    long analyser(int angle, Size const& square) const {
        double sum = 0;
        double count = 0;
        auto const add = [&](std::size_t row, std::size_t column) {
            if (one_.settings.mosaic.angle(row, column) == angle) {
                sum += one_.view()(row, column);
                ++count;
            }
        };
        Region const& r = region_;
        std::size_t const top = r.row + square.height * k_;
        std::size_t const left = r.column + square.width * k_;
        std::size_t const bottom = std::min(top + k_, r.row + r.height);
        std::size_t const right = std::min(left + k_, r.column + r.width);
        auto const other = [](std::size_t place, std::size_t length) {
            return place % 2 == 1 ? place - 1 : place + 1 < length ? place + 1 : place - 1;
        };
        std::vector<std::size_t> rows;
        std::vector<std::size_t> columns;
        for (std::size_t row = top; row < bottom; ++row) {
            rows.push_back(row);
        }
        for (std::size_t column = left; column < right; ++column) {
            columns.push_back(column);
        }
        if (rows.size() == 1) {
            rows.push_back(other(top, one_.size.height));
        }
        if (columns.size() == 1) {
            columns.push_back(other(left, one_.size.width));
        }
        for (std::size_t const row : rows) {
            for (std::size_t const column : columns) {
                add(row, column);
            }
        }
        return rounded_ratio(sum, count);
    }

    long stored(View_plane plane, Size const& square) {
        Plane const found = plane == View_plane::s0        ? Plane::s0
                            : plane == View_plane::azimuth ? Plane::azimuth
                                                           : Plane::dolp;
        return whole_.planes.integer_plane(
            found)[index(region_.row + square.height, region_.column + square.width)];
    }

    long stokes(View_plane plane, Size const& square) const {
        double s0 = 0;
        double s1 = 0;
        double s2 = 0;
        double count = 0;
        for_each_pixel(region_, k_, square, [&](std::size_t row, std::size_t column) {
            std::size_t const at = index(row, column);
            s0 += whole_.planes.integer_plane(Plane::s0)[at];
            s1 += whole_.signs.s1[at];
            s2 += whole_.signs.s2[at];
            ++count;
        });
        double const full = one_.settings.scale.full_scale();
        auto const ratio = [&](double number) {
            return s0 == 0 ? 0 : std::lround(std::clamp(number / s0, -1.0, 1.0) * 32767);
        };
        switch (plane) {
        case View_plane::s0:
            return rounded_ratio(s0, count);
        case View_plane::azimuth:
            return polarization::azimuth_of_angle(
                std::atan2(s2, s1) / 2, one_.settings.scale, polarization::Angle_unit::radians);
        case View_plane::dolp:
            return s0 == 0 ? 0 : std::lround(std::min(std::hypot(s1, s2) / s0, 1.0) * full);
        case View_plane::s1_s0:
            return ratio(s1);
        default:
            return ratio(s2);
        }
    }

    Case const& one_;
    Whole whole_;
    Region region_;
    std::size_t k_;
};

/// Memory for all planes of a part.
struct Made {
    explicit Made(Region const& region, std::size_t k) : wanted{region, k} {
        for (auto const& about : view_plane_table) {
            auto& plane = memory[static_cast<unsigned>(about.plane)];
            plane.assign(wanted.size().width * wanted.size().height + 1, 0xabcd);
            wanted.targets[static_cast<unsigned>(about.plane)] = plane.data();
        }
    }

    long at(View_plane plane, std::size_t index) const {
        auto const& elements = memory[static_cast<unsigned>(plane)];
        std::string_view const type = description_of(plane).type;
        return type == "u8"    ? reinterpret_cast<std::uint8_t const*>(elements.data())[index]
               : type == "i16" ? static_cast<std::int16_t>(elements[index])
                               : elements[index];
    }

    Planes_wanted wanted;
    std::array<std::vector<std::uint16_t>, view_plane_table.size()> memory;
};

class Parts_of_frames : public testing::Test {
protected:
    void compare(Case const& one, Plane_making& making, Region const& region, std::size_t k) {
        Made made(region, k);
        making.make({one.view(), one.saturated}, made.wanted);
        Expected expected(one, region, k);
        Size const size = made.wanted.size();
        for (auto const& about : view_plane_table) {
            for (std::size_t row = 0; row < size.height; ++row) {
                for (std::size_t column = 0; column < size.width; ++column) {
                    ASSERT_EQ(
                        made.at(about.plane, row * size.width + column),
                        expected.of(about.plane, {column, row}))
                        << about.name << " at " << row << ", " << column << ", scale " << k
                        << ", region " << to_string(region) << " of " << to_string(one.size);
                    ++compared_;
                }
            }
            if (about.type != "u8") {
                EXPECT_EQ(made.memory[static_cast<unsigned>(about.plane)].back(), 0xabcd);
            }
        }
    }

    std::size_t compared_ = 0;
};

TEST_F(Parts_of_frames, have_the_numbers_of_whole_frames_at_every_edge) {
    for (std::size_t seed = 0; seed < 8; ++seed) {
        Size const size{35 + seed % 2, 70 + seed / 2 % 2};
        Case const one = make_case(seed, support::Sample_kind::random_12_bit, size);
        Plane_making making(one.settings, one.mode);
        compare(one, making, region_of(size), 1);
        for (std::size_t const row : {0U, 1U, 33U, 67U, 68U, 69U}) {
            compare(one, making, {5, row, 20, 1}, 1);
            compare(one, making, {0, row, size.width, size.height - row}, 1);
        }
        compare(one, making, {size.width - 1, 30, 1, 8}, 1);
    }
    std::cout << compared_ << " elements compared\n";
}

TEST_F(Parts_of_frames, are_means_of_squares_of_any_size) {
    std::size_t seed = 0;
    for (support::Sample_kind const kind :
         {support::Sample_kind::random_12_bit, support::Sample_kind::few_levels,
          support::Sample_kind::all_zero}) {
        for (std::size_t k = 1; k <= 17; ++k) {
            ++seed;
            Size const size{41 + seed % 2, 37 + seed / 2 % 2};
            Case const one = make_case(seed, kind, size);
            Plane_making making(one.settings, one.mode);
            compare(one, making, region_of(size), k);
            compare(one, making, {3, 5, 37, 32}, k);
        }
    }
    Case const one = make_case(1, support::Sample_kind::extremes, {300, 140});
    Plane_making making(one.settings, one.mode);
    compare(one, making, region_of(one.size), most_reduction);
    std::cout << compared_ << " elements compared\n";
}

} // namespace
