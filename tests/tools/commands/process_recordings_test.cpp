// veldrane-polarize takes what was recorded from a camera as it is: what stands beside it takes the
// place of options, and what was told of a frame stays with its planes.
#include "process_fixture.hpp"
#include "veldrane_mrv/polarization/calibration_file.hpp"
#include "veldrane_mrv/polarization/pixel_format.hpp"
#include "veldrane_mrv/polarization/recording_writer.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>

namespace {

using namespace veldrane_mrv::polarization;
using process_fixture::Names;
using process_fixture::Process_command;
using program_run::line_count;
using program_run::Outcome;

constexpr Size size = {36, 6};
constexpr std::uint64_t numbers_from = 65534;

class Process_recordings : public Process_command {
protected:
    void record(
        std::string const& name, int frames = 3, Pixel_format format = Pixel_format::mono12p,
        std::optional<Mosaic> const& mosaic = Mosaic::from_phase(3)) const {
        Recording_description description;
        description.format = format;
        description.size = size;
        description.mosaic = mosaic;
        Recording_writer writer(folder_ / name, description);
        std::vector<std::uint16_t> samples(size.width * size.height);
        std::vector<std::byte> bytes(bytes_per_frame(format, size.height, size.width));
        for (int frame = 0; frame < frames; ++frame) {
            for (std::size_t index = 0; index < samples.size(); ++index) {
                samples[index] =
                    static_cast<std::uint16_t>((index * 37 + static_cast<unsigned>(frame)) & 255);
            }
            pack_frame(format, samples, size.width, bytes);
            auto const number = static_cast<std::uint64_t>(frame);
            writer.append(bytes, {numbers_from + number, number, ~std::uint64_t{0} - number});
        }
        writer.finish({});
    }

    std::string recording() const { return in_folder("run.raw"); }

    Names spelled_out() const {
        return {"--pixel-format", "Mono12p", "--width", "36", "--height", "6", "--phase", "3"};
    }

    nlohmann::json json(std::string const& name) const {
        auto const bytes = test_files::read(result(name));
        return nlohmann::json::parse(bytes.begin(), bytes.end());
    }

    Outcome run(Names arguments, Names const& more) const {
        arguments.insert(arguments.end(), more.begin(), more.end());
        return program_run::run(arguments);
    }
};

TEST_F(Process_recordings, need_no_option) {
    record("run.raw");
    test_files::write(folder_ / "bare.raw", test_files::read(recording()));
    Names options = spelled_out();
    options.insert(options.end(), {"-o", in_folder("expected")});
    ASSERT_EQ(process_with({in_folder("bare.raw")}, options).code, 0);
    Outcome const outcome = process_with({recording()}, {"-o", results()});
    ASSERT_EQ(outcome.code, 0) << outcome.errors;
    for (std::string const frame : {"_000000_", "_000002_"}) {
        for (std::string const plane : {"s0", "s1", "azimuth", "dolp", "normalized_stokes"}) {
            EXPECT_EQ(
                test_files::read(result("run" + frame + plane + ".tif")),
                test_files::read(in_folder("expected/bare" + frame + plane + ".tif")));
        }
    }
}

TEST_F(Process_recordings, tell_the_camera_s_numbers_and_times) {
    record("run.raw");
    ASSERT_EQ(process_with({recording()}, {"-o", results(), "--planes", "dolp"}).code, 0);
    auto const capture = json("run_000002_dolp.json")["capture"];
    EXPECT_EQ(capture["frame_number"], numbers_from + 2);
    EXPECT_EQ(capture["camera_time_ns"], 2);
    EXPECT_EQ(capture["host_time_ns"], ~std::uint64_t{0} - 2);
    forget_results();
    Names const stacked = {"-o", results(), "--planes", "dolp", "--format", "npy", "--stack"};
    ASSERT_EQ(process_with({recording()}, stacked).code, 0);
    auto const told = json("run_stack.json");
    EXPECT_EQ(told["capture"]["frame_number"], (std::vector<int>{65534, 65535, 65536}));
    EXPECT_EQ(told["source"]["pixel_format"]["name"], "Mono12p");
    forget_results();
    ASSERT_EQ(process({good()}).code, 0);
    EXPECT_FALSE(json("good_dolp.json").contains("capture"));
}

TEST_F(Process_recordings, options_go_before_the_mosaic_and_never_against_the_samples) {
    record("run.raw");
    Outcome outcome = process_with({recording()}, {"-o", results(), "--phase", "2"});
    ASSERT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_EQ(json("run_000000_dolp.json")["mosaic"]["phase"], 2);
    forget_results();
    ASSERT_EQ(process_with({recording()}, {"-o", results(), "--bit-depth", "13"}).code, 0);
    EXPECT_EQ(json("run_000000_dolp.json")["bit_depth"], 13);
    forget_results();
    Names options = spelled_out();
    options.insert(options.end(), {"-o", results()});
    ASSERT_EQ(process_with({recording()}, options).code, 0);
    forget_results();
    options[3] = "35";
    outcome = process_with({recording()}, options);
    EXPECT_EQ(outcome.code, 2);
    EXPECT_EQ(
        outcome.errors, "veldrane-polarize: --width is 35, but " + recording() +
                            ".json tells 36; leave out what describes the samples\n");
}

TEST_F(Process_recordings, of_another_mosaic_than_the_calibration_are_refused) {
    record("run.raw");
    std::string const file = in_folder("sensor.json");
    save(ideal_calibration(Mosaic::from_phase(2)), file);
    Names options = {"-o", results(), "--calibration", file};
    Outcome const outcome = process_with({recording()}, options);
    EXPECT_EQ(outcome.code, 2);
    EXPECT_EQ(
        outcome.errors,
        "veldrane-polarize: " + recording() + ".json tells the layout 135,0,90,45, but " + file +
            " is for 90,45,135,0; give a calibration of this part of the sensor, or --layout "
            "90,45,135,0 if that is right\n");
    options.insert(options.end(), {"--phase", "2"});
    EXPECT_EQ(process_with({recording()}, options).code, 0);
    save(ideal_calibration(Mosaic::from_phase(3)), file, Existing_files::replace);
    forget_results();
    options.resize(4);
    EXPECT_EQ(process_with({recording()}, options).code, 0);
}

TEST_F(Process_recordings, of_unknown_mosaic_ask_for_it) {
    record("run.raw", 1, Pixel_format::mono8, std::nullopt);
    Outcome const outcome = process_with({recording()}, {"-o", results()});
    EXPECT_EQ(outcome.code, 2);
    EXPECT_NE(outcome.errors.find("--phase or --layout is required"), std::string::npos);
    EXPECT_EQ(process_with({recording()}, {"-o", results(), "--phase", "0"}).code, 0);
}

TEST_F(Process_recordings, that_differ_go_into_calls_of_their_own) {
    record("a.raw");
    record("b.raw", 1, Pixel_format::mono8);
    record("c.raw", 1, Pixel_format::mono12p, Mosaic::from_phase(0));
    auto const refused = [this](std::string const& other) {
        Outcome const outcome =
            process_with({in_folder("a.raw"), in_folder(other)}, {"-o", results()});
        EXPECT_EQ(outcome.code, 2);
        return outcome.errors;
    };
    EXPECT_EQ(
        refused("b.raw"), "veldrane-polarize: --bit-depth is not given, and " + in_folder("b.raw") +
                              " has the bit depth 8, not 12 as those before; process it in a call "
                              "of its own\n");
    EXPECT_EQ(
        refused("c.raw"),
        "veldrane-polarize: --layout is not given, and " + in_folder("c.raw") +
            " has the layout 0,135,45,90, not 135,0,90,45 as those before; process it in a call "
            "of its own\n");
    Names const both = {in_folder("a.raw"), in_folder("b.raw")};
    EXPECT_EQ(process_with(both, {"-o", results(), "--bit-depth", "12"}).code, 0);
}

TEST_F(Process_recordings, lie_in_folders) {
    record("a.raw");
    record("b.raw", 1);
    std::filesystem::remove(good());
    Outcome const outcome = process_with({folder_.path().string()}, {"-o", results()});
    EXPECT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_TRUE(std::filesystem::exists(result("b_dolp.tif")));
    EXPECT_TRUE(std::filesystem::exists(result("a_000002_dolp.tif")));
}

TEST_F(Process_recordings, lend_no_layout_to_other_files_of_their_folder) {
    record("a.raw", 3, Pixel_format::mono16);
    test_files::write(folder_ / "bare.raw", test_files::read(in_folder("a.raw")));
    std::filesystem::remove(good());
    std::string const folder = folder_.path().string();
    Outcome outcome = process_with({folder}, {"-o", folder, "--format", "raw", "--planes", "dolp"});
    ASSERT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_TRUE(std::filesystem::exists(in_folder("a_000002_dolp.raw")));
    EXPECT_FALSE(std::filesystem::exists(in_folder("bare_000000_dolp.raw")));
    outcome = process_with({folder}, {"-o", results(), "--planes", "dolp"});
    ASSERT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_TRUE(std::filesystem::exists(result("a_000000_dolp.tif")));
    EXPECT_FALSE(std::filesystem::exists(result("a_000000_dolp_dolp.tif")));
}

TEST_F(Process_recordings, go_with_pictures_as_dark_frames) {
    record("run.raw");
    std::string const dark = in_folder("dark.png");
    test_files::write(
        dark, test_files::encoded(
                  test_files::pattern(
                      static_cast<int>(size.width), static_cast<int>(size.height), CV_8UC1),
                  ".png"));
    Outcome const outcome = process_with({recording()}, {"-o", results(), "--dark", dark});
    EXPECT_EQ(outcome.code, 0) << outcome.errors;
}

TEST_F(Process_recordings, of_few_bits_are_not_shifted_away) {
    record("run.raw", 1, Pixel_format::mono8);
    Outcome const outcome = process_with({recording()}, {"-o", results(), "--shift", "8"});
    EXPECT_EQ(outcome.code, 2);
    EXPECT_EQ(outcome.errors, "veldrane-polarize: --shift 8 leaves nothing of the samples\n");
}

TEST_F(Process_recordings, are_read_by_inspect_report_and_as_dark_frames) {
    record("run.raw");
    record("dark.raw", 2);
    Outcome const inspected = run({"inspect", recording()}, {});
    EXPECT_EQ(inspected.code, 0) << inspected.errors;
    EXPECT_NE(inspected.output.find("run.raw, frame 2"), std::string::npos);
    Outcome const report = run({"report", recording()}, {"-o", in_folder("page.html")});
    EXPECT_EQ(report.code, 0) << report.errors;
    Outcome const dark =
        process_with({recording()}, {"-o", results(), "--dark", in_folder("dark.raw")});
    EXPECT_EQ(dark.code, 0) << dark.errors;
}

TEST_F(Process_recordings, cut_short_give_their_whole_frames_and_a_line) {
    record("run.raw");
    auto bytes = test_files::read(recording());
    bytes.resize(bytes.size() - 1);
    test_files::write(folder_ / "run.raw", bytes);
    Outcome const outcome = process_with({recording()}, {"-o", results(), "-q"});
    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(
        outcome.errors, "veldrane-polarize: " + recording() +
                            ": is cut short within frame 2 of 3; the frames before it are read\n");
    EXPECT_TRUE(std::filesystem::exists(result("run_000001_dolp.tif")));
}

TEST_F(Process_recordings, with_a_damaged_description_get_one_line) {
    record("run.raw");
    test_files::write(folder_ / "run.raw.json", "{\"format\": \"veldrane-recording\"}");
    Outcome const outcome = process_with({recording()}, {"-o", results()});
    EXPECT_NE(outcome.code, 0);
    EXPECT_EQ(line_count(outcome.errors), 1) << outcome.errors;
    EXPECT_NE(outcome.errors.find("run.raw.json, version: is missing; "), std::string::npos);
    Outcome const folder = process_with({folder_.path().string()}, {"-o", results()});
    EXPECT_NE(folder.code, 0);
}

TEST_F(Process_recordings, keep_their_descriptions) {
    record("run.raw");
    Outcome const outcome =
        run({"report", recording()}, {"-o", recording() + ".json", "--overwrite"});
    EXPECT_EQ(outcome.code, 1);
    EXPECT_NE(outcome.errors.find("is an input and would be lost"), std::string::npos);
}

TEST_F(Process_recordings, keep_descriptions_that_tell_of_no_frame) {
    record("run.raw");
    record("dark.raw");
    Recording_description short_one;
    short_one.format = Pixel_format::mono12p;
    short_one.size = size;
    short_one.mosaic = Mosaic::from_phase(3);
    std::string const dark = in_folder("dark.raw");
    test_files::write(folder_ / "run.raw.json", recording_description_text(short_one));
    for (std::string const& file : {recording(), dark}) {
        Outcome const outcome =
            run({"report", recording()}, {"-o", file + ".json", "--overwrite", "--dark", dark});
        EXPECT_EQ(outcome.code, 1);
        EXPECT_NE(outcome.errors.find("is an input and would be lost"), std::string::npos);
    }
}

} // namespace
