// Covers: the words of the command line, whatever the command: how numbers, choices and names are
// read, that nothing given is passed over, and what is said of everything else.
#include "process_fixture.hpp"

#include <fstream>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <regex>
#include <sstream>

namespace {

using process_fixture::Names;
using process_fixture::Process_command;
using program_run::Outcome;
using program_run::run;
using test_files::encoded;
using test_files::pattern;

std::vector<std::string> const commands = {"process", "inspect", "report", "simulate", "calibrate"};

void expect_refused(Outcome const& outcome, std::string const& line) {
    expect_one_line(outcome, 2, line);
    EXPECT_EQ(outcome.output, "");
}

// The options with a value that a command's help shows.
Names valued_options(std::string const& command) {
    std::regex const valued("^  (?:-[a-z],)?(--[a-z-]+) (?!Excludes:)[^ ]");
    Names options;
    std::istringstream help(run({command, "--help"}).output);
    for (std::string line; std::getline(help, line);) {
        std::smatch found;
        if (std::regex_search(line, found, valued)) {
            options.push_back(found[1]);
        }
    }
    return options;
}

class Command_line : public Process_command {
protected:
    Outcome process_good(Names const& more) const { return process({good()}, more); }

    // Thirteen frames of 40 x 20, each with samples of its number.
    Names recording() const {
        std::vector<std::uint8_t> samples(std::size_t{13} * 40 * 20);
        for (std::size_t index = 0; index < samples.size(); ++index) {
            samples[index] = static_cast<std::uint8_t>(index / (40 * 20));
        }
        test_files::write(folder_ / "run.raw", samples);
        return {"process",  in_folder("run.raw"),
                "-o",       results(),
                "--phase",  "0",
                "--planes", "s0",
                "--width",  "40",
                "--height", "20"};
    }

    Names results_of(Names command, Names const& more) const {
        forget_results();
        command.insert(command.end(), more.begin(), more.end());
        Outcome const outcome = run(command);
        EXPECT_EQ(outcome.code, 0) << outcome.errors;
        return test_files::names_in(results());
    }
};

TEST_F(Command_line, every_value_that_is_empty_or_forgotten_is_refused) {
    std::size_t count = 0;
    for (std::string const& command : commands) {
        Names const options = valued_options(command);
        EXPECT_GE(options.size(), 8U) << command;
        for (std::string const& option : options) {
            expect_refused(run({command, option, ""}), option + " is empty; give " + option);
            ++count;
        }
        expect_refused(run({command, ""}), command == "simulate" ? "''" : "is an empty name");
    }
    expect_refused(run({"process", good(), "--phase=", "2"}), "--phase is empty");
    expect_refused(run({"calibrate", good(), "--dark"}), "--dark has no value; give --dark FRAME");
    expect_refused(run({"process", good(), "-o"}), "--output has no value; give --output DIR");
    expect_refused(run({"process", good(), "-o", ""}), "--output is empty; give --output DIR");
    expect_refused(
        process_good({"--units", "--overwrite"}), "--units has no value; give --units sc");
    expect_refused(process_good({"--units", "-q"}), "--units has no value");
    expect_refused(run({""}), "the subcommand is empty");
    std::printf("%zu options with a value\n", count);
    EXPECT_GE(count, 50U);
}

TEST_F(Command_line, numbers_are_decimal_with_zeros_in_front_or_not) {
    Names const some = {
        "run_000010_s0.json", "run_000010_s0.tif", "run_000011_s0.json", "run_000011_s0.tif"};
    EXPECT_EQ(
        results_of(
            recording(), {"--pixel-format", "Mono8", "--start", "000010", "--stop", "000012"}),
        some);
    // 010 bits hold the samples up to 1023: with 8 of them the picture would be another.
    EXPECT_EQ(
        results_of(
            recording(), {"--pixel-format", "Mono8", "--bit-depth", "010", "--start", "012"}),
        (Names{"run_000012_s0.json", "run_000012_s0.tif"}));
    std::ifstream sidecar(result("run_000012_s0.json"));
    EXPECT_EQ(nlohmann::json::parse(sidecar)["bit_depth"], 10);
    EXPECT_EQ(
        results_of(
            {"process", good(), "-o", results(), "--phase", "00", "--bit-depth", "08"},
            {"--planes", "s0", "--no-pictures", "--region", "08,00,032,016"})
            .size(),
        2U);
    std::vector<std::pair<Names, std::string>> const cases = {
        {{"--full-scale", "0xff"}, "--full-scale is 0xff; give a whole number from 1 to 65535"},
        {{"--full-scale", "0b11"}, "--full-scale is 0b11"},
        {{"--full-scale", "0o77"}, "--full-scale is 0o77"},
        {{"--full-scale", "+9"}, "--full-scale is +9"},
        {{"--full-scale", " 9"}, "--full-scale is  9"},
        {{"--full-scale", "1e3"}, "--full-scale is 1e3"},
        {{"--full-scale", "4294967297"}, "--full-scale is 4294967297"},
        {{"--start", "-1"}, "--start is -1; give a whole number from 0 to 18446744073709551615"},
        {{"--start", "18446744073709551616"}, "--start is 18446744073709551616"},
        {{"--stop", "99999999999999999999999"}, "--stop is 99999999999999999999999"},
        {{"--step", "18446744073709551617"}, "--step is 18446744073709551617"},
        {{"--step", "0x2"}, "--step is 0x2"},
        {{"--region", "0x8,0,32,16"}, "--region is 0x8,0,32,16; give COLUMN"},
        {{"--region", "18446744073709551624,0,32,16"},
         "--region is 18446744073709551624,0,32,16; give"}};
    for (auto const& [more, line] : cases) {
        expect_refused(process_good(more), line);
    }
    std::string const frame = in_folder("new.png");
    for (auto const& [option, value] : std::vector<std::pair<std::string, std::string>>{
             {"--seed", "9223372036854775808"},
             {"--seed", "18446744073709551616"},
             {"--seed", "0x10"},
             {"--polarizer-series", "0x0:90:45"},
             {"--polarizer-series", "0:0x5a:45"},
             {"--polarizer-series", "0:nan:45"},
             {"--polarizer-series", "0: 90:45"},
             {"--polarizer-series", "0:90:45:1"}}) {
        expect_refused(run({"simulate", "-o", frame, option, value}), option + " is " + value);
    }
    EXPECT_FALSE(std::filesystem::exists(frame));
    expect_refused(
        run({"inspect", good(), "--polarizer-angle", "0x10"}), "--polarizer-angle is 0x10; give");
    EXPECT_EQ(run({"inspect", good(), "--polarizer-angle", "+045.0"}).code, 0);
}

TEST_F(Command_line, case_does_not_matter_in_choices) {
    EXPECT_EQ(
        results_of(
            {"process", good(), "-o", results(), "--phase", "0", "--bit-depth", "8"},
            {"--mode", "FAST", "--format", "NPY", "--units", "Degrees", "--planes", "S0,Azimuth",
             "--no-pictures"}),
        (Names{"good_azimuth.json", "good_azimuth.npy", "good_s0.json", "good_s0.npy"}));
    EXPECT_EQ(results_of(recording(), {"--pixel-format", "mONO8"}).size(), 26U);
    expect_refused(process_good({"--mode", "jpg"}), "--mode is jpg; give fast or calibrated");
    expect_refused(process_good({"--format", "0"}), "--format is 0; give tiff, png, raw or npy");
    expect_refused(process_good({"--units", "1"}), "--units is 1; give scaled, degrees or radians");
}

TEST_F(Command_line, unknown_words_are_told_with_what_may_have_been_meant) {
    std::vector<std::pair<Names, std::string>> const cases = {
        {{"--phase", "2", "process", good()},
         "--phase is an option of process, live, report, view, simulate"},
        {{"--out=x", "process"}, "--out=x is no option of the program; begin with a command: pro"},
        {{"--versoin"}, "--versoin is no option of the program; did you mean --version?"},
        {{"process", good(), "--overwrit"},
         "--overwrit is no option of process; did you mean --ov"},
        {{"process", good(), "--bitdepth", "8"}, "did you mean --bit-depth?"},
        {{"process", good(), "--sideways"}, "--sideways is no option of process; veldrane-polar"},
        {{"process", good(), "-qx"}, "-qx is no option of process"},
        {{"process", good(), "-o=x"}, "-o=x is no option; write -o x"},
        {{"process", good(), "--quiet=no"}, "--quiet=no gives a flag a value; write --quiet alone"},
        {{"process", good(), "--quiet", "3", "-o", results()}, "3 is neither a file nor the value"},
        {{"simulate", "-o", "a.png", "b.png"}, "'b.png' is no option, and simulate takes nothing"},
        {{"report", good(), "-o", "a.html", "--stop", "2"}, "--stop is no option of report"}};
    for (auto const& [words, line] : cases) {
        expect_refused(run(words), line);
    }
    expect_refused(process_good({"--phase", "0"}), "--phase is given twice; give it once");
    expect_refused(process_good({"--pictures", "--no-pictures"}), "contradicts --pictures");
    EXPECT_EQ(run({"process", "--phase", "7", "--help"}).code, 0);
    EXPECT_EQ(run({"--help", "process"}).output, run({"process", "--help"}).output);
}

// Brackets, dashes and doubled signs mean something to a parser.
TEST_F(Command_line, names_of_frames_are_taken_as_they_stand) {
    Names inputs;
    for (std::string const name : {"[1,2]", "{}", "%%", "++", "-q", "--overwrite", "process"}) {
        std::filesystem::copy_file(good(), folder_ / name);
        inputs.push_back(name);
    }
    std::string command = "cd '" + folder_.path().string() +
                          "' && exec '" POLARIZE_PROGRAM "' process -o results --phase 0 "
                          "--bit-depth 8 --planes s0 --no-pictures --";
    for (std::string const& name : inputs) {
        command += " '" + name + "'";
    }
    Outcome const outcome = program_run::run_command({"/bin/sh", "-c", command});
    EXPECT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_EQ(test_files::names_in(results()).size(), 2 * inputs.size());
}

TEST_F(Command_line, each_dark_option_takes_one_value) {
    for (auto const& [name, level] : {std::pair{"dark1.png", 1}, std::pair{"dark2.png", 3}}) {
        test_files::write(
            folder_ / name, encoded(cv::Mat(20, 40, CV_8UC1, cv::Scalar(level)), ".png"));
    }
    std::filesystem::copy_file(good(), folder_ / "more.png");
    Outcome const outcome = run(
        {"process", "-o", results(), "--phase", "0", "--bit-depth", "8", "--planes", "s0",
         "--no-pictures", "--dark", in_folder("dark1.png"), good(), "--dark",
         in_folder("dark2.png"), in_folder("more.png")});
    EXPECT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_EQ(
        test_files::names_in(results()),
        (Names{"good_s0.json", "good_s0.tif", "more_s0.json", "more_s0.tif"}));
    std::ifstream sidecar(result("more_s0.json"));
    EXPECT_EQ(
        nlohmann::json::parse(sidecar)["source"]["dark_frames"],
        (Names{in_folder("dark1.png"), in_folder("dark2.png")}));
}

TEST_F(Command_line, options_without_effect_are_refused) {
    std::vector<std::pair<Names, std::string>> const cases = {
        {{"--pictures", "--planes", "s0,azimuth"}, "--pictures is about dolp"},
        {{"--signed", "--planes", "s0,dolp"}, "--signed is about s1 and s2"},
        {{"--units", "degrees", "--planes", "normalized_stokes"}, "--units is about s0"},
        {{"--full-scale", "9", "--planes", "normalized_stokes"}, "--full-scale is about s0"},
        {{"--repeat", "2", "--jobs", "2"},
         "--repeat measures one frame at a time, but --jobs is 2"},
        {{"--header-bytes", "0"}, "--header-bytes is nothing without --pixel-format"}};
    for (auto const& [more, line] : cases) {
        expect_refused(process_good(more), line);
    }
    std::string const frame = in_folder("new.png");
    expect_refused(
        run({"simulate", "-o", frame, "--pixel-format", "Mono16"}), "--pixel-format is for .raw");
    expect_refused(
        run({"simulate", "-o", frame, "--no-noise", "--seed", "2"}), "--seed and --no-noise");
    EXPECT_FALSE(std::filesystem::exists(frame));
}

// 800 bytes behind a header: as bare samples they would make a frame.
TEST_F(Command_line, images_are_no_bare_samples) {
    auto const padded = [](std::vector<std::uint8_t> bytes) {
        bytes.resize(800);
        return bytes;
    };
    test_files::write(
        folder_ / "a.png", padded(encoded(cv::Mat(20, 40, CV_8UC1, cv::Scalar(7)), ".png")));
    test_files::write(folder_ / "a.tif", padded({'I', 'I', 42, 0}));
    Names const raw = {"--pixel-format", "Mono8", "--width", "40", "--height", "20"};
    expect_refused(
        process({in_folder("a.png")}, raw),
        "--pixel-format is for bare samples, but " + in_folder("a.png") + " is a PNG image");
    expect_refused(process({in_folder("a.tif")}, raw), " is a TIFF image; leave the option out");
    EXPECT_FALSE(std::filesystem::exists(results()));
}

class Names_of_files : public Command_line {
protected:
    void expect_visible(std::string const& text) const {
        for (char const letter : text) {
            EXPECT_TRUE(letter == '\n' || (letter >= 0x20 && letter != 0x7f)) << text;
        }
    }
};

TEST_F(Names_of_files, never_reach_a_terminal_as_they_stand) {
    std::string const name = in_folder("a\x1b[31m\nforged\r\xff\u202e");
    std::string const shown = in_folder("a\\x1b[31m\\nforged\\r\\xff\\u202e");
    std::string const frame = name + ".png";
    ASSERT_EQ(
        run({"simulate", "-o", frame, "--width", "40", "--height", "20", "--truth",
             in_folder("t\x1b")})
            .code,
        0);
    std::vector<Names> const cases = {
        {"inspect", frame},
        {"inspect", frame, "--json"},
        {"process", frame, "-o", name, "--phase", "0", "--bit-depth", "12"},
        {"process", frame, "-o", name, "--phase", "0", "--bit-depth", "8"}, // warns
        {"report", frame, "-o", name + ".html", "--phase", "0", "--bit-depth", "12"},
        {"simulate", "-o", name + "2.png", "--width", "40", "--height", "20", "--truth", name},
        {"simulate", "-o", name + "3.gif"},
        {"inspect", name},
        {"process", "--" + name},
        {name}};
    for (Names const& words : cases) {
        Outcome const outcome = run(words);
        expect_visible(outcome.output);
        expect_visible(outcome.errors);
        EXPECT_NE(outcome.output + outcome.errors, "") << words.front();
        EXPECT_EQ((outcome.output + outcome.errors).find("\nforged"), std::string::npos);
    }
    EXPECT_NE(run({"inspect", name + "none"}).errors.find(shown + "none: "), std::string::npos);
}

TEST_F(Names_of_files, that_are_no_utf8_stand_in_every_json_file_and_page) {
    std::string const frame = in_folder("caf\xe9.png");
    std::filesystem::copy_file(good(), frame);
    ASSERT_EQ(process({frame}, {"--planes", "s0"}).code, 0);
    std::ifstream file(result("caf\xe9_s0.json"));
    auto const sidecar = nlohmann::json::parse(file);
    EXPECT_EQ(sidecar["file"], "caf\\xe9_s0.tif");
    EXPECT_EQ(sidecar["source"]["file"], in_folder("caf\\xe9.png"));
    auto const inspected = nlohmann::json::parse(run({"inspect", "--json", frame}).output);
    EXPECT_EQ(inspected["frame"], in_folder("caf\\xe9.png"));
    ASSERT_EQ(
        run({"report", frame, "-o", in_folder("page.html"), "--phase", "0", "--bit-depth", "8"})
            .code,
        0);
    auto const page = test_files::read(folder_ / "page.html");
    std::string const text(page.begin(), page.end());
    EXPECT_NE(text.find("caf\\xe9.png"), std::string::npos);
    EXPECT_EQ(text.find("caf\xe9"), std::string::npos);
}

TEST_F(Names_of_files, that_are_no_utf8_do_not_stop_a_calibration) {
    ASSERT_EQ(
        run({"simulate", "-o", in_folder("s\xe9.png"), "--width", "40", "--height", "20",
             "--polarizer-series", "0:135:45"})
            .code,
        0);
    Names command = {"calibrate",   in_folder("s*angle_*.png"),
                     "-o",          in_folder("new.json"),
                     "--phase",     "0",
                     "--bit-depth", "12"};
    Outcome const outcome = run(command);
    EXPECT_EQ(outcome.code, 0) << outcome.errors;
    command.insert(command.end(), {"--overwrite", "--sensor", "caf\xe9"});
    expect_refused(run(command), "--sensor is caf\\xe9, which is not UTF-8; give a name in UTF-8");
}

} // namespace
