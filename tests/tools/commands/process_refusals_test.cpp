// veldrane-polarize process: wrong usage and everything that can be wrong with inputs and places,
// each with one clear line, and nothing half-written.
#include "process_fixture.hpp"
#include "veldrane_mrv/polarization/calibration.hpp"
#include "veldrane_mrv/polarization/calibration_file.hpp"

#include <chrono>
#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>
#include <random>
#include <sys/mount.h>
#include <sys/stat.h>
#include <thread>

namespace {

using process_fixture::all_files;
using process_fixture::Names;
using process_fixture::Process_command;
using program_run::line_count;
using program_run::Outcome;
using program_run::run;
using test_files::encoded;
using test_files::pattern;

class Process_refusals : public Process_command {
protected:
    std::vector<std::uint8_t> half(std::vector<std::uint8_t> bytes) const {
        bytes.resize(bytes.size() / 2);
        return bytes;
    }
};

TEST_F(Process_refusals, wrong_usage_is_refused_in_one_line_with_code_2) {
    auto const with = [this](Names const& more) {
        Names arguments = {"process", good(), "-o", results()};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return arguments;
    };
    auto const good_and = [&with](Names more) {
        more.insert(more.end(), {"--phase", "0", "--bit-depth", "8"});
        return with(more);
    };
    std::vector<std::pair<Names, char const*>> const cases = {
        {{}, "subcommand"},
        {{"develop"}, "unknown subcommand 'develop'"},
        {{"process"}, "required"},
        {{"process", "-o", results(), "--phase", "0", "--bit-depth", "8"}, "frames"},
        {{"process", good(), "--phase", "0", "--bit-depth", "8"}, "--output"},
        {with({"--bit-depth", "8"}), "--phase or --layout is required"},
        {with({"--phase", "0"}), "--bit-depth"},
        {with({"--phase", "4", "--bit-depth", "8"}), "--phase"},
        {with({"--phase", "-1", "--bit-depth", "8"}), "--phase"},
        {with({"--phase", "zero", "--bit-depth", "8"}), "--phase"},
        {with({"--phase", "0", "--bit-depth", "0"}), "--bit-depth"},
        {with({"--phase", "0", "--bit-depth", "17"}), "--bit-depth"},
        {with({"--layout", "0,45,90,135", "--bit-depth", "8"}), "90,45,135,0"},
        {with({"--layout", "left", "--bit-depth", "8"}), "--layout"},
        {good_and({"--layout", "0,135,45,90"}), "give one of them"},
        {good_and({"--planes", "s0,s3"}), "s3"},
        {good_and({"--planes", ""}), "--planes"},
        {good_and({"--planes", "s0,"}), "--planes"},
        {good_and({"--full-scale", "0"}), "--full-scale"},
        {good_and({"--full-scale", "65536"}), "--full-scale"},
        {good_and({"--full-scale", "-5"}), "--full-scale"},
        {good_and({"--repeat", "0"}), "--repeat"},
        {good_and({"--jobs", "-2"}), "--jobs"},
        {good_and({"--phase", "0"}), "--phase"}, // twice
        {good_and({"--format", "jpeg"}), "--format"},
        {good_and({"--format", "png"}), "normalized_stokes"},
        {good_and({"--format", "png", "--planes", "s1", "--signed"}), "--format png"},
        {good_and({"--units", "gradians"}), "--units"},
        {good_and({"--region", "1,2,3"}), "--region"},
        {good_and({"--region", "1,2,3,0"}), "--region"},
        {good_and({"--shift", "16"}), "--shift"},
        {good_and({"--step", "0"}), "--step"},
        {good_and({"--width", "40"}), "--pixel-format"},
        {good_and({"--pixel-format", "Mono8"}), "--width and --height"},
        {good_and({"--pixel-format", "mono9", "--width", "40", "--height", "20"}), "Mono12Packed"},
        {good_and({"--pixel-format", "Mono8", "--width", "40", "--height", "20", "--stride", "9"}),
         "stride"},
        {good_and({"--mode", "fast", "--calibration", "c.json"}), "--mode fast"},
        {good_and({"--sideways"}), "--sideways"}};
    for (auto const& [arguments, word] : cases) {
        Outcome const outcome = run(arguments);
        expect_one_line(outcome, 2, word);
        EXPECT_EQ(outcome.output, "");
    }
    EXPECT_FALSE(std::filesystem::exists(results()));
    std::printf("%zu refusals\n", cases.size());
}

TEST_F(Process_refusals, a_failed_input_leaves_nothing_and_the_others_are_processed) {
    std::mt19937 random(1);
    std::vector<std::uint8_t> noise(65536);
    for (std::uint8_t& byte : noise) {
        byte = static_cast<std::uint8_t>(random());
    }
    cv::Mat const colour(20, 40, CV_8UC3, cv::Scalar(9, 9, 9));
    test_files::write(folder_ / "half.png", half(encoded(pattern(40, 20, CV_16UC1), ".png")));
    test_files::write(folder_ / "half.tif", half(encoded(pattern(40, 20, CV_8UC1), ".tif")));
    test_files::write(folder_ / "short.pgm", "P5 40 20 255 too short");
    test_files::write(folder_ / "notes.txt", "no image");
    test_files::write(folder_ / "noise.png", noise);
    test_files::write(folder_ / "colour.png", encoded(colour, ".png"));
    test_files::write(folder_ / "colour.tif", encoded(colour, ".tif"));
    test_files::write(folder_ / "narrow.png", encoded(pattern(15, 20, CV_8UC1), ".png"));
    test_files::write(folder_ / "flat.png", encoded(pattern(40, 1, CV_8UC1), ".png"));
    test_files::write(folder_ / "dot.png", encoded(pattern(1, 1, CV_8UC1), ".png"));
    test_files::write(folder_ / "empty.png", std::string());
    std::filesystem::create_directory(folder_ / "folder.png");
    std::filesystem::create_symlink(folder_ / "vanished.png", folder_ / "link.png");
    std::vector<std::pair<char const*, char const*>> const cases = {
        {"half.png", "damaged or cut short"},
        {"half.tif", "damaged or cut short"},
        {"short.pgm", "damaged or cut short"},
        {"notes.txt", "not a PNG, TIFF, binary PGM or npy file"},
        {"noise.png", "not a PNG, TIFF, binary PGM or npy file"},
        {"colour.png", "colour image"},
        {"colour.tif", "colour image"},
        {"narrow.png", "15"},
        {"flat.png", "1"},
        {"dot.png", "1"},
        {"empty.png", "not a PNG, TIFF, binary PGM or npy file"},
        {"folder.png", "holds no PNG, TIFF or PGM file"},
        {"link.png", "No such file"},
        {"none.png", "No such file"}};
    Names inputs;
    for (auto const& [name, reason] : cases) {
        inputs.push_back(in_folder(name));
        Outcome const alone = process({inputs.back()});
        expect_one_line(alone, 1, reason);
        EXPECT_EQ(alone.errors.find("veldrane-polarize: " + inputs.back() + ": "), 0U)
            << alone.errors;
        EXPECT_EQ(alone.output, "");
        EXPECT_FALSE(std::filesystem::exists(results())) << name;
    }
    inputs.insert(inputs.begin() + 4, good());
    Outcome const together = process(inputs, {"--jobs", "2"});
    EXPECT_EQ(together.code, 1);
    EXPECT_EQ(line_count(together.errors), cases.size()) << together.errors;
    EXPECT_EQ(line_count(together.output), 2U) << together.output;
    EXPECT_EQ(test_files::names_in(results()), all_files);
    std::printf("%zu refusals\n", cases.size());
}

TEST_F(Process_refusals, a_run_without_results_removes_the_folders_it_made_and_no_others) {
    test_files::write(folder_ / "notes.txt", "no image");
    std::filesystem::create_directory(folder_ / "old");
    for (std::string const place : {"old", "old/new", "old/new/deeper"}) {
        Outcome const outcome = process_with(
            {in_folder("notes.txt")}, {"-o", in_folder(place), "--phase", "0", "--bit-depth", "8"});
        expect_one_line(outcome, 1, "notes.txt: not a PNG");
        EXPECT_TRUE(std::filesystem::exists(folder_ / "old")) << place;
        EXPECT_TRUE(test_files::names_in(folder_ / "old").empty()) << place;
    }
}

TEST_F(Process_refusals, a_file_that_vanishes_fails_alone) {
    constexpr unsigned frames = 10;
    std::filesystem::create_directory(folder_ / "run");
    auto const frame = encoded(pattern(40, 20, CV_8UC1), ".png");
    for (unsigned number = 0; number < frames; ++number) {
        test_files::write(folder_ / ("run/f" + std::to_string(number) + ".png"), frame);
    }
    // The first frame's line waits for room, with two frames in flight: the last is not read yet.
    program_run::Full_pipe pipe;
    program_run::Running_program program(
        {POLARIZE_PROGRAM, "process", in_folder("run"), "-o", results(), "--phase", "0",
         "--bit-depth", "8", "--jobs", "1"},
        pipe.writing_end());
    while (program.is_running() &&
           (!std::filesystem::exists(results()) || std::filesystem::is_empty(results()))) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    std::filesystem::remove(folder_ / "run/f9.png");
    while (program.is_running()) {
        pipe.take_all();
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    expect_one_line(program.wait(), 1, "f9.png: cannot be read: No such file");
    EXPECT_EQ(test_files::names_in(results()).size(), (frames - 1) * all_files.size());
}

TEST_F(Process_refusals, second_input_of_the_same_name_is_refused) {
    test_files::write(folder_ / "good.pgm", encoded(pattern(50, 30, CV_8UC1), ".pgm"));
    Outcome const outcome = process({good(), in_folder("good.pgm")});
    expect_one_line(outcome, 1, "good.pgm: given twice, or its result");
    EXPECT_EQ(test_files::read_tiff(result("good_s0.tif")).width, 40U);
}

TEST_F(Process_refusals, a_result_never_overwrites_an_input) {
    auto const bytes = encoded(pattern(40, 20, CV_8UC1), ".tif");
    test_files::write(folder_ / "good_s0.tif", bytes);
    for (Names const& more : {Names{}, Names{"--overwrite"}}) {
        Names options = {
            "-o", folder_.path().string(), "--phase", "0", "--bit-depth", "8", "--planes", "s0"};
        options.insert(options.end(), more.begin(), more.end());
        Outcome const outcome = process_with({good(), in_folder("good_s0.tif")}, options);
        EXPECT_EQ(outcome.code, 1);
        EXPECT_NE(outcome.errors.find("would overwrite the input"), std::string::npos);
        EXPECT_EQ(test_files::read(folder_ / "good_s0.tif"), bytes);
    }
}

// The picture of the angle beside the planes of a frame, and the picture of the degree beside a
// frame whose name ends in "_angle", have one name.
TEST_F(Process_refusals, results_of_different_frames_never_fall_on_one_another) {
    test_files::write(folder_ / "good_angle.png", encoded(pattern(50, 30, CV_8UC1), ".png"));
    Outcome const outcome = process({good(), in_folder("good_angle.png")});
    expect_one_line(outcome, 1, "good_angle_degree.png would overwrite that of " + good());
    EXPECT_EQ(test_files::names_in(results()), all_files);
    // Without pictures there is nothing in common.
    EXPECT_EQ(
        process({good(), in_folder("good_angle.png")}, {"--no-pictures", "--overwrite"}).code, 0);
}

TEST_F(Process_refusals, a_result_never_overwrites_a_dark_frame_or_the_calibration) {
    auto const dark = encoded(cv::Mat(20, 40, CV_8UC1, cv::Scalar(1)), ".tif");
    test_files::write(folder_ / "good_s0.tif", dark);
    Names const here = {"-o", folder_.path().string(), "--bit-depth", "8", "--overwrite"};
    auto const with = [&here](Names options) {
        options.insert(options.end(), here.begin(), here.end());
        return options;
    };
    expect_one_line(
        process_with(
            {good()}, with({"--phase", "0", "--planes", "s0", "--dark", in_folder("good_s0.tif")})),
        1, "would overwrite the input " + in_folder("good_s0.tif"));
    EXPECT_EQ(test_files::read(folder_ / "good_s0.tif"), dark);

    namespace polarization = veldrane_mrv::polarization;
    std::string const calibration = polarization::calibration_to_json(
        polarization::ideal_calibration(polarization::Mosaic::from_phase(0)));
    test_files::write(folder_ / "good_s1.json", calibration);
    expect_one_line(
        process_with(
            {good()}, with({"--planes", "s1", "--calibration", in_folder("good_s1.json")})),
        1, "would overwrite the input " + in_folder("good_s1.json"));
    auto const left = test_files::read(folder_ / "good_s1.json");
    EXPECT_EQ(std::string(left.begin(), left.end()), calibration);
}

// A recording that is read from its second frame on is an input none the less.
TEST_F(Process_refusals, a_recording_is_an_input_whichever_of_its_frames_is_taken) {
    std::vector<cv::Mat> const pages(2, pattern(40, 20, CV_8UC1));
    std::string const file = in_folder("good_s0.tif");
    ASSERT_TRUE(cv::imwritemulti(file, pages));
    auto const before = test_files::read(file);
    Outcome const outcome = process_with(
        {file, good()}, {"-o", folder_.path().string(), "--phase", "0", "--bit-depth", "8",
                         "--planes", "s0", "--start", "1", "--overwrite"});
    EXPECT_EQ(outcome.code, 1);
    EXPECT_NE(outcome.errors.find("would overwrite the input"), std::string::npos)
        << outcome.errors;
    EXPECT_EQ(test_files::read(file), before);
}

// Places where root may not write either.
TEST_F(Process_refusals, a_folder_that_cannot_be_made_or_written_is_refused) {
    test_files::write(folder_ / "file", "x");
    for (std::string const& place :
         {in_folder("file"), in_folder("file/deeper"), std::string("/proc/results")}) {
        Outcome const outcome =
            process_with({good()}, {"-o", place, "--phase", "0", "--bit-depth", "8"});
        expect_one_line(outcome, 1, place);
    }
    Outcome const outcome =
        process_with({good()}, {"-o", "/proc/self", "--phase", "0", "--bit-depth", "8"});
    EXPECT_EQ(outcome.code, 1);
    EXPECT_NE(outcome.errors.find("/proc/self/good_s0.tif: cannot be written"), std::string::npos)
        << outcome.errors;
}

// A limit on the size of files stands for a full disk: the float plane hits it, the others do not.
TEST_F(Process_refusals, a_file_that_cannot_grow_leaves_nothing) {
    test_files::write(
        folder_ / "large.png", encoded(cv::Mat(200, 400, CV_8UC1, cv::Scalar(100)), ".png"));
    Outcome const outcome = program_run::run_command(
        {"/bin/sh", "-c",
         "ulimit -f 400; exec '" POLARIZE_PROGRAM "' process '" + in_folder("large.png") +
             "' -o '" + results() + "' --phase 0 --bit-depth 8 --quiet"});
    expect_one_line(outcome, 1, "cannot be written");
    EXPECT_FALSE(std::filesystem::exists(results()));
}

// One mebibyte of memory in the place of a folder.
class Small_disk {
public:
    explicit Small_disk(std::string const& folder)
        : folder_(folder),
          is_mounted_(mount("tmpfs", folder_.c_str(), "tmpfs", 0, "size=1m") == 0) {}
    ~Small_disk() {
        if (is_mounted_) {
            umount(folder_.c_str());
        }
    }
    Small_disk(Small_disk const&) = delete;
    Small_disk& operator=(Small_disk const&) = delete;

    bool is_mounted() const { return is_mounted_; }

private:
    std::string folder_;
    bool is_mounted_;
};

// Files that are not yet named take room, too: with two threads those of four frames, of eleven.
TEST_F(Process_refusals, a_full_disk_stops_the_run_and_leaves_whole_frames) {
    std::filesystem::create_directory(results());
    Small_disk const disk(results());
    if (!disk.is_mounted()) {
        GTEST_SKIP() << "this user may not mount a small file system";
    }
    std::vector<std::uint8_t> const recording(std::size_t{20} * 200 * 100, 7);
    test_files::write(folder_ / "run.raw", recording);
    Outcome const outcome = process_with(
        {in_folder("run.raw")},
        {"-o", results(), "--phase", "0", "--pixel-format", "Mono8", "--width", "200", "--height",
         "100", "--planes", "s0,dolp", "--jobs", "2"});
    Names const names = test_files::names_in(results());
    EXPECT_EQ(outcome.code, 1);
    EXPECT_NE(outcome.errors.find("No space left on device"), std::string::npos) << outcome.errors;
    EXPECT_NE(outcome.errors.find("stopped"), std::string::npos) << outcome.errors;
    EXPECT_LT(line_count(outcome.errors), 8U) << outcome.errors;
    EXPECT_GT(names.size(), 4U);
    EXPECT_EQ(names.size() % 4, 0U);
    for (std::string const& name : names) {
        EXPECT_EQ(name.find(".part-"), std::string::npos) << name;
    }
    std::printf("%zu files fitted\n", names.size());
}

TEST_F(Process_refusals, a_calibration_that_is_none_is_refused) {
    test_files::write(folder_ / "broken.json", std::string("{\"schema\": {\n"));
    for (auto const& [name, reason] :
         {std::pair{"broken.json", "broken.json"}, std::pair{"none.json", "none.json"}}) {
        Outcome const outcome = process_with(
            {good()}, {"-o", results(), "--bit-depth", "8", "--calibration", in_folder(name)});
        expect_one_line(outcome, 1, reason);
        EXPECT_FALSE(std::filesystem::exists(results()));
    }
}

// Nobody writes into the pipe: a program that opens it hangs.
TEST_F(Process_refusals, a_calibration_that_is_no_file_is_refused_at_once) {
    ASSERT_EQ(mkfifo((folder_ / "pipe.json").c_str(), 0600), 0);
    std::filesystem::create_directory(folder_ / "folder.json");
    for (std::string const command : {"process", "report"}) {
        for (auto const& [name, reason] :
             {std::pair{"pipe.json", "it is no regular file"},
              std::pair{"folder.json", "it is a folder"}}) {
            program_run::Running_program program(
                {POLARIZE_PROGRAM, command, good(), "-o", results(), "--bit-depth", "8",
                 "--calibration", in_folder(name)});
            ASSERT_TRUE(program.ends_within(std::chrono::seconds(60))) << command << name;
            expect_one_line(program.wait(), 1, in_folder(name) + ": cannot be read: " + reason);
            EXPECT_FALSE(std::filesystem::exists(results()));
        }
    }
}

// An emulated processor without the instructions, where the emulator is installed.
TEST_F(Process_refusals, a_processor_without_avx2_or_fma_is_refused) {
    std::string const emulator = "/usr/bin/qemu-x86_64";
    if (process_fixture::built_with_sanitizer || !std::filesystem::exists(emulator)) {
        GTEST_SKIP() << emulator << " is not installed, or the program has a sanitizer";
    }
    std::vector<std::pair<char const*, char const*>> const cases = {
        {"Haswell,-avx2", "is without AVX2;"},
        {"Haswell,-fma", "is without FMA;"},
        {"Nehalem", "is without AVX2 and FMA;"}};
    for (auto const& [processor, reason] : cases) {
        Outcome const outcome = program_run::run_command(
            {emulator, "-cpu", processor, POLARIZE_PROGRAM, "process", good(), "-o", results(),
             "--phase", "0", "--bit-depth", "8"});
        EXPECT_EQ(outcome.code, 1) << processor << ": " << outcome.errors;
        EXPECT_NE(outcome.errors.find(reason), std::string::npos) << outcome.errors;
        EXPECT_FALSE(std::filesystem::exists(results()));
    }
}

} // namespace
