// The form of what a browser gets, and its planes with a calibration from a file.
#include "view/frame_answers.hpp"

#include "shown_frames.hpp"
#include "veldrane_mrv/polarization/calibration_file.hpp"
#include "veldrane_mrv/polarization/frame_transform.hpp"
#include "veldrane_mrv/polarization/sensor_tables.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <unistd.h>

namespace {

using namespace polarize_tool;
using polarization::Calibration;
using polarization::Calibration_model;
using polarization::Mode;
using polarization::Plane;
using polarization::Region;

TEST_F(Frames_of_a_list, tell_what_they_are) {
    auto const json = nlohmann::json::parse(ask("/source", {}).body);
    EXPECT_EQ(json["kind"], "recording");
    EXPECT_EQ(json["frames"], 20);
    EXPECT_EQ(json["width"], size.width);
    EXPECT_EQ(json["height"], size.height);
    EXPECT_EQ(json["bit_depth"], 12);
    EXPECT_EQ(json["full_scale"], 65535);
    EXPECT_DOUBLE_EQ(json["s0_unit"], 8190.0 / 65535.0);
    EXPECT_EQ(json["mosaic"], nlohmann::json::parse("[[90,45],[135,0]]"));
    EXPECT_EQ(
        json["settings"][0],
        nlohmann::json::parse(R"json(["Mosaic","phase 2 (90,45,135,0)"])json"));
    EXPECT_TRUE(json["camera"].is_null());
    EXPECT_TRUE(json["rate"].is_null());
}

TEST_F(Frames_of_a_list, come_with_what_was_asked_for) {
    Got const got = parsed(ask(
        "/frame", {{"number", "7"}, {"region", "40,2,100,3"}, {"planes", "validity,raw,s1_s0"}}));
    EXPECT_EQ(got.header["number"], 7);
    EXPECT_EQ(got.header["name"], "made, frame 7");
    EXPECT_EQ(got.header["region"], nlohmann::json::parse("[40,2,8,3]"));
    EXPECT_EQ(got.header["width"], 8);
    EXPECT_EQ(got.header["height"], 3);
    EXPECT_EQ(got.header["planes"][0], nlohmann::json::parse(R"({"name":"validity","type":"u8"})"));
    EXPECT_EQ(got.header["planes"][2]["type"], "i16");
    EXPECT_TRUE(got.header["camera"].is_null());
    ASSERT_EQ(got.planes.size(), 24U + 48U + 48U);
    auto const samples = samples_of(7);
    EXPECT_EQ(got.planes.substr(24, 16), bytes_of(samples).substr(2 * (2 * size.width + 40), 16));
}

/// Every pixel with a dark level and weights of its own, and with the noise of its samples.
Calibration some_calibration(Calibration_model model) {
    Calibration calibration = polarization::ideal_calibration(polarization::Mosaic::from_phase(2));
    polarization::Calibration_maps maps{size, region_of(size), 12};
    std::mt19937 random{3};
    std::uniform_real_distribution<float> near_one{0.9F, 1.1F};
    for (std::size_t pixel = 0; pixel < size.width * size.height; ++pixel) {
        maps.dark_level.push_back(80 * near_one(random));
        if (model == Calibration_model::gain) {
            maps.gain.push_back(near_one(random));
            continue;
        }
        int const angle = calibration.mosaic.angle(pixel / size.width, pixel % size.width);
        maps.throughput.push_back(near_one(random));
        maps.diattenuation.push_back(near_one(random) - 0.15F);
        maps.orientation.push_back(static_cast<float>(angle) + near_one(random));
    }
    maps.bad_pixels = {7};
    calibration.model = model;
    calibration.maps = std::make_shared<polarization::Calibration_maps const>(maps);
    calibration.noise = {2.5, 4.0};
    return calibration;
}

/// A part of a plane, row by row.
support::Samples part_of(std::span<std::uint16_t const> plane, Region const& region) {
    support::Samples part;
    for (std::size_t row = region.row; row < region.row + region.height; ++row) {
        auto const found = plane.subspan(row * size.width + region.column, region.width);
        part.insert(part.end(), found.begin(), found.end());
    }
    return part;
}

TEST(Frames_with_a_calibration, have_the_planes_that_the_client_computes) {
    std::filesystem::path const file = std::filesystem::path(testing::TempDir()) /
                                       ("frame_answers_test_" + std::to_string(getpid()) + ".json");
    Frame_preparation const preparation(twelve_bits(), std::nullopt);
    for (Calibration_model const model : {Calibration_model::gain, Calibration_model::pixel}) {
        Calibration const calibration = some_calibration(model);
        save(calibration, file, polarization::Existing_files::replace);
        View_setup shown = setup();
        shown.transform = transform_settings({}, file, std::nullopt, preparation);
        shown.calibration_file = file;
        shown.mode = Mode::calibrated;
        Made_frames source;
        View_frames frames(shown, preparation, source);
        Handlers const handlers = frames.handlers();

        auto const tables =
            std::make_shared<polarization::Sensor_tables const>(calibration, region_of(size));
        polarization::Settings const settings{
            calibration.mosaic, polarization::Scale(12), tables->position_matrices(), tables,
            calibration.noise};
        auto const samples = samples_of(7);
        polarization::Planes expected(
            size.height, size.width, {Plane::s0, Plane::azimuth, Plane::dolp});
        polarization::Frame_transform{settings, {.mode = Mode::calibrated}}(
            {samples, size.height, size.width}, expected.views());

        for (Region const& region : {region_of(size), Region{5, 3, 32, 19}, Region{4, 29, 44, 1}}) {
            Got const got = parsed(handlers.at("/frame")(
                {{"number", "7"},
                 {"region", std::to_string(region.column) + "," + std::to_string(region.row) + "," +
                                std::to_string(region.width) + "," +
                                std::to_string(region.height)}}));
            std::size_t begin = 0;
            for (Plane const plane : {Plane::s0, Plane::azimuth, Plane::dolp}) {
                auto const bytes = bytes_of(part_of(expected.integer_plane(plane), region));
                EXPECT_EQ(got.planes.substr(begin, bytes.size()), bytes);
                begin += (bytes.size() + 7) / 8 * 8;
            }
            EXPECT_EQ(got.planes.size(), begin);
        }
    }
    auto const array_file = polarization::array_file_of(file);
    ASSERT_TRUE(array_file);
    std::filesystem::remove(*array_file);
    std::filesystem::remove(file);
}

} // namespace
