// veldrane-polarize process with calibrations of single pixels, and with angles from another axis.
#include "process_fixture.hpp"
#include "veldrane_mrv/polarization/calibrated_transform.hpp"
#include "veldrane_mrv/polarization/calibration_file.hpp"
#include "veldrane_mrv/polarization/frame_source.hpp"
#include "veldrane_mrv/polarization/sensor_tables.hpp"

#include <cmath>
#include <gtest/gtest.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <random>

namespace {

using namespace veldrane_mrv::polarization;
using process_fixture::Names;
using process_fixture::Process_command;
using program_run::line_count;
using program_run::Outcome;
using test_files::encoded;
using test_files::pattern;
using test_files::read_tiff;

constexpr Size sensor{40, 20};

Calibration some_calibration(
    Calibration_model model, Region const& region = region_of(sensor), int bit_depth = 8) {
    Calibration calibration = ideal_calibration(Mosaic::from_phase(2));
    calibration.model = model;
    Calibration_maps maps{sensor, region, bit_depth};
    std::mt19937 random{3};
    std::uniform_real_distribution<float> near_one{0.9F, 1.1F};
    for (std::size_t pixel = 0; pixel < region.width * region.height; ++pixel) {
        maps.dark_level.push_back(5 * near_one(random));
        std::size_t const position =
            cell_position(region.row + pixel / region.width, region.column + pixel % region.width);
        if (model == Calibration_model::gain) {
            maps.gain.push_back(near_one(random));
        } else {
            maps.throughput.push_back(near_one(random));
            maps.diattenuation.push_back(near_one(random) - 0.15F);
            maps.orientation.push_back(
                static_cast<float>(calibration.mosaic.layout()[position]) + near_one(random));
        }
    }
    maps.bad_pixels = {7};
    calibration.maps = std::make_shared<Calibration_maps const>(maps);
    return calibration;
}

class Process_maps : public Process_command {
protected:
    std::string file() const { return in_folder("sensor.json"); }

    void save_new(Calibration const& calibration) const {
        save(calibration, file(), Existing_files::replace);
    }

    Outcome calibrated(Names const& frames, Names const& more = {}) const {
        Names arguments = {"-o", results(), "--calibration", file(), "--overwrite"};
        bool const has_depth = std::ranges::find(more, "--bit-depth") != more.end();
        if (!has_depth) {
            arguments.insert(arguments.end(), {"--bit-depth", "8"});
        }
        arguments.insert(arguments.end(), more.begin(), more.end());
        return process_with(frames, arguments);
    }

    void expect_refused(Outcome const& outcome, int code, std::string const& words) const {
        EXPECT_EQ(outcome.code, code);
        EXPECT_EQ(outcome.output, "");
        EXPECT_EQ(line_count(outcome.errors), 1U) << outcome.errors;
        EXPECT_NE(outcome.errors.find(words), std::string::npos) << outcome.errors;
        EXPECT_FALSE(std::filesystem::exists(results()));
    }

    std::vector<double> plane(std::string const& name) const {
        return read_tiff(result("good_" + name + ".tif")).samples;
    }

    nlohmann::json sidecar(std::string const& name) const {
        auto const bytes = test_files::read(result(name));
        return nlohmann::json::parse(bytes.begin(), bytes.end());
    }
};

TEST_F(Process_maps, every_pixel_goes_through_its_maps) {
    Frame const frame = read_frame(good());
    for (Calibration_model const model : {Calibration_model::gain, Calibration_model::pixel}) {
        Calibration const calibration = some_calibration(model);
        save_new(calibration);
        for (Region const region : {region_of(sensor), Region{3, 1, 32, 17}}) {
            bool const is_part = region.width < sensor.width;
            Names const more = is_part ? Names{"--region", "3,1,32,17"} : Names{};
            ASSERT_EQ(calibrated({good()}, more).code, 0);
            std::vector<std::uint16_t> samples;
            for (std::size_t row = 0; row < region.height; ++row) {
                auto const first =
                    frame.samples.begin() +
                    static_cast<std::ptrdiff_t>((region.row + row) * sensor.width + region.column);
                samples.insert(
                    samples.end(), first, first + static_cast<std::ptrdiff_t>(region.width));
            }
            auto const tables = std::make_shared<Sensor_tables const>(calibration, region);
            Settings settings{
                calibration.mosaic.of_region(region.row, region.column), Scale(8),
                tables->position_matrices(), tables};
            Planes expected(region.height, region.width, Plane_set::all());
            Calibrated_transform{settings}(
                Frame_view{samples, region.height, region.width}, expected.views());
            for (auto const& [name, one] : {std::pair{"dolp", Plane::dolp}, {"s0", Plane::s0}}) {
                auto const numbers = expected.integer_plane(one);
                EXPECT_EQ(plane(name), std::vector<double>(numbers.begin(), numbers.end()));
            }
        }
        auto const about = sidecar("good_s0.json").at("calibration");
        EXPECT_EQ(about.at("model"), name_of(model));
        EXPECT_EQ(about.at("maps_hash"), hash_of_maps(calibration));
    }
}

TEST_F(Process_maps, frames_of_another_sensor_or_depth_are_refused) {
    save_new(some_calibration(Calibration_model::gain));
    test_files::write(folder_ / "wide.png", encoded(pattern(48, 20, CV_8UC1), ".png"));
    for (Names const& more : {Names{}, Names{"--region", "0,0,32,16"}}) {
        expect_refused(
            calibrated({in_folder("wide.png")}, more), 1,
            "wide.png: has 48 x 20 pixels, but the maps of " + file() +
                " are for frames of 40 x 20; give such frames, or calibrate with frames like this");
    }
    expect_refused(
        calibrated({good()}, {"--bit-depth", "10"}), 2,
        "--bit-depth is 10, but the maps of " + file() + " are for samples of 8 bits; give ");
    expect_refused(
        calibrated({good()}, {"--dark", good()}), 2,
        "--dark would take the dark level off twice, since " + file() +
            " has that of every pixel; leave --dark out");
    expect_refused(
        calibrated({good()}, {"--mode", "fast"}), 2, "leave out --calibration or --mode");
}

TEST_F(Process_maps, maps_of_a_part_are_for_that_part) {
    save_new(some_calibration(Calibration_model::gain, {4, 2, 34, 16}));
    expect_refused(
        calibrated({good()}), 1,
        "good.png: has 40 x 20 pixels, but the maps of " + file() +
            " are for a part of them; give --region 4,2,34,16");
    expect_refused(
        calibrated({good()}, {"--region", "3,2,20,8"}), 2,
        "--region is 20 x 8 at column 3, row 2, but the maps of " + file() +
            " cover 34 x 16 at column 4, row 2; give a part of it, such as --region 4,2,34,16");
    EXPECT_EQ(calibrated({good()}, {"--region", "5,3,32,8"}).code, 0);
}

TEST_F(Process_maps, damaged_maps_are_refused) {
    save_new(some_calibration(Calibration_model::pixel));
    auto const array = array_file_of(file());
    ASSERT_TRUE(array);
    auto bytes = test_files::read(*array);
    bytes[1000] = static_cast<std::uint8_t>(bytes[1000] ^ 8);
    test_files::write(*array, bytes);
    expect_refused(calibrated({good()}), 1, array->string() + ": the hash of its bytes is ");
    std::filesystem::remove(*array);
    expect_refused(
        calibrated({good()}), 1,
        array->string() + ": cannot be read: No such file or directory; put the array file of ");
}

TEST_F(Process_maps, angles_count_from_the_zero_direction) {
    Names const degrees = {"--units", "degrees", "--planes", "azimuth,dolp"};
    auto const with = [&](Names more) {
        more.insert(more.end(), degrees.begin(), degrees.end());
        return more;
    };
    save_new(some_calibration(Calibration_model::pixel));
    std::vector<std::pair<Names, Names>> const runs = {
        {{"--calibration", file()}, {}}, {{"--mode", "calibrated", "--phase", "2"}, {}}};
    std::size_t compared = 0;
    for (auto const& [settings, none] : runs) {
        Names arguments = with(settings);
        arguments.insert(arguments.end(), {"-o", results(), "--bit-depth", "8", "--overwrite"});
        ASSERT_EQ(process_with({good()}, arguments).code, 0);
        auto const before = plane("azimuth");
        auto const degree = plane("dolp");
        EXPECT_EQ(
            sidecar("good_azimuth.json").at("zero_direction"),
            "along the rows, towards growing columns");
        arguments.insert(arguments.end(), {"--zero-direction", "-30.5"});
        ASSERT_EQ(process_with({good()}, arguments).code, 0);
        auto const after = plane("azimuth");
        for (std::size_t pixel = 0; pixel < before.size(); ++pixel) {
            if (degree[pixel] > 0.1) {
                EXPECT_NEAR(std::remainder(after[pixel] - before[pixel] - 30.5, 180), 0, 0.35)
                    << pixel;
                ++compared;
            }
        }
        auto const about = sidecar("good_azimuth.json");
        EXPECT_EQ(about.at("zero_direction"), "-30.5 degrees counter-clockwise from the rows");
        EXPECT_EQ(about.at("zero_direction_degrees"), -30.5);
    }
    EXPECT_GT(compared, 200U);
    std::printf("%zu angles\n", compared);
}

TEST_F(Process_maps, a_zero_direction_without_effect_is_refused) {
    expect_refused(
        process({good()}, {"--zero-direction", "30"}), 2,
        "--zero-direction turns weights, which fast mode applies to few pixels only; add --mode "
        "calibrated or --calibration, or leave it out");
    expect_refused(
        process({good()}, {"--zero-direction", "30", "--mode", "calibrated", "--planes", "s0"}), 2,
        "--zero-direction is about s1, s2, azimuth and normalized_stokes");
    expect_refused(
        process({good()}, {"--zero-direction", "nan", "--mode", "calibrated"}), 2,
        "--zero-direction is no finite number; give a decimal number from -360 to 360");
}

} // namespace
