// veldrane-polarize report, run as a user runs it: a page that needs nothing else, and refusals.
// What a browser shows of it is for report_browser_test.
#include "program_run.hpp"
#include "test_files.hpp"
#include "veldrane_mrv/polarization/calibration.hpp"
#include "veldrane_mrv/polarization/calibration_file.hpp"
#include "veldrane_mrv/polarization/processor.hpp"

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

namespace {

using program_run::line_count;
using program_run::Outcome;
using program_run::run;
using test_files::encoded;
using test_files::Folder;
using Names = std::vector<std::string>;

class Report_command : public testing::Test {
protected:
    void SetUp() override {
        if (!veldrane_mrv::polarization::missing_instructions().empty()) {
            GTEST_SKIP() << "this processor cannot run the transform";
        }
        test_files::write(
            folder_ / "a<b>&.png", encoded(test_files::pattern(40, 20, CV_8UC1), ".png"));
    }

    Outcome report(Names const& more, std::string const& frame = "a<b>&.png") const {
        Names arguments{"report", (folder_ / frame).string(), "-o", page(), "--bit-depth", "8"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return run(arguments);
    }
    std::string page() const { return (folder_ / "page.html").string(); }
    std::string text() const {
        auto const bytes = test_files::read(page());
        return {bytes.begin(), bytes.end()};
    }

    // The program fails with one line that holds `words`, and leaves no page.
    void expect_refusal(Outcome const& outcome, int code, std::string const& words) const {
        expect_one_line(outcome, code, words);
        for (std::string const& name : test_files::names_in(folder_.path())) {
            EXPECT_EQ(name.find(".html"), std::string::npos) << name;
        }
    }

    Folder folder_;
};

TEST_F(Report_command, page_is_complete_and_reaches_for_nothing_outside) {
    Outcome const outcome = report({"--phase", "2"});
    EXPECT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(line_count(outcome.output), 1U);
    std::string const html = text();
    EXPECT_EQ(html.find("{{"), std::string::npos);
    EXPECT_EQ(html.find("http:"), std::string::npos);
    EXPECT_EQ(html.find("https:"), std::string::npos);
    EXPECT_EQ(html.find("a<b>"), std::string::npos) << "the name is not escaped";
    for (char const* const words :
         {"default-src 'none'", "<h1>a&lt;b&gt;&amp;.png</h1>", "40 × 20 pixels", "phase 2",
          "id=\"plane-s0\"", "id=\"plane-azimuth\"", "id=\"plane-dolp\"", "</html>"}) {
        EXPECT_NE(html.find(words), std::string::npos) << words;
    }
    EXPECT_LT(html.size(), 1'500'000U);
}

TEST_F(Report_command, saturation_is_counted_before_the_dark_frame_is_subtracted) {
    cv::Mat frame(64, 64, CV_8UC1, cv::Scalar(100));
    frame.rowRange(0, 8).setTo(cv::Scalar(255));
    test_files::write(folder_ / "bright.png", encoded(frame, ".png"));
    test_files::write(
        folder_ / "dark.png", encoded(cv::Mat(64, 64, CV_8UC1, cv::Scalar(20)), ".png"));
    Outcome const outcome =
        report({"--phase", "2", "--dark", (folder_ / "dark.png").string()}, "bright.png");
    EXPECT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_NE(text().find("12.50 % of the samples reach the full scale 255"), std::string::npos);
    EXPECT_NE(text().find("100 to 255"), std::string::npos);
    EXPECT_NE(text().find("subtracted for the planes"), std::string::npos);
}

TEST_F(Report_command, a_page_that_is_there_stays_unless_it_may_be_replaced) {
    test_files::write(folder_ / "page.html", std::string("mine"));
    Outcome const refused = report({"--phase", "0"});
    expect_one_line(refused, 1);
    EXPECT_EQ(text(), "mine");
    EXPECT_EQ(report({"--phase", "0", "--overwrite"}).code, 0);
    EXPECT_NE(text(), "mine");
}

TEST_F(Report_command, a_folder_that_is_missing_is_made) {
    std::string const frame = (folder_ / "a<b>&.png").string();
    auto const deep = folder_.path() / "new" / "deeper" / "page.html";
    Outcome const outcome =
        run({"report", frame, "-o", deep.string(), "--bit-depth", "8", "--phase", "0"});
    EXPECT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_TRUE(std::filesystem::exists(deep));
}

TEST_F(Report_command, no_file_that_was_read_is_replaced_by_the_page) {
    namespace polarization = veldrane_mrv::polarization;
    std::string const frame = (folder_ / "a<b>&.png").string();
    std::string const dark = (folder_ / "dark.png").string();
    std::string const calibration = (folder_ / "sensor.json").string();
    std::string const link = (folder_ / "link.json").string();
    test_files::write(dark, encoded(cv::Mat(20, 40, CV_8UC1, cv::Scalar(1)), ".png"));
    test_files::write(
        calibration, polarization::calibration_to_json(
                         polarization::ideal_calibration(polarization::Mosaic::from_phase(0))));
    std::filesystem::create_symlink(calibration, link);
    std::string const hard_link = (folder_ / "same.json").string();
    std::filesystem::create_hard_link(calibration, hard_link);
    auto const names = test_files::names_in(folder_.path());
    unsigned refused = 0;
    for (std::string const& output : {frame, dark, calibration, link, hard_link}) {
        auto const before = test_files::read(output);
        Outcome const outcome = run(
            {"report", frame, "-o", output, "--bit-depth", "8", "--dark", dark, "--calibration",
             calibration, "--overwrite"});
        expect_refusal(
            outcome, 1, output + ": is an input and would be lost; choose another --output");
        EXPECT_EQ(test_files::read(output), before);
        EXPECT_EQ(test_files::names_in(folder_.path()), names);
        ++refused;
    }
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    std::printf("%u ways to lose a file\n", refused);
}

TEST_F(Report_command, a_folder_made_for_a_page_that_cannot_be_is_removed) {
    std::string const frame = (folder_ / "none.png").string();
    std::filesystem::create_directory(folder_ / "old");
    auto const page = folder_.path() / "old" / "new" / "deeper" / "page.html";
    expect_refusal(
        run({"report", frame, "-o", page.string(), "--bit-depth", "8", "--phase", "0"}), 1,
        "none.png");
    EXPECT_TRUE(test_files::names_in(folder_ / "old").empty());
}

TEST_F(Report_command, what_cannot_be_is_one_line) {
    expect_refusal(report({}), 2, "--phase or --layout is required");
    std::string const frame = (folder_ / "a<b>&.png").string();
    expect_refusal(report({frame, "--phase", "0"}), 2, "2 inputs");
    expect_refusal(report({"--phase", "0", "--start", "7"}), 2, "--start");
    expect_refusal(report({"--phase", "0"}, "none.png"), 1, "none.png");
    test_files::write(
        folder_ / "pixel.png", encoded(cv::Mat(1, 1, CV_8UC1, cv::Scalar(1)), ".png"));
    expect_refusal(report({"--phase", "0"}, "pixel.png"), 1, "pixel.png");
    test_files::write(
        folder_ / "large.png", encoded(cv::Mat(2002, 4000, CV_8UC1, cv::Scalar(1)), ".png"));
    expect_refusal(report({"--phase", "0"}, "large.png"), 1, "--region");
    EXPECT_EQ(report({"--phase", "0", "--region", "0,0,64,64"}, "large.png").code, 0);
}

} // namespace
