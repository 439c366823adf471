// Calibrations with maps as pairs of files: every number comes back bit for bit, a pair appears
// whole or not at all, and whatever does not go together is refused with file, key and remedy.

#include "simulated_sensor.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/calibration_file.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <vector>

namespace client_test {
namespace {

using namespace veldrane_mrv::polarization;
namespace fs = std::filesystem;

constexpr Size some_size{18, 6};
constexpr std::size_t header_bytes = 128;

Calibration_maps some_maps(Calibration_model model, unsigned seed) {
    Calibration_maps maps{{40, 30}, {3, 4, some_size.width, some_size.height}, 12};
    std::mt19937 random{seed};
    for (Map_description const& map : maps_of(model)) {
        std::uniform_real_distribution<float> number{0.5F, map.name == "orientation" ? 179.0F : 1};
        std::generate_n(
            std::back_inserter(maps.*map.numbers), some_size.width * some_size.height,
            [&] { return number(random); });
    }
    maps.bad_pixels = {0, 7, 50, 107};
    return maps;
}

Calibration some_calibration(Calibration_model model, unsigned seed = 1) {
    auto const sensor = Simulated_sensor::imperfect(Mosaic::from_phase(2), seed);
    Calibration calibration = ideal_calibration(sensor.mosaic);
    calibration.analysers = sensor.analysers;
    calibration.matrices = matrices_of(sensor.analysers);
    calibration.provenance.time = "2026-01-31T12:00:00Z";
    calibration.model = model;
    if (model != Calibration_model::position) {
        calibration.maps = std::make_shared<Calibration_maps>(some_maps(model, seed));
    }
    return calibration;
}

// With the maps changed.
Calibration changed(Calibration calibration, std::function<void(Calibration_maps&)> const& change) {
    auto const maps = std::make_shared<Calibration_maps>(*calibration.maps);
    change(*maps);
    calibration.maps = maps;
    return calibration;
}

std::string bytes_of(fs::path const& file) {
    std::ifstream stream{file, std::ios::binary};
    return {std::istreambuf_iterator<char>{stream}, {}};
}

void write(fs::path const& file, std::string const& bytes) {
    std::ofstream{file, std::ios::binary} << bytes;
}

class Calibration_maps_file : public testing::Test {
protected:
    void SetUp() override {
        std::string name = (fs::temp_directory_path() / "calibration-maps-test-XXXXXX").string();
        ASSERT_NE(::mkdtemp(name.data()), nullptr);
        folder_ = name;
        file_ = folder_ / "sensor.json";
    }
    ~Calibration_maps_file() override {
        std::error_code ignored;
        fs::remove_all(folder_, ignored);
    }

    std::size_t files() const {
        return static_cast<std::size_t>(
            std::distance(fs::directory_iterator{folder_}, fs::directory_iterator{}));
    }

    // The name that the text gives.
    fs::path array() const { return array_file_of(file_).value_or("none"); }

    // What loading says, without the folder.
    std::string refusal() const {
        try {
            load_calibration(file_);
        } catch (File_error const& error) {
            std::string what = error.what();
            EXPECT_FALSE(error.remedy().empty());
            EXPECT_EQ(what.find('\n'), std::string::npos);
            EXPECT_TRUE(what.starts_with(folder_.string() + "/")) << what;
            return what.substr(folder_.string().size() + 1);
        }
        return "nothing";
    }

    // With the first `from` in the text replaced.
    std::string refusal_with(std::string const& from, std::string const& to) const {
        std::string const text = bytes_of(file_);
        std::size_t const place = text.find(from);
        EXPECT_NE(place, std::string::npos) << from;
        write(file_, std::string{text}.replace(place, from.size(), to));
        std::string const what = refusal();
        write(file_, text);
        return what;
    }

    fs::path folder_;
    fs::path file_;
};

TEST_F(Calibration_maps_file, every_model_comes_back_as_it_was) {
    for (Calibration_model const model : all_calibration_models) {
        for (bool const has_noise : {false, true}) {
            Calibration calibration = some_calibration(model);
            if (has_noise) {
                calibration.noise = Noise_model{2.7, 0.1 / 3};
                calibration.quality.models = {
                    {Calibration_model::position, 0.1 / 3, 1.0 / 7, 0.01},
                    {Calibration_model::pixel, 0, 0, 0}};
                calibration.quality.held_out_frame = "cal_angle_045.0.png";
            }
            save(calibration, file_, Existing_files::replace);
            EXPECT_EQ(load_calibration(file_), calibration);
            EXPECT_EQ(files(), model == Calibration_model::position ? 1U : 2U);
        }
    }
}

TEST_F(Calibration_maps_file, what_older_programs_know_is_written_for_them) {
    Calibration calibration = some_calibration(Calibration_model::position);
    std::string const text = calibration_to_json(calibration);
    EXPECT_NE(text.find("\"version\": 2"), std::string::npos);
    EXPECT_EQ(text.find("\"model\""), std::string::npos);
    Calibration newer = calibration;
    newer.noise = Noise_model{2, 3};
    EXPECT_NE(calibration_to_json(newer).find("\"version\": 3"), std::string::npos);
    newer = calibration;
    newer.quality.models = {{}};
    EXPECT_NE(calibration_to_json(newer).find("\"version\": 3"), std::string::npos);
}

// The format is public: 128 bytes of header, then the numbers as they are.
TEST_F(Calibration_maps_file, the_array_file_is_what_numpy_reads) {
    Calibration const calibration = some_calibration(Calibration_model::gain);
    save(calibration, file_);
    std::string const bytes = bytes_of(array());
    std::size_t const map_bytes = some_size.width * some_size.height * sizeof(float);
    ASSERT_EQ(bytes.size(), header_bytes + 2 * map_bytes);
    EXPECT_EQ(bytes.substr(0, 10), std::string("\x93NUMPY\1\0\x76\0", 10));
    EXPECT_TRUE(
        bytes.substr(10, header_bytes - 10)
            .starts_with("{'descr': '<f4', 'fortran_order': False, 'shape': (2, 6, 18), }"));
    EXPECT_EQ(bytes[header_bytes - 1], '\n');
    EXPECT_EQ(std::memcmp(&bytes[header_bytes], calibration.maps->dark_level.data(), map_bytes), 0);
    EXPECT_EQ(
        std::memcmp(&bytes[header_bytes + map_bytes], calibration.maps->gain.data(), map_bytes), 0);
}

TEST_F(Calibration_maps_file, a_new_pair_takes_the_place_of_the_old_one) {
    save(some_calibration(Calibration_model::gain, 1), file_);
    fs::path const old = array();
    EXPECT_THROW(save(some_calibration(Calibration_model::gain, 2), file_), File_error);
    EXPECT_EQ(load_calibration(file_), some_calibration(Calibration_model::gain, 1));
    save(some_calibration(Calibration_model::gain, 2), file_, Existing_files::replace);
    EXPECT_EQ(load_calibration(file_), some_calibration(Calibration_model::gain, 2));
    EXPECT_NE(array(), old);
    EXPECT_EQ(files(), 2U);
    save(some_calibration(Calibration_model::gain, 2), file_, Existing_files::replace);
    EXPECT_EQ(files(), 2U);
    save(some_calibration(Calibration_model::position), file_, Existing_files::replace);
    EXPECT_EQ(files(), 1U);
}

// As after a kill between the two renames: the new array file is there, the text is the old one.
TEST_F(Calibration_maps_file, the_old_pair_can_be_read_until_the_new_one_is_whole) {
    Calibration const first = some_calibration(Calibration_model::pixel, 1);
    Calibration const second = some_calibration(Calibration_model::pixel, 2);
    save(first, file_);
    Calibration_files const files_of_second = files_of(second, file_);
    std::string bytes;
    for (auto const part : files_of_second.array_parts()) {
        bytes.append(reinterpret_cast<char const*>(part.data()), part.size());
    }
    write(files_of_second.array_file, bytes);
    EXPECT_EQ(load_calibration(file_), first);
    write(file_, files_of_second.json);
    EXPECT_EQ(load_calibration(file_), second);
}

TEST_F(Calibration_maps_file, a_pair_that_cannot_be_written_leaves_nothing) {
    Calibration const calibration = some_calibration(Calibration_model::gain);
    fs::create_directory(file_);
    EXPECT_THROW(save(calibration, file_, Existing_files::replace), File_error);
    EXPECT_EQ(files(), 1U);
    fs::remove(file_);
    fs::path const place = files_of(calibration, file_).array_file;
    fs::create_symlink("elsewhere", place);
    try {
        save(calibration, file_);
        ADD_FAILURE() << "a link was written";
    } catch (File_error const& error) {
        EXPECT_EQ(error.file(), place);
    }
    EXPECT_EQ(files(), 1U);
}

TEST_F(Calibration_maps_file, damage_in_the_array_file_is_refused) {
    for (Calibration_model const model : {Calibration_model::gain, Calibration_model::pixel}) {
        save(some_calibration(model), file_, Existing_files::replace);
        fs::path const file = array();
        std::string const name = file.filename().string();
        std::string const good = bytes_of(file);
        for (std::size_t byte = header_bytes; byte < good.size(); byte += 97) {
            std::string bad = good;
            bad[byte] = static_cast<char>(bad[byte] ^ 1);
            write(file, bad);
            ASSERT_EQ(refusal().find(name + ": the hash of its bytes is "), 0U) << byte;
        }
        for (std::size_t byte = 0; byte < header_bytes; ++byte) {
            std::string bad = good;
            bad[byte] = static_cast<char>(bad[byte] ^ 1);
            write(file, bad);
            ASSERT_EQ(refusal().find(name + ": its header is not that of "), 0U) << byte;
        }
        for (std::size_t const size : {std::size_t{0}, header_bytes, good.size() - 1}) {
            write(file, good.substr(0, size));
            ASSERT_EQ(
                refusal().find(
                    name + ": the file has " + std::to_string(size) + " bytes, not the " +
                    std::to_string(good.size()) + " of "),
                0U);
        }
        write(file, good + "x");
        EXPECT_NE(refusal(), "nothing");
        write(file, good);
        EXPECT_EQ(refusal(), "nothing");
    }
}

TEST_F(Calibration_maps_file, a_missing_renamed_or_irregular_array_file_is_refused) {
    save(some_calibration(Calibration_model::gain), file_);
    fs::path const file = array();
    std::string const start = file.filename().string() + ": cannot be read: ";
    fs::rename(file, folder_ / "other.npy");
    EXPECT_EQ(
        refusal(),
        start + "No such file or directory; put the array file of sensor.json beside it");
    ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
    EXPECT_EQ(refusal().find(start + "it is no regular file but a pipe; "), 0U);
    for (std::string const name : {"", ".", "..", "../sensor", "/etc/passwd", "a/b"}) {
        EXPECT_EQ(
            refusal_with(
                "\"file\": \"" + file.filename().string() + "\"", "\"file\": \"" + name + "\"")
                .find("sensor.json, maps/file: this is \"" + name + "\", no name of a file"),
            0U);
    }
}

TEST_F(Calibration_maps_file, what_the_text_says_of_the_maps_is_checked) {
    save(some_calibration(Calibration_model::gain), file_);
    struct Damage {
        std::string from;
        std::string to;
        std::string what;
    };
    std::vector<Damage> const damages{
        {"\"version\": 1", "\"version\": 2", "maps/version: version 2 of the array file"},
        {"\"version\": 3", "\"version\": 4", "schema/version: version 4 is newer than 3"},
        {"\"version\": 3", "\"version\": 2", "model: this key is not known"},
        {"\"model\": \"gain\"", "\"model\": \"pixel\"", "maps/planes: 4 elements are expected"},
        {"\"model\": \"gain\"", "\"model\": \"position\"", "maps: the model position has none"},
        {"\"model\": \"gain\"", "\"model\": \"all\"", "model: there is no model \"all\""},
        {"\"maps\": {", "\"map\": {", "map: this key is not known"},
        {"xxh3-64:", "md5:", "maps/hash: this is \"md5:"},
        {"\"width\": 40", "\"width\": 20", "maps/region: this is 18 x 6 at column 3, row 4, which"},
        {"\"width\": 40", "\"width\": 65537", "maps/sensor/width: the number is 65537, more"},
        {"\"bit_depth\": 12", "\"bit_depth\": 0", "maps/bit_depth: this is 0, not 1 to 16"},
        {"\"bit_depth\": 12", "\"bit_depth\": 17", "maps/bit_depth: this is 17, not 1 to 16"},
        {"\"gain\"\n", "\"gains\"\n", "maps/planes/1: this is \"gains\", not \"gain\""},
        {"[0,7,50,107]", "[0,7,7,107]", "maps/bad_pixels/2: this is 7 behind 7, not ascending"},
        {"[0,7,50,107]", "[0,7,50,108]", "maps/bad_pixels/3: this is 108, but the region has 108"},
        {"[0,7,50,107]", "[4294967296]", "maps/bad_pixels/0: no sensor has so many pixels"},
        {"[0,7,50,107]", "[-1]", "maps/bad_pixels/0: a whole number"},
    };
    for (Damage const& damage : damages) {
        std::string const what = refusal_with(damage.from, damage.to);
        EXPECT_EQ(what.find("sensor.json, " + damage.what), 0U) << what;
    }
    EXPECT_NE(
        refusal_with("\"height\": 6", "\"height\": 7").find("992 bytes, not the 1136 of 2 maps"),
        std::string::npos);
}

// Maps that another program made, with the hash that they have.
TEST_F(Calibration_maps_file, a_nan_with_the_right_hash_is_refused) {
    save(some_calibration(Calibration_model::gain), file_);
    fs::path const file = array();
    std::string bytes = bytes_of(file);
    bytes.replace(header_bytes + 4 * (some_size.width + 2), 4, "\xFF\xFF\xFF\xFF");
    write(file, bytes);
    std::string const start = "the hash of its bytes is ";
    std::string const what = refusal();
    std::string const hash = what.substr(what.find(start) + start.size(), 16);
    std::string const old = file.filename().string().substr(std::string{"sensor.maps-"}.size(), 16);
    EXPECT_EQ(
        refusal_with("xxh3-64:" + old, "xxh3-64:" + hash),
        file.filename().string() + ", dark_level: this is NaN at row 1, column 2, not 0 to 4095; "
                                   "restore the file, or calibrate again");
}

TEST_F(Calibration_maps_file, numbers_that_no_sensor_has_are_refused_with_row_and_column) {
    struct Fault {
        Calibration_model model;
        std::vector<float> Calibration_maps::*map;
        float number;
        std::string what;
    };
    float const infinity = std::numeric_limits<float>::infinity();
    float const nan = std::numeric_limits<float>::quiet_NaN();
    using Maps = Calibration_maps;
    auto const gain = Calibration_model::gain;
    auto const pixel = Calibration_model::pixel;
    std::vector<Fault> const faults{
        {gain, &Maps::dark_level, nan, "dark_level is NaN at row 2, column 5, not 0 to 4095"},
        {gain, &Maps::dark_level, -1, "dark_level is -1 at row 2, column 5, not 0 to 4095"},
        {gain, &Maps::dark_level, 4096, "dark_level is 4096 at row 2, column 5, not 0 to 4095"},
        {gain, &Maps::gain, infinity, "gain is infinite at row 2, column 5, not above 0"},
        {gain, &Maps::gain, 0, "gain is 0 at row 2, column 5, not above 0"},
        {pixel, &Maps::throughput, 0, "throughput is 0 at row 2, column 5, not above 0"},
        {pixel, &Maps::diattenuation, -0.1F, "diattenuation is -0.1"},
        {pixel, &Maps::orientation, 180, "orientation is 180 at row 2, column 5, not from 0 to"},
        {pixel, &Maps::orientation, nan, "orientation is NaN at row 2, column 5, not from 0 to"},
    };
    for (Fault const& fault : faults) {
        Calibration const bad = changed(some_calibration(fault.model), [&](Maps& maps) {
            (maps.*fault.map)[2 * some_size.width + 5] = fault.number;
        });
        try {
            save(bad, file_);
            ADD_FAILURE() << fault.what;
        } catch (Argument_error const& error) {
            EXPECT_EQ(std::string{error.what()}.find("calibration's maps/" + fault.what), 0U)
                << error.what();
        }
    }
    EXPECT_EQ(files(), 0U);
}

TEST_F(Calibration_maps_file, maps_that_do_not_go_with_the_model_are_not_written) {
    Calibration calibration = some_calibration(Calibration_model::gain);
    calibration.maps = nullptr;
    EXPECT_THROW(save(calibration, file_), Argument_error);
    calibration = some_calibration(Calibration_model::gain);
    calibration.model = Calibration_model::position;
    EXPECT_THROW(save(calibration, file_), Argument_error);
    calibration.model = Calibration_model::pixel;
    EXPECT_THROW(save(calibration, file_), Argument_error);
    calibration = changed(some_calibration(Calibration_model::gain), [](Calibration_maps& maps) {
        maps.throughput = maps.gain;
    });
    EXPECT_THROW(save(calibration, file_), Argument_error);
    calibration = some_calibration(Calibration_model::gain);
    calibration.noise = Noise_model{0, 1};
    EXPECT_THROW(save(calibration, file_), Argument_error);
    EXPECT_EQ(files(), 0U);
}

TEST_F(Calibration_maps_file, a_text_with_maps_needs_their_numbers) {
    for (Calibration_model const model : all_calibration_models) {
        Calibration const calibration = some_calibration(model);
        std::string const text = calibration_to_json(calibration);
        std::vector<std::span<float const>> maps;
        for (Map_description const& map : maps_of(model)) {
            maps.emplace_back((*calibration.maps).*map.numbers);
        }
        EXPECT_EQ(calibration_from_json(text, "text", maps), calibration);
        if (!maps.empty()) {
            EXPECT_THROW(calibration_from_json(text, "text"), File_error);
            std::swap(maps[0], maps[1]);
            EXPECT_THROW(calibration_from_json(text, "text", maps), File_error);
            maps[0] = maps[0].first(5);
            EXPECT_THROW(calibration_from_json(text, "text", maps), File_error);
            maps.pop_back();
            EXPECT_THROW(calibration_from_json(text, "text", maps), File_error);
        }
    }
}

TEST_F(Calibration_maps_file, thousands_of_bad_pixels_take_one_line) {
    Calibration const calibration =
        changed(some_calibration(Calibration_model::gain), [](Calibration_maps& maps) {
            maps = {{400, 200}, {0, 0, 400, 200}, 10};
            maps.dark_level.assign(80000, 3);
            maps.gain.assign(80000, 1);
            for (std::uint32_t pixel = 0; pixel < 80000; pixel += 8) {
                maps.bad_pixels.push_back(pixel);
            }
        });
    save(calibration, file_);
    EXPECT_EQ(load_calibration(file_), calibration);
    std::string const text = bytes_of(file_);
    EXPECT_LT(std::count(text.begin(), text.end(), '\n'), 300);
}

} // namespace
} // namespace client_test
