// Calibrations as files: every figure comes back bit for bit, writing leaves a whole file or the
// old one, and damaged, foreign or newer files are refused with the key, what is no JSON with the
// line.

#include "veldrane_mrv/polarization/calibration_file.hpp"

#include "simulated_sensor.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
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

Calibration some_calibration(std::uint64_t seed) {
    auto const sensor =
        Simulated_sensor::imperfect(Mosaic::from_phase(static_cast<int>(seed % 4)), seed);
    Calibration calibration = ideal_calibration(sensor.mosaic);
    calibration.analysers = sensor.analysers;
    calibration.analysers[1].dark_level = 63.1 + static_cast<double>(seed);
    calibration.analysers[3].residual = 0.1 / 3;
    calibration.matrices = matrices_of(sensor.analysers);
    calibration.quality = {1.0 / 7, 1.5 + 1e-15, 36, 5.000000000000001, 3000.7, {}};
    calibration.quality.flags = {Quality_flag::few_frames, Quality_flag::dark_level_unknown};
    calibration.provenance = {
        "1.2.3", "2026-01-31T12:00:00Z", {"a \"b\".png", "ö/\\.tif", "line\nbreak"}, "sensor 7"};
    return calibration;
}

class Calibration_file : public testing::Test {
protected:
    void SetUp() override {
        std::string name = (fs::temp_directory_path() / "calibration-file-test-XXXXXX").string();
        ASSERT_NE(::mkdtemp(name.data()), nullptr);
        folder_ = name;
    }
    ~Calibration_file() override {
        std::error_code ignored;
        fs::remove_all(folder_, ignored);
    }

    std::size_t files() const {
        return static_cast<std::size_t>(
            std::distance(fs::directory_iterator{folder_}, fs::directory_iterator{}));
    }

    fs::path folder_;
};

struct Refusal {
    std::size_t line;
    std::string key;
    std::string what;
};

Refusal refusal_of(std::string const& text) {
    try {
        calibration_from_json(text, "cal.json");
    } catch (File_error const& error) {
        EXPECT_EQ(error.file(), "cal.json");
        EXPECT_FALSE(error.remedy().empty());
        EXPECT_EQ(std::string{error.what()}.find('\n'), std::string::npos);
        return {error.line(), error.key(), error.what()};
    }
    return {0, "", "nothing"};
}

// The text with the first `from` replaced.
std::string changed(std::string text, std::string const& from, std::string const& to) {
    std::size_t const place = text.find(from);
    EXPECT_NE(place, std::string::npos) << from;
    return text.replace(place, from.size(), to);
}

std::size_t line_of(std::string const& text, std::string const& part) {
    auto const end = text.begin() + static_cast<std::ptrdiff_t>(text.find(part));
    return 1 + static_cast<std::size_t>(std::count(text.begin(), end, '\n'));
}

TEST_F(Calibration_file, comes_back_as_it_was) {
    for (std::uint64_t seed = 1; seed <= 20; ++seed) {
        Calibration const calibration = some_calibration(seed);
        fs::path const file = folder_ / "cal.json";
        save(calibration, file, Existing_files::replace);
        EXPECT_EQ(load_calibration(file), calibration);
        EXPECT_EQ(files(), 1U);
    }
}

TEST_F(Calibration_file, every_float_comes_back_bit_for_bit) {
    std::size_t compared = 0;
    for (std::uint64_t seed = 1; seed <= 200; ++seed) {
        Calibration const calibration = some_calibration(seed);
        Calibration const back = calibration_from_json(calibration_to_json(calibration), "text");
        ASSERT_EQ(std::memcmp(&back.matrices, &calibration.matrices, sizeof back.matrices), 0);
        compared += 64;
    }
    std::cout << compared << " floats\n";
}

TEST_F(Calibration_file, infinities_and_nans_are_refused_and_the_old_file_stays) {
    fs::path const file = folder_ / "cal.json";
    Calibration const good = some_calibration(1);
    save(good, file);
    for (double const bad :
         {std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()}) {
        Calibration calibration = good;
        calibration.matrices.by_position[2][5] = static_cast<float>(bad);
        EXPECT_THROW(save(calibration, file), Argument_error);
        calibration = good;
        calibration.analysers[0].throughput = bad;
        EXPECT_THROW(save(calibration, file), Argument_error);
        calibration = good;
        calibration.quality.rms_residual = bad;
        EXPECT_THROW(save(calibration, file), Argument_error);
    }
    Calibration calibration = good;
    calibration.provenance.sensor = "\xFF";
    EXPECT_THROW(save(calibration, file), Argument_error);
    EXPECT_EQ(load_calibration(file), good);
    EXPECT_EQ(files(), 1U);
}

TEST_F(Calibration_file, places_that_cannot_be_written_or_read_are_named) {
    fs::path const plain = folder_ / "plain";
    std::ofstream{plain} << "text";
    fs::create_directories(folder_ / "taken" / "inside");
    for (fs::path const& file :
         {plain / "cal.json", folder_ / "none" / "cal.json", folder_ / "taken",
          fs::path{"/proc/cal.json"}}) {
        try {
            save(some_calibration(1), file);
            ADD_FAILURE() << file;
        } catch (File_error const& error) {
            EXPECT_EQ(error.file(), file);
            EXPECT_NE(std::string{error.what()}.find(file.string()), std::string::npos);
        }
    }
    EXPECT_EQ(files(), 2U);
    try {
        load_calibration("");
        ADD_FAILURE() << "an empty name was read";
    } catch (File_error const& error) {
        EXPECT_EQ(std::string{error.what()}.find("an empty name: cannot be read: "), 0U);
    }
    EXPECT_THROW(load_calibration(folder_ / "none.json"), File_error);
    EXPECT_THROW(load_calibration(folder_), File_error);
    EXPECT_THROW(load_calibration("/dev/zero"), File_error);
}

TEST_F(Calibration_file, one_that_is_there_is_replaced_only_if_that_is_asked_for) {
    fs::path const file = folder_ / "cal.json";
    save(some_calibration(1), file);
    try {
        save(some_calibration(2), file);
        ADD_FAILURE() << "replaced";
    } catch (File_error const& error) {
        EXPECT_EQ(
            error.what(), file.string() + ": exists already; to replace it, save with "
                                          "overwrite=True (in C++ Existing_files::replace), or "
                                          "choose another place");
    }
    EXPECT_EQ(load_calibration(file), some_calibration(1));
    save(some_calibration(2), file, Existing_files::replace);
    EXPECT_EQ(load_calibration(file), some_calibration(2));
    EXPECT_EQ(files(), 1U);
}

// Nobody writes into the pipe: who opens it as usual waits for ever.
TEST_F(Calibration_file, what_is_no_regular_file_is_neither_read_nor_replaced) {
    save(some_calibration(1), folder_ / "cal.json");
    ASSERT_EQ(::mkfifo((folder_ / "pipe").c_str(), 0600), 0);
    fs::create_symlink("cal.json", folder_ / "link");
    fs::create_symlink("nowhere", folder_ / "dangling");
    auto const refusal = [](auto const& action) {
        try {
            action();
        } catch (File_error const& error) {
            return std::string{error.what()};
        }
        return std::string{"nothing"};
    };
    for (Existing_files const existing : {Existing_files::keep, Existing_files::replace}) {
        for (auto const& [name, reason] :
             {std::pair{"pipe", "it is no regular file but a pipe; "},
              std::pair{"link", "it is a link to cal.json; "},
              std::pair{"dangling", "it is a link to nowhere, which is not there; "}}) {
            fs::path const file = folder_ / name;
            auto const kind = fs::symlink_status(file).type();
            EXPECT_EQ(
                refusal([&] {
                    save(some_calibration(2), file, existing);
                }).find(file.string() + ": cannot be written: " + reason),
                0U)
                << name;
            EXPECT_EQ(fs::symlink_status(file).type(), kind) << name;
        }
    }
    EXPECT_EQ(load_calibration(folder_ / "link"), some_calibration(1));
    EXPECT_NE(
        refusal([&] { load_calibration(folder_ / "pipe"); }).find("no regular file but a pipe; "),
        std::string::npos);
    EXPECT_NE(
        refusal([&] {
            load_calibration(folder_ / "dangling");
        }).find("No such file or directory: it is a link to nowhere, which is not there; "),
        std::string::npos);
    EXPECT_EQ(files(), 4U);
}

TEST_F(Calibration_file, leftovers_of_killed_programs_are_removed_after_an_hour) {
    std::string const ours = ".veldrane.part-0123456789abcdef0123456789abcde";
    auto const long_ago = fs::file_time_type::clock::now() - std::chrono::minutes{61};
    std::ofstream{folder_ / "victim"} << "text";
    std::ofstream{folder_ / (ours + "0")} << "young";
    fs::create_directory(folder_ / (ours + "1"));
    fs::create_symlink("victim", folder_ / (ours + "2"));
    std::vector<std::string> kept = {"victim",         ours + "0",  ours + "1", ours + "2",
                                     "a" + ours + "f", ours + "ff", ours,       ours + "F"};
    for (std::string const& name :
         {ours + "3", ours + "f", "a" + ours + "f", ours + "ff", ours, ours + "F"}) {
        std::ofstream{folder_ / name} << "old";
        fs::last_write_time(folder_ / name, long_ago);
    }
    fs::last_write_time(folder_ / "victim", long_ago);
    fs::last_write_time(folder_ / (ours + "1"), long_ago);
    save(some_calibration(1), folder_ / "cal.json");
    kept.emplace_back("cal.json");
    for (std::string const& name : kept) {
        EXPECT_TRUE(fs::exists(folder_ / name)) << name;
    }
    EXPECT_EQ(files(), kept.size());
}

TEST_F(Calibration_file, every_piece_of_a_file_is_refused) {
    std::string const text = calibration_to_json(some_calibration(3));
    std::size_t refused = 0;
    for (std::size_t size = 0; size + 1 < text.size(); size += size < 400 ? 1 : 37, ++refused) {
        Refusal const refusal = refusal_of(text.substr(0, size));
        ASSERT_NE(refusal.what, "nothing") << size;
        ASSERT_NE(refusal.line, 0U) << size;
    }
    std::cout << refused << " lengths\n";
}

TEST_F(Calibration_file, foreign_files_are_refused) {
    EXPECT_NE(refusal_of("").what, "nothing");
    EXPECT_NE(refusal_of("[]").what.find("no calibration"), std::string::npos);
    EXPECT_NE(refusal_of("{\"a\": 1}").what.find("no calibration"), std::string::npos);
    EXPECT_NE(refusal_of("\x89PNG\r\n").what.find("no valid JSON"), std::string::npos);
    EXPECT_NE(refusal_of(std::string(100000, '[')).what, "nothing");
    EXPECT_NE(refusal_of(std::string(100000, '[') + std::string(100000, ']')).what, "nothing");
    std::string const text = calibration_to_json(some_calibration(3));
    Refusal const refusal = refusal_of(changed(text, "polarization_calibration", "other"));
    EXPECT_EQ(refusal.key, "schema/name");
}

TEST_F(Calibration_file, a_newer_version_is_refused_with_the_remedy) {
    std::string const text = calibration_to_json(some_calibration(3));
    Refusal const refusal = refusal_of(changed(text, "\"version\": 2", "\"version\": 4"));
    EXPECT_EQ(
        refusal.what, "cal.json, schema/version: version 4 is newer than 3, the newest "
                      "known; update this software, or calibrate again with this one");
    EXPECT_EQ(refusal_of(changed(text, "\"version\": 2", "\"version\": 0")).key, "schema/version");
    EXPECT_EQ(refusal_of(changed(text, "\"version\": 2", "\"version\": -1")).key, "schema/version");
}

TEST_F(Calibration_file, damage_is_refused_with_its_key) {
    std::string const text = calibration_to_json(some_calibration(3));
    struct Damage {
        std::string from;
        std::string to;
        std::string key;
    };
    std::string const throughput = "\"throughput\": ";
    std::vector<Damage> const damages = {
        {throughput, "\"throughput\": -", "analysers/0/throughput"},
        {throughput, "\"throughput\": \"x\", \"extra\": ", "analysers/0/extra"},
        {throughput, "\"throughput\": 1, \"throughput\": ", "analysers/0/throughput"},
        {"\"diattenuation\": 0", "\"diattenuation\": -1", "analysers/0/diattenuation"},
        {"\"dark_level\": 66.1", "\"dark_level\": true", "analysers/1/dark_level"},
        {"\"frame_count\": 36", "\"frame_count\": 3.6", "quality/frame_count"},
        {"\"few_frames\"", "\"many_frames\"", "quality/flags/0"},
        {"\"135,0,90,45\"", "\"135,0,90,90\"", "mosaic"},
        {"\"sensor 7\"", "7", "provenance/sensor"},
        {"\"1.2.3\"", "null", "provenance/software_version"},
        {"\"mosaic\"", "\"mosaics\"", "mosaics"}};
    for (Damage const& damage : damages) {
        Refusal const refusal = refusal_of(changed(text, damage.from, damage.to));
        EXPECT_EQ(refusal.key, damage.key) << refusal.what;
    }
    Refusal const missing = refusal_of(changed(text, "\"residual\": 0.0", "\"dark_level\": 0.0"));
    EXPECT_EQ(missing.key, "analysers/0/dark_level");
    EXPECT_NE(missing.what.find("twice"), std::string::npos);
    std::size_t numbers = 0;
    for (std::string const number : {"1e39", "-4e38", "65536.1", "-65537", "1e999", "-1e400"}) {
        std::size_t const begin = text.find("\"matrices\"");
        std::size_t const weight = text.find_first_of("-0123456789", begin);
        std::size_t const end = text.find_first_of(",\n", weight);
        std::string damaged = text;
        Refusal const refusal = refusal_of(damaged.replace(weight, end - weight, number));
        EXPECT_EQ(refusal.key, "matrices/0/0/0") << refusal.what;
        ++numbers;
    }
    EXPECT_EQ(refusal_of(changed(text, "36", "NaN")).line, line_of(text, "36"));
    std::cout << damages.size() + numbers + 2 << " damages\n";
}

// What the program wrote before it knew of a common offset and of outlying frames.
TEST_F(Calibration_file, files_of_version_1_are_read) {
    Calibration calibration = some_calibration(3);
    std::string text = calibration_to_json(calibration);
    std::size_t const offset = text.find("    \"common_offset_degrees\"");
    text.erase(offset, text.find('\n', offset) + 1 - offset);
    text = changed(text, ",\n    \"outlying_frames\": []", "");
    text = changed(text, "\"version\": 2", "\"version\": 1");
    EXPECT_EQ(calibration_from_json(text, "text"), calibration);
    EXPECT_EQ(
        refusal_of(changed(text, "\"flags\"", "\"outlying_frames\": [], \"flags\"")).key,
        "quality/outlying_frames");
    EXPECT_EQ(refusal_of(changed(text, "\"version\": 1", "\"version\": 2")).key, "quality");
}

TEST_F(Calibration_file, outlying_frames_and_the_common_offset_come_back) {
    Calibration calibration = some_calibration(3);
    calibration.quality.flags = {all_quality_flags.begin(), all_quality_flags.end()};
    calibration.quality.outlying_frames = {{"a.png", 15.1, 0.1 / 3}, {"frame 7", -1e-300, 0}};
    std::string const text = calibration_to_json(calibration);
    EXPECT_EQ(calibration_from_json(text, "text"), calibration);
    Refusal const frame = refusal_of(changed(text, "\"angle_degrees\": 15", "\"angle\": 15"));
    EXPECT_EQ(frame.key, "quality/outlying_frames/0/angle") << frame.what;
    std::string const key = "\"common_offset_degrees\": ";
    Refusal const offset = refusal_of(changed(text, key, key + "1"));
    EXPECT_EQ(offset.key, "quality/common_offset_degrees") << offset.what;
}

// Whoever changes one of 48 weights by hand changes one of the digits that tell floats apart.
TEST_F(Calibration_file, weights_that_are_not_those_of_the_analysers_are_refused) {
    Calibration const good = some_calibration(3);
    std::size_t refused = 0;
    for (std::size_t position = 0; position < 4; ++position) {
        for (std::size_t element = 0; element < 16; ++element) {
            for (float const change :
                 {1.0F, -1.0F, 1e-6F, -good.matrices.by_position[position][element]}) {
                if (change == 0 || (element >= 12 && change != 1)) {
                    continue;
                }
                Calibration bad = good;
                bad.matrices.by_position[position][element] += change;
                EXPECT_THROW(calibration_to_json(bad), Argument_error);
                ++refused;
            }
        }
    }
    std::string const text = calibration_to_json(good);
    std::size_t const weight = text.find_first_of("-0123456789", text.find("\"matrices\""));
    std::size_t const end = text.find_first_of(",\n", weight);
    Refusal const refusal = refusal_of(std::string{text}.replace(weight, end - weight, "2.0"));
    EXPECT_EQ(refusal.key, "matrices/0/0/0") << refusal.what;
    EXPECT_NE(refusal.what.find("this is 2, not the "), std::string::npos) << refusal.what;
    EXPECT_NE(refusal.what.find("that the analysers give"), std::string::npos) << refusal.what;
    for (std::string const figure : {"throughput", "diattenuation", "orientation_degrees"}) {
        std::string const key = "\"" + figure + "\": ";
        std::size_t const place = text.find(key) + key.size();
        std::size_t const point = text.find('.', place);
        for (std::size_t const digit : {point + 3, point + 4}) {
            std::string damaged = text;
            damaged[digit] = damaged[digit] == '9' ? '8' : static_cast<char>(damaged[digit] + 1);
            EXPECT_TRUE(refusal_of(damaged).key.starts_with("matrices/")) << figure;
            ++refused;
        }
    }
    EXPECT_GT(refused, 150U);
    std::cout << refused << " changes\n";
}

// Another compiler may round a weight to the neighbour of the float that this one computes.
TEST_F(Calibration_file, weights_may_differ_by_a_rounding) {
    Calibration calibration = some_calibration(3);
    for (auto& matrix : calibration.matrices.by_position) {
        for (std::size_t element = 0; element < 12; ++element) {
            matrix[element] = std::nextafter(matrix[element], element % 2 == 0 ? 1e9F : -1e9F);
        }
    }
    EXPECT_EQ(calibration_from_json(calibration_to_json(calibration), "text"), calibration);
}

TEST_F(Calibration_file, analysers_that_no_sensor_of_the_mosaic_has_are_refused) {
    Calibration const good = some_calibration(3);
    std::string const text = calibration_to_json(good);
    for (Mosaic const& mosaic : all_mosaics()) {
        if (mosaic == good.mosaic) {
            continue;
        }
        std::string const name = mosaic.to_string();
        Refusal const refusal = refusal_of(changed(text, good.mosaic.to_string(), name));
        EXPECT_EQ(
            refusal.what, "cal.json, mosaic: this is " + name +
                              ", but the orientations of the analysers are those of " +
                              good.mosaic.to_string() + "; restore the file, or calibrate again");
    }
    auto const key_of = [&](auto const& change) {
        Calibration bad = good;
        change(bad.analysers);
        try {
            calibration_to_json(bad);
        } catch (Argument_error const& error) {
            EXPECT_THROW(save(bad, folder_ / "cal.json"), Argument_error);
            EXPECT_EQ(files(), 0U);
            return error.argument();
        }
        return std::string{"nothing"};
    };
    EXPECT_EQ(
        key_of([](auto& all) { all[2].orientation += 30; }),
        "calibration's analysers/2/orientation_degrees");
    for (double const throughput : {0.0, 0.009, 4.1, 1e300}) {
        EXPECT_EQ(
            key_of([=](auto& all) { all[1].throughput = throughput; }),
            "calibration's analysers/1/throughput");
    }
    EXPECT_EQ(
        key_of([](auto& all) {
            for (Analyser& analyser : all) {
                analyser.throughput *= 2;
            }
        }),
        "calibration's analysers");
    EXPECT_EQ(
        key_of([](auto& all) {
            for (Analyser& analyser : all) {
                analyser.diattenuation = 0.001;
            }
        }),
        "calibration's analysers");
}

// An object finds its keys one by one: they are bounded before that could take long.
TEST_F(Calibration_file, many_and_long_keys_are_refused_with_the_key) {
    std::string const text = calibration_to_json(some_calibration(3));
    std::string keys = "{";
    for (int key = 0; key < 2000; ++key) {
        keys.append(key == 0 ? "\n\"" : ",\n\"").append(std::to_string(key)).append("\": 0");
    }
    Refusal const many = refusal_of(changed(text, "\"sensor 7\"", keys + "}"));
    EXPECT_NE(many.what.find("more than 1000 keys"), std::string::npos) << many.what;
    EXPECT_TRUE(many.key.starts_with("provenance/sensor/9")) << many.what;
    std::string zeros = "[0";
    for (int zero = 0; zero < 200000; ++zero) {
        zeros += ",0";
    }
    std::string const key(200000, 'k');
    Refusal const wide = refusal_of("{\"" + key + "\": " + zeros + "]}");
    EXPECT_NE(wide.what.find("no calibration"), std::string::npos);
}

TEST_F(Calibration_file, weights_above_the_largest_are_not_written) {
    Calibration calibration = some_calibration(3);
    calibration.matrices.by_position[1][2] = std::nextafter(largest_weight, 1e9F);
    EXPECT_THROW(calibration_to_json(calibration), Argument_error);
}

TEST_F(Calibration_file, numbers_beyond_double_and_deep_nesting_are_refused_with_the_key) {
    std::string const text = calibration_to_json(some_calibration(3));
    Refusal const number = refusal_of(changed(text, "1.5000", "1e999, \"a\": 1.5000"));
    EXPECT_EQ(number.key, "quality/condition_number") << number.what;
    for (std::string const open : {"[", "{\"a\": "}) {
        std::string deep;
        for (int level = 0; level < 100000; ++level) {
            deep += open;
        }
        Refusal const refusal = refusal_of(changed(text, "\"sensor 7\"", deep));
        EXPECT_TRUE(refusal.key.starts_with("provenance/sensor/")) << refusal.what;
        EXPECT_NE(refusal.what.find("nested too deeply"), std::string::npos) << refusal.what;
    }
    // Sixteen levels are no reason to refuse: the text is judged by what it holds.
    std::string const levels = std::string(14, '[') + std::string(14, ']');
    EXPECT_EQ(refusal_of(changed(text, "\"sensor 7\"", levels)).key, "provenance/sensor");
    Refusal const alone = refusal_of("\n\n  -1e999");
    EXPECT_EQ(
        alone.what, "cal.json: the number is too large; restore the file, or calibrate again");
}

TEST_F(Calibration_file, refusals_keep_the_key_behind_a_byte_order_mark) {
    std::string const mark = "\xEF\xBB\xBF";
    Calibration const calibration = some_calibration(3);
    std::string const text = calibration_to_json(calibration);
    EXPECT_EQ(calibration_from_json(mark + text, "text"), calibration);
    for (std::string const number : {"true", "1e999"}) {
        Refusal const refusal = refusal_of(mark + changed(text, "66.1", number));
        EXPECT_EQ(refusal.key, "analysers/1/dark_level") << refusal.what;
    }
    Refusal const twice = refusal_of(mark + changed(text, "\"time\"", "\"sensor\""));
    EXPECT_EQ(twice.key, "provenance/sensor") << twice.what;
    EXPECT_NE(twice.what.find("twice"), std::string::npos) << twice.what;
}

TEST_F(Calibration_file, a_key_spelled_with_escapes_is_the_key_that_it_names) {
    Calibration const calibration = some_calibration(3);
    std::string const text = calibration_to_json(calibration);
    std::string const escaped = changed(text, "\"time\"", "\"t\\u0069me\"");
    EXPECT_EQ(calibration_from_json(escaped, "text"), calibration);
    Refusal const value = refusal_of(changed(escaped, "\"2026-01-31T12:00:00Z\"", "7"));
    EXPECT_EQ(value.key, "provenance/time") << value.what;
    Refusal const twice = refusal_of(changed(escaped, "\"sensor\"", "\"time\""));
    EXPECT_EQ(twice.key, "provenance/time") << twice.what;
    EXPECT_NE(twice.what.find("twice"), std::string::npos) << twice.what;
}

} // namespace
} // namespace client_test
