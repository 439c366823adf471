// One frame in bands on several threads, and frames whose rows are made on the way: the bits of all
// planes against one thread that has the whole frame.

#include "guarded_planes.hpp"

#include "sensor_with_maps.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/frame_transform.hpp"
#include "veldrane_mrv/polarization/sensor_tables.hpp"

#include "support/matrices.hpp"
#include "support/samples.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cfenv>
#include <cstring>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

namespace client_test {
namespace {

using namespace polarization;

// Two shares and more in every mode, with 1 to 4 rows behind a multiple of the rows of a band.
constexpr std::size_t most_rows = 805;
constexpr std::size_t most_columns = 344;
constexpr std::array<Size, 5> sizes{
    {{328, 802}, {329, 801}, {343, 804}, {most_columns, 803}, {328, most_rows}}};

constexpr Plane_set every_plane_at_once{Plane::s0,       Plane::s1,
                                        Plane::s2,       Plane::azimuth,
                                        Plane::dolp,     Plane::normalized_stokes,
                                        Plane::validity, Plane::uncertainty};

support::Samples samples_of(Size const& size) {
    return support::make_samples(
        support::Sample_kind::random_12_bit, size.height, size.width, size.width);
}

Settings settings_of(std::size_t seed) {
    int const phase = static_cast<int>(seed % 4);
    return {
        Mosaic::from_phase(phase),
        seed % 3 == 0 ? Scale{12, 4095} : Scale{12},
        {support::make_matrices(support::Matrix_kind::random, phase, seed)}};
}

Settings settings_with_maps(Calibration_model model, Size const& size) {
    Calibration const calibration = sensor_with_maps(model, size, 5);
    auto tables = std::make_shared<Sensor_tables const>(calibration, region_of(size));
    return {calibration.mosaic, Scale{12}, tables->position_matrices(), tables};
}

Frame_rows rows_of(Frame_view const& frame) {
    return {frame.height(), frame.width(), [frame](auto begin, auto end, std::uint16_t* target) {
                std::copy(
                    frame.row(begin).data(),
                    frame.row(begin).data() + (end - begin) * frame.width(), target);
            }};
}

/// One thread with the whole frame, against two of the other ways in turn: several threads with the
/// frame, any number with its rows.
class Ways {
public:
    std::size_t compared() const { return compared_; }

    void compare(
        Settings const& settings, Transform_options options, Size const& size,
        Plane_set const& wanted, Plane_set const& with_signs) {
        support::Samples const samples = samples_of(size);
        Frame_view const frame{samples, size.height, size.width};
        Planes expected{size.height, size.width, wanted};
        Signed_planes signed_expected{size.height, size.width, with_signs};
        options.threads = 1;
        Frame_transform{settings, options}(frame, expected.views(), signed_expected.views());
        for (unsigned way = 0; way < 2; ++way) {
            auto const [threads, by_rows] = ways[next_way_++ % ways.size()];
            options.threads = threads;
            Frame_transform transform{settings, options};
            Plane_views const views = memory_.lay(frame.pixels(), wanted, support::Edge::end);
            Signed_planes signed_planes{size.height, size.width, with_signs};
            if (by_rows) {
                transform(rows_of(frame), views, signed_planes.views());
            } else {
                transform(frame, views, signed_planes.views());
            }
            ASSERT_EQ(first_difference(views, expected).value_or("equal"), "equal")
                << threads << " threads, by rows " << by_rows << ", " << to_string(size);
            ASSERT_EQ(signed_planes.s1, signed_expected.s1) << threads << by_rows;
            ASSERT_EQ(signed_planes.s2, signed_expected.s2) << threads << by_rows;
            ++compared_;
        }
    }

private:
    struct Way {
        unsigned threads;
        bool by_rows;
    };
    static constexpr std::array<Way, 5> ways{
        {{2, false}, {1, true}, {3, false}, {2, true}, {3, true}}};

    std::size_t next_way_ = 0;
    Guarded_planes memory_{most_rows * most_columns};
    std::size_t compared_ = 0;
};

TEST(Bands, are_the_frame_for_every_set_of_the_processors_planes) {
    Ways ways;
    for (unsigned set = 1; set < 64; ++set) {
        Plane_set wanted;
        for (Plane const plane : Plane_set::all().list()) {
            if ((set >> static_cast<unsigned>(plane) & 1U) != 0) {
                wanted.insert(plane);
            }
        }
        for (Mode const mode : {Mode::fast, Mode::calibrated}) {
            ways.compare(settings_of(set), {.mode = mode}, sizes[set % sizes.size()], wanted, {});
        }
    }
    std::cout << ways.compared() << " frames compared with those of one thread\n";
}

TEST(Bands, are_the_frame_for_every_phase_size_and_kind_of_plane) {
    Ways ways;
    for (std::size_t seed = 0; seed < 12; ++seed) {
        Settings settings = settings_of(seed);
        settings.noise = Noise_model{2.5, 4};
        for (Transform_options const& options :
             {Transform_options{}, Transform_options{Mode::calibrated},
              Transform_options{Mode::calibrated, Final_pixel::as_processed}}) {
            ways.compare(
                settings, options, sizes[seed % sizes.size()],
                seed % 4 == 0 ? every_plane_at_once : Plane_set::all(),
                seed % 2 == 0 ? Plane_set{Plane::s1, Plane::s2} : Plane_set{Plane::s2});
        }
    }
    std::cout << ways.compared() << " frames compared with those of one thread\n";
}

TEST(Bands, have_the_tables_of_their_own_rows) {
    Ways ways;
    for (Calibration_model const model : {Calibration_model::gain, Calibration_model::pixel}) {
        Size const size = sizes[2];
        Settings settings = settings_with_maps(model, size);
        settings.noise = Noise_model{2.5, 4};
        ways.compare(
            settings, {.mode = Mode::calibrated}, size, every_plane_at_once,
            {Plane::s1, Plane::s2});
    }
    std::cout << ways.compared() << " frames compared with those of one thread\n";
}

// Planes of 2^20 pixels and more are stored past the caches.
TEST(Bands, are_the_frame_for_large_signed_planes) {
    Size const size{.width = 1312, .height = 802};
    Settings const settings = settings_of(2);
    support::Samples const samples = samples_of(size);
    Frame_view const frame{samples, size.height, size.width};
    Signed_planes expected{size.height, size.width, {Plane::s1, Plane::s2}};
    Frame_transform{settings}(frame, {}, expected.views());
    Signed_planes planes{size.height, size.width, {Plane::s1, Plane::s2}};
    Frame_transform transform{settings, {.threads = 2}};
    transform(frame, {}, planes.views());
    EXPECT_TRUE(planes.s1 == expected.s1 && planes.s2 == expected.s2);
    planes = Signed_planes{size.height, size.width, {Plane::s1, Plane::s2}};
    transform(rows_of(frame), {}, planes.views());
    EXPECT_TRUE(planes.s1 == expected.s1 && planes.s2 == expected.s2);
}

TEST(Bands, follow_the_rounding_mode_of_the_caller) {
    Ways ways;
    for (int const rounding : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
        std::fesetround(rounding);
        ways.compare(settings_of(1), {}, sizes[0], {Plane::azimuth, Plane::dolp}, {});
        std::fesetround(FE_TONEAREST);
    }
    EXPECT_EQ(ways.compared(), 6U);
}

TEST(Bands, of_small_frames_take_one_thread) {
    Size const size{.width = 64, .height = 41};
    support::Samples const samples = samples_of(size);
    Frame_view const frame{samples, size.height, size.width};
    Planes planes{size.height, size.width, {Plane::dolp}};
    Frame_rows rows = rows_of(frame);
    std::size_t calls = 0;
    rows.fill = [&, fill = rows.fill](auto begin, auto end, auto* target) {
        ++calls;
        fill(begin, end, target);
    };
    Frame_transform{settings_of(1), {.threads = 8}}(rows, planes.views());
    EXPECT_EQ(calls, 1U);
}

TEST(Bands, pass_on_what_making_a_row_throws) {
    Size const size = sizes[0];
    support::Samples const samples = samples_of(size);
    Frame_view const frame{samples, size.height, size.width};
    for (unsigned const threads : {1U, 2U}) {
        for (Plane_set const& wanted : {Plane_set{Plane::dolp}, Plane_set::all()}) {
            Frame_transform transform{settings_of(1), {.threads = threads}};
            Planes planes{size.height, size.width, wanted};
            Frame_rows rows = rows_of(frame);
            rows.fill = [](std::size_t, std::size_t end, std::uint16_t*) {
                if (end > 500) {
                    throw std::runtime_error("ends within the frame");
                }
            };
            EXPECT_THROW(transform(rows, planes.views()), std::runtime_error);
            Planes expected{size.height, size.width, wanted};
            Frame_transform{settings_of(1)}(frame, expected.views());
            transform(frame, planes.views());
            EXPECT_EQ(first_difference(planes.views(), expected).value_or("equal"), "equal");
        }
    }
}

Band band_of(Frame_view const& frame, std::size_t first, std::size_t end) {
    std::size_t const rows = end - first;
    std::size_t const below = end < frame.height() ? 1 : 0;
    return {{frame.row(first).data(), rows + below, frame.width()}, first, rows, frame.height()};
}

/// Bands by themselves against the frame that they are of.
class Single_bands {
public:
    Single_bands(Settings const& settings, Mode mode, Frame_view const& frame)
        : frame_{frame}, transform_{settings, {.mode = mode}}, wanted_{every_plane_at_once},
          expected_{frame.height(), frame.width(), wanted_}, signed_expected_{
                                                                 frame.height(), frame.width(),
                                                                 wanted_} {
        transform_(frame, expected_.views(), signed_expected_.views());
        if (mode == Mode::fast) {
            wanted_.erase(Plane::normalized_stokes);
        }
    }

    void compare(std::size_t first, std::size_t end) {
        std::size_t const width = frame_.width();
        Planes planes{end - first, width, wanted_};
        Signed_planes signed_planes{end - first, width, wanted_};
        transform_(band_of(frame_, first, end), planes.views(), signed_planes.views());
        auto const expect_equal = [&](auto part, auto whole, std::size_t step) {
            if (part.empty()) {
                return;
            }
            EXPECT_EQ(std::memcmp(part.data(), whole.data() + first * step, part.size_bytes()), 0)
                << "rows " << first << " to " << end << " of " << to_string(frame_.size());
        };
        for_each_plane(
            [&](Plane plane, auto part, auto whole) {
                expect_equal(part, whole, elements_per_pixel(plane) * width);
            },
            planes.views(), expected_.views());
        expect_equal(std::span(signed_planes.s1), std::span(signed_expected_.s1), width);
        expect_equal(std::span(signed_planes.s2), std::span(signed_expected_.s2), width);
    }

private:
    Frame_view frame_;
    Frame_transform transform_;
    Plane_set wanted_;
    Planes expected_;
    Signed_planes signed_expected_;
};

TEST(Bands, alone_have_the_bits_of_their_frame) {
    std::size_t compared = 0;
    for (std::size_t seed = 0; seed < 8; ++seed) {
        Size const size{40 + 7 * seed, 20 + seed};
        Settings settings =
            seed < 4 ? settings_of(seed) : settings_with_maps(Calibration_model::pixel, size);
        settings.noise = Noise_model{2.5, 4};
        support::Samples const samples = samples_of(size);
        for (Mode const mode : {Mode::fast, Mode::calibrated}) {
            if (mode == Mode::fast && settings.tables) {
                continue;
            }
            Single_bands bands{settings, mode, {samples, size.height, size.width}};
            for (std::size_t first = 0; first + 6 <= size.height; first += 2) {
                bands.compare(first, first + 2);
                bands.compare(first, first + 6);
                bands.compare(first, size.height);
                compared += 3;
            }
        }
    }
    std::cout << compared << " bands compared with their frames\n";
}

TEST(Bands, that_are_none_are_refused) {
    support::Samples const samples = samples_of({64, 41});
    Frame_transform transform{settings_of(1)};
    auto const compute = [&](std::size_t first, std::size_t rows, std::size_t samples_rows) {
        Planes planes{rows, 64, {Plane::dolp}};
        transform(Band{{samples.data(), samples_rows, 64}, first, rows, 41}, planes.views());
    };
    EXPECT_NO_THROW(compute(4, 6, 7));
    EXPECT_NO_THROW(compute(38, 3, 3));
    EXPECT_THROW(compute(4, 6, 6), Argument_error);  // without the row below
    EXPECT_THROW(compute(5, 6, 7), Argument_error);  // from an odd row on
    EXPECT_THROW(compute(4, 5, 6), Argument_error);  // an odd number
    EXPECT_THROW(compute(40, 1, 1), Argument_error); // a single row
    EXPECT_THROW(compute(40, 4, 5), Argument_error); // beyond the frame
    Planes planes{6, 64, {Plane::normalized_stokes}};
    EXPECT_THROW(
        transform(Band{{samples.data(), 7, 64}, 4, 6, 41}, planes.views()), Argument_error);
}

TEST(Bands, are_checked_before_a_row_is_made) {
    Frame_transform transform{settings_of(1)};
    Planes planes{40, 64, {Plane::dolp}};
    Frame_rows const rows{40, 65, [](auto, auto, auto*) { FAIL() << "a row was made"; }};
    EXPECT_THROW(transform(rows, planes.views()), Argument_error);
    EXPECT_THROW((Frame_transform{settings_of(1), {.threads = 1025}}), Argument_error);
}

} // namespace
} // namespace client_test
