// veldrane-polarize calibrate: figures against those that were simulated, and every refusal.
#include "input/angle_list.hpp"
#include "program_run.hpp"
#include "test_files.hpp"
#include "veldrane_mrv/polarization/calibration_file.hpp"

#include <cmath>
#include <fstream>
#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>
#include <sys/stat.h>

namespace {

using program_run::line_count;
using program_run::Outcome;
using program_run::run;
using Names = std::vector<std::string>;
namespace polarization = veldrane_mrv::polarization;

class Calibrate_command : public testing::Test {
protected:
    void simulate_series(Names const& more = {}) const {
        Names arguments = {
            "simulate",
            "-o",
            in_folder("cal.png"),
            "--polarizer-series",
            "0:165:15",
            "--width",
            "120",
            "--height",
            "100",
            "--phase",
            "2",
            "--bit-depth",
            "12",
            "--imperfect"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        Outcome const outcome = run(arguments);
        ASSERT_EQ(outcome.code, 0) << outcome.errors;
    }

    Outcome calibrate(Names const& more = {}, std::string const& frames = "cal_angle_*.png") const {
        Names arguments = {"calibrate", in_folder(frames), "-o", in_folder("out.json"), "--phase",
                           "2",         "--bit-depth",     "12"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return run(arguments);
    }

    void expect_refused(Outcome const& outcome, int code, std::string const& word) const {
        EXPECT_EQ(outcome.code, code) << outcome.errors;
        EXPECT_NE(outcome.errors.find(word), std::string::npos) << word << ": " << outcome.errors;
        EXPECT_EQ(outcome.output, "");
        for (std::string const& name : test_files::names_in(folder_.path())) {
            EXPECT_EQ(name.find("out."), std::string::npos) << name;
        }
    }

    // Every sample of the series times `gain` plus a dark level, up to the full scale. The dark
    // frame is `dark.png`; behind column 59 its level is `right`.
    void add_dark(int gain, int left, int right) const {
        cv::Mat dark(100, 120, CV_16UC1, cv::Scalar(left));
        dark.colRange(60, 120).setTo(cv::Scalar(right));
        test_files::write(folder_ / "dark.png", test_files::encoded(dark, ".png"));
        for (std::string const& name : test_files::names_in(folder_.path())) {
            if (name.starts_with("cal_angle_") && name.ends_with(".png")) {
                cv::Mat frame = cv::imread(in_folder(name), cv::IMREAD_UNCHANGED);
                frame = cv::min(frame * gain + dark, 4095);
                test_files::write(folder_ / name, test_files::encoded(frame, ".png"));
            }
        }
    }

    std::string in_folder(std::string const& name) const { return (folder_ / name).string(); }

    test_files::Folder folder_;
};

TEST_F(Calibrate_command, finds_the_analysers_that_were_simulated) {
    double worst_orientation = 0.0;
    double worst_figure = 0.0;
    for (char const* const seed : {"1", "2", "3", "4"}) {
        simulate_series({"--analyser-seed", seed, "--overwrite"});
        Outcome const outcome = calibrate({"--sensor", "number 7", "--overwrite"});
        ASSERT_EQ(outcome.code, 0) << outcome.errors;
        auto const truth = polarization::load_calibration(folder_ / "cal_analysers.json");
        auto const found = polarization::load_calibration(folder_ / "out.json");
        EXPECT_EQ(found.provenance.sensor, "number 7");
        EXPECT_EQ(found.provenance.sources.size(), 12U);
        EXPECT_EQ(found.quality.frame_count, 12U);
        for (std::size_t position = 0; position < 4; ++position) {
            auto const& expected = truth.analysers[position];
            auto const& analyser = found.analysers[position];
            worst_orientation = std::max(
                worst_orientation,
                std::abs(std::remainder(analyser.orientation - expected.orientation, 180.0)));
            worst_figure = std::max(
                {worst_figure, std::abs(analyser.throughput - expected.throughput),
                 std::abs(analyser.diattenuation - expected.diattenuation)});
        }
    }
    std::printf(
        "4 sensors: orientations within %.4f degrees, throughput and diattenuation within %.5f\n",
        worst_orientation, worst_figure);
    EXPECT_LT(worst_orientation, 0.1);
    EXPECT_LT(worst_figure, 0.003);
}

TEST_F(Calibrate_command, prints_a_table_and_draws_a_plot) {
    simulate_series();
    Outcome const outcome = calibrate();
    ASSERT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_GE(line_count(outcome.output), 7U) << outcome.output;
    for (char const* const word :
         {"throughput", "diattenuation", "orientation", "residual", "135"}) {
        EXPECT_NE(outcome.output.find(word), std::string::npos) << word;
    }
    cv::Mat const plot = cv::imread(in_folder("out.png"));
    EXPECT_EQ(plot.size(), cv::Size(960, 720));
    cv::Scalar mean;
    cv::Scalar deviation;
    cv::meanStdDev(plot, mean, deviation);
    EXPECT_GT(deviation[0], 10.0) << "something has been drawn";
    Outcome const again = calibrate();
    EXPECT_EQ(again.code, 1);
    EXPECT_NE(again.errors.find("--overwrite"), std::string::npos) << again.errors;
}

TEST_F(Calibrate_command, angles_from_a_table_agree_with_those_from_names) {
    simulate_series();
    ASSERT_EQ(calibrate().code, 0);
    auto const by_name = polarization::load_calibration(folder_ / "out.json");
    ASSERT_EQ(calibrate({"--angles", in_folder("cal_angles.csv"), "--overwrite"}).code, 0);
    auto const by_table = polarization::load_calibration(folder_ / "out.json");
    EXPECT_EQ(by_name.matrices, by_table.matrices);
    std::filesystem::remove(folder_ / "out.json");
    std::filesystem::remove(folder_ / "out.png");
    std::vector<std::pair<std::string, char const*>> const cases = {
        {"name,angle\n", "names no column 'file'"},
        {"file,angle\ncal_angle_000.0.png\n", "line 2: has 1 values for 2 columns"},
        {"file;angle\n\ncal_angle_000.0.png;east\n", "line 3: angle 'east' is no number"},
        {"file;angle\ncal_angle_000.0.png;0x10\n", "line 2: angle '0x10' is no number"},
        {"file,angle\ncal_angle_000.0.png,inf\n", "line 2: angle 'inf' is no number"},
        {"file,angle\ncal_angle_000.0.png,\"4,5\"\n", "line 2: angle '4,5' is no number"},
        {"file;angle\ncal_angle_000.0.png;1.000,5\n", "line 2: angle '1.000,5' is no number"},
        {"file;angle\ncal_angle_000.0.png;+-5\n", "line 2: angle '+-5' is no number"},
        {"file,angle\nx/a.png,0\n\n/y/a.png,0\n", "line 4: names a.png again, after line 2"},
        {"file,angle,intensity\na.png,0,-1\n", "line 2: intensity '-1' is not above 0"},
        {"file,Angle,angle\n", "line 1 names the column 'angle' twice"},
        {"\xFF\xFE"
         "f",
         "is UTF-16"},
        {std::string("f\0i\0l\0e\0", 8), "is UTF-16"},
        {"angle,file\n0,other.png\n", "has no row in"}};
    for (auto const& [table, reason] : cases) {
        test_files::write(folder_ / "table.csv", table);
        expect_refused(calibrate({"--angles", in_folder("table.csv")}), 1, reason);
    }
    expect_refused(calibrate({"--angles", in_folder("none.csv")}), 1, "No such file");
}

TEST_F(Calibrate_command, tables_are_read_as_spreadsheets_write_them) {
    simulate_series();
    ASSERT_EQ(calibrate().code, 0);
    auto const by_name = polarization::load_calibration(folder_ / "out.json");
    struct Form {
        std::string start;
        char separator;
        char point;
        std::string sign;
        std::string end_of_line;
        std::string quote;
    };
    std::vector<Form> const forms = {
        {"\xEF\xBB\xBF"
         "File;Angle",
         ';', ',', "", "\r\n", ""},
        {"\xEF\xBB\xBF"
         "FILE,ANGLE",
         ',', '.', "+", "\r\n", "\""},
        {"file\tangle", '\t', ',', "+", "\n", ""},
        {"\"File\" ; \"Angle\"", ';', '.', "", "\r\n", "\""}};
    for (Form const& form : forms) {
        std::string table = form.start + form.end_of_line;
        for (int angle = 0; angle < 180; angle += 15) {
            char name[40];
            std::snprintf(name, sizeof name, "cal_angle_%05.1f.png", 1.0 * angle);
            table += form.quote + name + form.quote + form.separator + form.sign +
                     std::to_string(angle) + form.point + "0" + form.end_of_line;
        }
        table += std::string(1, form.separator) + form.end_of_line;
        test_files::write(folder_ / "table.csv", table);
        Outcome const outcome = calibrate({"--angles", in_folder("table.csv"), "--overwrite"});
        ASSERT_EQ(outcome.code, 0) << outcome.errors;
        auto const by_table = polarization::load_calibration(folder_ / "out.json");
        EXPECT_EQ(by_name.matrices, by_table.matrices) << form.start;
    }
    test_files::write(folder_ / "table.csv", std::string("file,angle\n\"a, \"\"b\"\".png\",7\n"));
    auto const settings =
        polarize_tool::settings_from_table(folder_ / "table.csv", {{"x/a, \"b\".png", 0, 1}});
    ASSERT_EQ(settings.size(), 1U);
    EXPECT_EQ(settings[0].angle, 7.0);
}

TEST_F(Calibrate_command, an_offset_and_a_wrong_frame_are_told_in_a_line_each) {
    simulate_series({"--analyser-seed", "3"});
    auto const truth = polarization::load_calibration(folder_ / "cal_analysers.json");
    double const own = common_offset(truth.analysers, truth.mosaic);
    std::string table = "file,angle\n";
    for (int angle = 0; angle < 180; angle += 15) {
        char line[80];
        std::snprintf(
            line, sizeof line, "cal_angle_%05.1f.png,%.3f\n", 1.0 * angle,
            angle + 5.25 - own + (angle == 45 ? 6 : 0));
        table += line;
    }
    test_files::write(folder_ / "table.csv", table);
    Outcome const outcome = calibrate({"--angles", in_folder("table.csv"), "-q"});
    ASSERT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_EQ(outcome.output, "");
    for (std::string const word :
         {"off by +5.", "turned by as much", "off its angles", "cal_angle_045.0.png at "}) {
        EXPECT_NE(outcome.errors.find(word), std::string::npos) << word << ": " << outcome.errors;
    }
    EXPECT_EQ(outcome.errors.find("cal_angle_060"), std::string::npos) << outcome.errors;
    auto const found = polarization::load_calibration(folder_ / "out.json");
    ASSERT_EQ(found.quality.outlying_frames.size(), 1U);
    EXPECT_GT(found.quality.outlying_frames[0].residual, 0.1);
    // No dark level, a large residual, the offset, the frame.
    EXPECT_EQ(line_count(outcome.errors), 4U) << outcome.errors;
    Outcome const shown = calibrate({"--angles", in_folder("table.csv"), "--overwrite"});
    EXPECT_NE(shown.output.find("orientations off by +"), std::string::npos) << shown.output;
}

TEST_F(Calibrate_command, what_many_frames_have_in_common_is_said_once) {
    simulate_series();
    add_dark(3, 100, 100);
    Outcome const saturated = calibrate();
    expect_refused(saturated, 1, "not written, since 12 of 12 frames cannot be used");
    EXPECT_NE(
        saturated.errors.find("(11 more likewise, up to " + in_folder("cal_angle_165.0.png") + ")"),
        std::string::npos)
        << saturated.errors;
    EXPECT_EQ(line_count(saturated.errors), 2U) << saturated.errors;
    std::string const first = in_folder("cal_angle_000.0.png");
    EXPECT_EQ(saturated.errors.find(first), saturated.errors.rfind(first)) << saturated.errors;
}

TEST_F(Calibrate_command, dark_frames_that_are_brighter_than_the_frames_are_told_once) {
    simulate_series();
    add_dark(1, 0, 0);
    test_files::write(
        folder_ / "dark.png",
        test_files::encoded(cv::Mat(100, 120, CV_16UC1, cv::Scalar(4000)), ".png"));
    Outcome const outcome = calibrate({"--dark", in_folder("dark.png")});
    expect_refused(outcome, 1, "darker than the dark level");
    // The warning, the fault of all frames, what was not written.
    EXPECT_EQ(line_count(outcome.errors), 3U) << outcome.errors;
    Outcome const processed = run(
        {"process", in_folder("cal_angle_*.png"), "-o", in_folder("results"), "--phase", "2",
         "--bit-depth", "12", "--planes", "s0", "--no-pictures", "--dark", in_folder("dark.png")});
    expect_one_line(processed, 0, "clips to 0");
}

TEST_F(Calibrate_command, series_that_do_not_make_a_calibration_are_refused) {
    simulate_series();
    expect_refused(calibrate({}, "cal_angle_000.0.png"), 1, "angle");
    expect_refused(calibrate({"--phase", "2"}), 2, "--phase");
    expect_refused(calibrate({"--start", "12"}), 2, "leave no frame; ");
    expect_refused(
        run(
            {"calibrate", in_folder("cal_angle_*.png"), "-o", in_folder("out.json"), "--phase", "0",
             "--bit-depth", "12"}),
        1, "orientation");
    expect_refused(
        run(
            {"calibrate", in_folder("cal_angle_*.png"), "-o", in_folder("out.json"), "--bit-depth",
             "12"}),
        2, "--phase or --layout is required");
    expect_refused(
        run(
            {"calibrate", in_folder("cal_angle_*.png"), "-o", "/proc/self/out.json", "--phase", "2",
             "--bit-depth", "12"}),
        1, "/proc/self/out.json: cannot be written");
    std::filesystem::copy_file(folder_ / "cal_angle_000.0.png", folder_ / "cal_angle_of_what.png");
    expect_refused(calibrate(), 1, "its name tells no angle");
    std::filesystem::remove(folder_ / "cal_angle_of_what.png");
    test_files::write(folder_ / "cal_angle_010.0.png", "not an image");
    expect_refused(calibrate(), 1, "1 of 13 frames cannot be used");
}

TEST_F(Calibrate_command, dark_frames_are_taken_off_and_recorded) {
    simulate_series({"--analyser-seed", "5"});
    add_dark(1, 100, 300);
    auto const truth = polarization::load_calibration(folder_ / "cal_analysers.json");
    double worst = 0.0;
    for (auto const& [region, level] :
         {std::pair("0,0,60,100", 100.0), std::pair("61,1,59,99", 300.0),
          std::pair("0,0,120,100", 200.0)}) {
        Outcome const outcome =
            calibrate({"--dark", in_folder("dark.png"), "--region", region, "--overwrite"});
        ASSERT_EQ(outcome.code, 0) << outcome.errors;
        auto const found = polarization::load_calibration(folder_ / "out.json");
        EXPECT_TRUE(found.quality.flags.empty());
        for (std::size_t position = 0; position < 4; ++position) {
            auto const& analyser = found.analysers[position];
            EXPECT_DOUBLE_EQ(analyser.dark_level.value_or(-1.0), level);
            worst = std::max(
                worst, std::abs(analyser.diattenuation - truth.analysers[position].diattenuation));
        }
    }
    std::printf("3 regions: diattenuation within %.5f\n", worst);
    EXPECT_LT(worst, 0.01);
}

TEST_F(Calibrate_command, saturation_is_seen_through_dark_frames) {
    simulate_series();
    add_dark(3, 100, 100);
    expect_refused(calibrate({"--dark", in_folder("dark.png")}), 1, "saturated");
}

TEST_F(Calibrate_command, files_that_are_read_are_never_replaced) {
    simulate_series();
    add_dark(1, 0, 0);
    std::filesystem::copy_file(folder_ / "cal_angle_000.0.png", folder_ / "first.png");
    auto const contents = [this] {
        std::vector<std::vector<std::uint8_t>> all;
        for (std::string const& name : test_files::names_in(folder_.path())) {
            all.push_back(test_files::read(folder_ / name));
        }
        return all;
    };
    auto const before = contents();
    Names const common = {"calibrate",   in_folder("cal_angle_*.png"),
                          "--phase",     "2",
                          "--bit-depth", "12",
                          "--angles",    in_folder("cal_angles.csv"),
                          "--dark",      in_folder("dark.png"),
                          "--overwrite"};
    struct Case {
        Names more;
        int code;
        char const* word;
    };
    std::vector<Case> const cases = {
        {{"-o", in_folder("dark.json")}, 1, "dark.png: is an input"},
        {{"-o", in_folder("cal_angle_000.0.json")}, 1, "--plot"},
        {{"-o", in_folder("cal_angle_015.0.png"), "--plot", in_folder("out.png")}, 1, "--output"},
        {{"-o", in_folder("cal_angles.csv")}, 1, "cal_angles.csv: is an input"},
        {{"-o", in_folder("out.json"), "--plot", in_folder("cal_angles.csv")}, 1, "--plot"},
        {{"-o", in_folder("out.png")}, 2, "--plot and --output"},
        {{"-o", in_folder("out.json"), "--plot", folder_.path().string() + "/./out.json"},
         2,
         "--plot and --output"}};
    for (Case const& wanted : cases) {
        Names arguments = common;
        arguments.insert(arguments.end(), wanted.more.begin(), wanted.more.end());
        expect_refused(run(arguments), wanted.code, wanted.word);
        EXPECT_EQ(contents(), before) << wanted.word;
    }
    std::printf("%zu ways to lose a file\n", cases.size());
}

// Nobody writes into the pipe: a program that opens it hangs.
TEST_F(Calibrate_command, a_table_that_is_a_pipe_is_refused_at_once) {
    simulate_series();
    ASSERT_EQ(mkfifo((folder_ / "pipe.csv").c_str(), 0600), 0);
    program_run::Running_program program(
        {POLARIZE_PROGRAM, "calibrate", in_folder("cal_angle_*.png"), "-o",
         in_folder("new/out.json"), "--phase", "2", "--bit-depth", "12", "--angles",
         in_folder("pipe.csv")});
    ASSERT_TRUE(program.ends_within(std::chrono::seconds(60)));
    Outcome const outcome = program.wait();
    expect_refused(outcome, 1, "pipe.csv: cannot be read: it is no regular file");
    EXPECT_EQ(line_count(outcome.errors), 1U) << outcome.errors;
    EXPECT_FALSE(std::filesystem::exists(folder_ / "new"));
}

// Calibration and plot lie among the frames then, and a later run finds them there.
TEST_F(Calibrate_command, what_it_wrote_among_the_frames_is_no_frame) {
    simulate_series();
    std::filesystem::create_directory(folder_ / "series");
    Names frames;
    for (std::string const& name : test_files::names_in(folder_.path())) {
        if (name.starts_with("cal_angle_")) {
            std::filesystem::rename(folder_ / name, folder_ / "series" / name);
            frames.push_back(in_folder("series/" + name));
        }
    }
    auto const calibrated = [this](Names const& inputs, std::string const& output) {
        Names arguments = {"calibrate"};
        arguments.insert(arguments.end(), inputs.begin(), inputs.end());
        arguments.insert(
            arguments.end(), {"-o", in_folder("series/" + output), "--phase", "2", "--bit-depth",
                              "12", "--overwrite"});
        Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.code, 0) << outcome.errors;
        EXPECT_EQ(
            polarization::load_calibration(in_folder("series/" + output)).quality.frame_count, 12U);
        return outcome;
    };
    unsigned runs = 0;
    for (std::string const output : {"sensor.json", "sensor.json", "other.json"}) {
        for (std::string const input : {"series", "series/*.png", "series/*"}) {
            EXPECT_EQ(
                calibrated({in_folder(input)}, output).errors.find("passed over"),
                std::string::npos);
            ++runs;
        }
    }
    // One by one, as a shell hands over a pattern that nobody quoted.
    frames.push_back(in_folder("series/sensor.png"));
    Outcome const named = calibrated(frames, "sensor.json");
    EXPECT_NE(
        named.errors.find("series/sensor.png: passed over, since `calibrate` made it"),
        std::string::npos)
        << named.errors;
    Outcome const alone = run({"inspect", in_folder("series/sensor.png")});
    EXPECT_EQ(alone.code, 1);
    EXPECT_NE(alone.errors.find("colour image"), std::string::npos) << alone.errors;
    Outcome const none = run({"inspect", in_folder("series/[os]*.png")});
    EXPECT_EQ(none.code, 1);
    EXPECT_NE(none.errors.find("only what `calibrate` made"), std::string::npos) << none.errors;
    std::printf("%u runs among what others left\n", runs);
}

TEST_F(Calibrate_command, numbers_that_are_not_finite_are_refused) {
    simulate_series();
    expect_refused(calibrate({"--source-degree", "nan"}), 2, "--source-degree");
}

TEST_F(Calibrate_command, a_region_keeps_the_mosaic_of_the_whole_frame) {
    simulate_series();
    ASSERT_EQ(calibrate().code, 0);
    auto const whole = polarization::load_calibration(folder_ / "out.json");
    ASSERT_EQ(calibrate({"--region", "11,13,71,57", "--overwrite"}).code, 0);
    auto const part = polarization::load_calibration(folder_ / "out.json");
    for (std::size_t position = 0; position < 4; ++position) {
        EXPECT_NEAR(
            whole.analysers[position].orientation, part.analysers[position].orientation, 0.2);
    }
    EXPECT_NE(whole.matrices, part.matrices);
}

} // namespace
