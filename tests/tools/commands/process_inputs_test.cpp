// veldrane-polarize process: every kind of input gives the planes of the frame that it holds.
#include "process_fixture.hpp"
#include "veldrane_mrv/polarization/pixel_format.hpp"
#include "veldrane_mrv/polarization/simulation.hpp"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <numbers>
#include <opencv2/imgcodecs.hpp>
#include <random>
#include <tiffio.h>

namespace {

using namespace veldrane_mrv::polarization;
using process_fixture::Names;
using process_fixture::Process_command;
using program_run::line_count;
using program_run::Outcome;
using test_files::encoded;
using test_files::pattern;

constexpr std::size_t width = 47;
constexpr std::size_t height = 21;

// Frame `number` of a small recording, samples of 12 bits.
std::vector<std::uint16_t> recorded(std::size_t number) {
    std::vector<std::uint16_t> samples(width * height);
    for (std::size_t index = 0; index < samples.size(); ++index) {
        samples[index] = static_cast<std::uint16_t>((index * 97 + number * 1231) & 0xFFFU);
    }
    return samples;
}

cv::Mat image_of(std::size_t number) {
    std::vector<std::uint16_t> samples = recorded(number);
    return cv::Mat(height, width, CV_16UC1, samples.data()).clone();
}

class Process_inputs : public Process_command {
protected:
    Outcome process12(Names const& inputs, Names const& more = {}) const {
        Names options = {"-o", results(), "--phase", "1", "--bit-depth", "12", "--no-pictures"};
        options.insert(options.end(), more.begin(), more.end());
        return process_with(inputs, options);
    }

    // What the frames should give, by way of PNG files.
    void expect_frame(std::string const& stem, std::size_t number) const {
        test_files::Folder const other;
        test_files::write(other / "frame.png", encoded(image_of(number), ".png"));
        ASSERT_EQ(
            process_with(
                {(other / "frame.png").string()},
                {"-o", other.path().string(), "--phase", "1", "--bit-depth", "12"})
                .code,
            0);
        for (char const* const plane : {"s0", "s1", "s2", "azimuth", "dolp"}) {
            EXPECT_EQ(
                test_files::read(result(stem + "_" + plane + ".tif")),
                test_files::read(other / (std::string("frame_") + plane + ".tif")))
                << stem << " " << plane;
        }
    }

    std::string write_recording(
        Pixel_format format, std::size_t frames, std::size_t header = 0, std::size_t stride = 0) {
        std::size_t const row = stride == 0 ? bytes_per_row(format, width) : stride;
        std::vector<std::uint8_t> bytes(header + frames * row * height, 0xEE);
        for (std::size_t number = 0; number < frames; ++number) {
            std::span<std::uint8_t> const place =
                std::span(bytes).subspan(header + number * row * height, row * height);
            pack_frame(format, recorded(number), width, std::as_writable_bytes(place), stride);
        }
        test_files::write(folder_ / "run.raw", bytes);
        return in_folder("run.raw");
    }
};

std::vector<std::string> raw_options(std::string const& format) {
    return {"--pixel-format",      format,     "--width",
            std::to_string(width), "--height", std::to_string(height)};
}

TEST_F(Process_inputs, every_image_format_gives_the_same_planes) {
    cv::Mat const image = pattern(47, 21, CV_16UC1);
    Names frames;
    for (char const* const ending : {".png", ".tif", ".pgm"}) {
        frames.push_back(in_folder(std::string("as") + (ending + 1) + ending));
        test_files::write(frames.back(), encoded(image, ending));
    }
    EXPECT_EQ(process_with(frames, {"-o", results(), "--phase", "1", "--bit-depth", "16"}).code, 0);
    for (char const* const plane : {"s0", "s1", "s2", "azimuth", "dolp", "normalized_stokes"}) {
        auto const file = [&](char const* start) {
            return test_files::read(result(std::string(start) + "_" + plane + ".tif"));
        };
        EXPECT_EQ(file("aspng"), file("astif")) << plane;
        EXPECT_EQ(file("aspng"), file("aspgm")) << plane;
    }
}

TEST_F(Process_inputs, raw_recordings_of_every_layout_of_12_bits) {
    for (char const* const format : {"Mono12", "Mono16", "Mono12p", "Mono12Packed"}) {
        forget_results();
        std::string const file = write_recording(parse_pixel_format(format), 3);
        Outcome const outcome = process12({file}, raw_options(format));
        EXPECT_EQ(outcome.code, 0) << outcome.errors;
        EXPECT_NE(outcome.output.find("3 of 3 frames"), std::string::npos) << outcome.output;
        EXPECT_EQ(test_files::names_in(results()).size(), 3U * 12U);
        expect_frame("run_000000", 0);
        expect_frame("run_000002", 2);
    }
}

TEST_F(Process_inputs, raw_header_and_stride_and_missing_last_padding) {
    std::string const file = write_recording(Pixel_format::mono12p, 2, 64, 80);
    Names options = raw_options("Mono12p");
    options.insert(options.end(), {"--header-bytes", "64", "--stride", "80"});
    EXPECT_EQ(process12({file}, options).code, 0);
    expect_frame("run_000001", 1);
    forget_results();
    std::filesystem::resize_file(
        file, 64 + 2 * 80 * height - 80 + bytes_per_row(Pixel_format::mono12p, width));
    EXPECT_EQ(process12({file}, options).code, 0);
    expect_frame("run_000001", 1);
}

TEST_F(Process_inputs, a_raw_file_of_the_wrong_size_is_refused_with_both_numbers) {
    std::string const file = write_recording(Pixel_format::mono12, 2);
    std::filesystem::resize_file(file, 2 * 2 * width * height - 1);
    Outcome const outcome = process12({file}, raw_options("Mono12"));
    expect_one_line(outcome, 1);
    for (char const* const part :
         {"has 3947 bytes", "1974 bytes (1 frame)", "3948 bytes (2 frames)"}) {
        EXPECT_NE(outcome.errors.find(part), std::string::npos) << outcome.errors;
    }
}

TEST_F(Process_inputs, tiff_of_many_pictures) {
    std::string const file = in_folder("run.tif");
    TIFF* const tiff = TIFFOpen(file.c_str(), "w");
    for (std::uint32_t number = 0; number < 4; ++number) {
        std::vector<std::uint16_t> samples = recorded(number);
        TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(width));
        TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(height));
        TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 16);
        TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
        TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
        TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, static_cast<std::uint32_t>(height));
        TIFFWriteEncodedStrip(tiff, 0, samples.data(), static_cast<tmsize_t>(2 * samples.size()));
        TIFFWriteDirectory(tiff);
    }
    TIFFClose(tiff);
    EXPECT_EQ(process12({file}).code, 0);
    EXPECT_EQ(test_files::names_in(results()).size(), 4U * 12U);
    for (std::size_t number = 0; number < 4; ++number) {
        expect_frame("run_00000" + std::to_string(number), number);
    }
    // Cut short behind the second picture: those before it are processed, the rest is reported.
    forget_results();
    std::filesystem::resize_file(file, std::filesystem::file_size(file) * 5 / 8);
    Outcome const outcome = process12({file});
    expect_one_line(outcome, 1, "cut short");
    expect_frame("run_000000", 0);
}

TEST_F(Process_inputs, folders_and_patterns_in_the_order_of_numbers) {
    std::filesystem::create_directory(folder_ / "run");
    for (std::size_t const number : {1U, 2U, 10U}) {
        test_files::write(
            folder_ / ("run/f" + std::to_string(number) + ".png"),
            encoded(image_of(number), ".png"));
    }
    test_files::write(folder_ / "run/notes.txt", "no frame");
    for (std::string const& input : {in_folder("run"), in_folder("run/*.png")}) {
        forget_results();
        Outcome const outcome = process12({input}, {"--planes", "s0", "--jobs", "2"});
        EXPECT_EQ(outcome.code, 0) << outcome.errors;
        EXPECT_LT(outcome.output.find("f2.png:"), outcome.output.find("f10.png:"));
        EXPECT_EQ(test_files::names_in(results()).size(), 6U);
    }
    for (auto const& [input, reason] :
         {std::pair{"run/*.bmp", "matches no file"}, std::pair{"empty", "holds no PNG"}}) {
        std::filesystem::create_directory(folder_ / "empty");
        Outcome const outcome = process12({in_folder(input)});
        EXPECT_EQ(outcome.code, 1);
        EXPECT_NE(outcome.errors.find(reason), std::string::npos) << outcome.errors;
    }
}

TEST_F(Process_inputs, start_stop_and_step_choose_frames) {
    std::string const file = write_recording(Pixel_format::mono12, 9);
    Names options = raw_options("Mono12");
    options.insert(options.end(), {"--start", "1", "--stop", "8", "--step", "3", "--planes", "s0"});
    EXPECT_EQ(process12({file}, options).code, 0);
    EXPECT_EQ(
        test_files::names_in(results()),
        (Names{
            "run_000001_s0.json", "run_000001_s0.tif", "run_000004_s0.json", "run_000004_s0.tif",
            "run_000007_s0.json", "run_000007_s0.tif"}));
    Names beyond = raw_options("Mono12");
    beyond.insert(beyond.end(), {"--start", "9"});
    forget_results();
    Outcome const none = process12({file}, beyond);
    EXPECT_EQ(none.code, 2);
    EXPECT_NE(none.errors.find("leave no frame"), std::string::npos) << none.errors;
    EXPECT_FALSE(std::filesystem::exists(results()));
}

TEST_F(Process_inputs, left_aligned_samples_are_shifted) {
    cv::Mat const image = image_of(5) * 16;
    test_files::write(folder_ / "left.png", encoded(image, ".png"));
    EXPECT_EQ(process12({in_folder("left.png")}, {"--shift", "4"}).code, 0);
    expect_frame("left", 5);
}

TEST_F(Process_inputs, a_region_with_odd_offsets_turns_the_mosaic) {
    cv::Mat larger = cv::Mat::zeros(40, 70, CV_16UC1);
    image_of(3).copyTo(larger(cv::Rect(5, 7, width, height)));
    test_files::write(folder_ / "large.png", encoded(larger, ".png"));
    // Phase 1 in the region, one row and one column on: phase 3 in the whole.
    Outcome const outcome = process_with(
        {in_folder("large.png")}, {"-o", results(), "--phase", "3", "--bit-depth", "12", "--region",
                                   "5,7,47,21", "--no-pictures"});
    EXPECT_EQ(outcome.code, 0) << outcome.errors;
    expect_frame("large", 3);
    forget_results();
    Outcome const outside = process_with(
        {in_folder("large.png")},
        {"-o", results(), "--phase", "3", "--bit-depth", "12", "--region", "5,7,47,34"});
    EXPECT_EQ(outside.code, 1);
    EXPECT_NE(outside.errors.find("does not fit in"), std::string::npos) << outside.errors;
}

TEST_F(Process_inputs, dark_frames_are_averaged_and_subtracted) {
    cv::Mat const image = image_of(6) / 2;
    test_files::write(folder_ / "light.png", encoded(image + 100, ".png"));
    test_files::write(folder_ / "plain.png", encoded(image, ".png"));
    test_files::write(
        folder_ / "dark1.png", encoded(cv::Mat(height, width, CV_16UC1, cv::Scalar(98)), ".png"));
    test_files::write(
        folder_ / "dark2.png", encoded(cv::Mat(height, width, CV_16UC1, cv::Scalar(102)), ".png"));
    EXPECT_EQ(process12({in_folder("light.png")}, {"--dark", in_folder("dark?.png")}).code, 0);
    EXPECT_EQ(process12({in_folder("plain.png")}).code, 0);
    EXPECT_EQ(
        test_files::read(result("light_azimuth.tif")),
        test_files::read(result("plain_azimuth.tif")));
    EXPECT_EQ(process12({good()}, {"--dark", in_folder("dark?.png")}).code, 1);
}

TEST_F(Process_inputs, any_number_of_jobs_gives_the_same_files) {
    std::string const file = write_recording(Pixel_format::mono12p, 12);
    std::vector<std::vector<std::uint8_t>> first;
    for (char const* const jobs : {"1", "2", "5"}) {
        forget_results();
        Names options = raw_options("Mono12p");
        options.insert(options.end(), {"--jobs", jobs, "--planes", "azimuth,dolp"});
        EXPECT_EQ(process12({file}, options).code, 0);
        std::vector<std::vector<std::uint8_t>> contents;
        for (std::string const& name : test_files::names_in(results())) {
            contents.push_back(test_files::read(result(name)));
        }
        EXPECT_EQ(contents.size(), 48U);
        first = first.empty() ? contents : first;
        EXPECT_EQ(contents, first) << jobs << " jobs";
    }
}

TEST_F(Process_inputs, jobs_share_a_frame_where_there_are_more_of_them) {
    std::string const large = in_folder("large.png");
    test_files::write(large, encoded(pattern(331, 803, CV_16UC1), ".png"));
    std::vector<std::uint8_t> first;
    for (char const* const jobs : {"1", "3"}) {
        forget_results();
        EXPECT_EQ(process12({large}, {"--jobs", jobs, "--planes", "all"}).code, 0);
        std::vector<std::uint8_t> contents;
        for (char const* const plane : {"azimuth", "s1", "normalized_stokes"}) {
            auto const bytes = test_files::read(result(std::string("large_") + plane + ".tif"));
            contents.insert(contents.end(), bytes.begin(), bytes.end());
        }
        first = first.empty() ? contents : first;
        EXPECT_GT(contents.size(), 12U * 803 * 331);
        EXPECT_EQ(contents == first, true) << jobs << " jobs";
    }
}

// Frames of a recording go from bytes to planes in bands, behind the first; a file of one frame is
// prepared as a whole.
TEST_F(Process_inputs, bands_of_a_recording_give_what_a_whole_frame_gives) {
    constexpr std::size_t frame_bytes = 803 * 332 * 3 / 2;
    std::vector<std::uint8_t> bytes(4 * frame_bytes);
    std::ranges::generate(bytes, std::mt19937{1});
    test_files::write(folder_ / "run.raw", bytes);
    test_files::write(folder_ / "one.raw", std::span(bytes).last(frame_bytes));
    test_files::write(folder_ / "dark.raw", std::vector<std::uint8_t>(frame_bytes, 0x22));
    for (char const* const region : {"0,0,332,803", "3,5,327,790"}) {
        for (char const* const jobs : {"1", "8"}) {
            forget_results();
            Outcome const outcome = process_with(
                {in_folder("run.raw"), in_folder("one.raw")}, {"-o",
                                                               results(),
                                                               "--pixel-format",
                                                               "Mono12p",
                                                               "--width",
                                                               "332",
                                                               "--height",
                                                               "803",
                                                               "--phase",
                                                               "1",
                                                               "--no-pictures",
                                                               "--region",
                                                               region,
                                                               "--jobs",
                                                               jobs,
                                                               "--shift",
                                                               "1",
                                                               "--bit-depth",
                                                               "10",
                                                               "--dark",
                                                               in_folder("dark.raw")});
            ASSERT_EQ(outcome.code, 0) << outcome.errors;
            EXPECT_NE(outcome.errors.find("samples up to 2047"), std::string::npos);
            for (std::string const plane : {"_s0", "_s1", "_azimuth", "_dolp"}) {
                EXPECT_EQ(
                    test_files::read(result("run_000003" + plane + ".tif")) ==
                        test_files::read(result("one" + plane + ".tif")),
                    true)
                    << plane << ", region " << region << ", jobs " << jobs;
            }
        }
    }
}

// Orthogonal polarisers side by side in each row, as no mosaic of the four has them.
TEST_F(Process_inputs, a_foreign_mosaic_is_warned_of_once) {
    cv::Mat foreign(64, 64, CV_16UC1);
    for (int row = 0; row < foreign.rows; ++row) {
        for (int column = 0; column < foreign.cols; ++column) {
            constexpr double turns[] = {0.1, 0.3, 0.6, 0.8};
            double const direction = turns[(row / 16 + column / 16) % 4];
            double const analyser = (row % 2 == 0 ? 0.0 : 0.25) + (column % 2 == 0 ? 0.0 : 0.5);
            foreign.at<std::uint16_t>(row, column) = static_cast<std::uint16_t>(std::lround(
                1000.0 + 900.0 * std::cos(2.0 * std::numbers::pi * (direction - analyser))));
        }
    }
    Names inputs;
    for (char const* const name : {"a.png", "b.png", "c.png"}) {
        inputs.push_back(in_folder(name));
        test_files::write(inputs.back(), encoded(foreign, ".png"));
    }
    std::string const words = ".png: The rows of the mosaic's cell";
    for (Names const& more : {Names{}, Names{"--quiet"}, Names{"--jobs", "3"}}) {
        Names options = {"--planes", "s0", "--overwrite"};
        options.insert(options.end(), more.begin(), more.end());
        Outcome const outcome = process12(inputs, options);
        expect_one_line(outcome, 0, words);
    }
    // One that fails does not stand for the others.
    test_files::write(folder_ / "a.png", encoded(cv::Mat(20, 15, CV_16UC1, cv::Scalar(9)), ".png"));
    Outcome const outcome = process12(inputs, {"--planes", "s0", "--overwrite", "--jobs", "1"});
    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(line_count(outcome.errors), 2U) << outcome.errors;
    EXPECT_NE(outcome.errors.find("b" + words), std::string::npos) << outcome.errors;
}

TEST_F(Process_inputs, samples_above_the_bit_depth_are_warned_of) {
    cv::Mat const image(6, 40, CV_16UC1, cv::Scalar(4096));
    test_files::write(folder_ / "high.png", encoded(image, ".png"));
    Outcome const outcome = process12({in_folder("high.png")});
    expect_one_line(outcome, 0, "high.png: has samples up to 4096");
}

// Without its dark level the sample of 4100 would be below the full scale of 4095.
TEST_F(Process_inputs, the_dark_level_counts_for_the_bit_depth) {
    cv::Mat image(20, 40, CV_16UC1, cv::Scalar(1000));
    image.at<std::uint16_t>(11, 30) = 4100;
    test_files::write(folder_ / "high.png", encoded(image, ".png"));
    test_files::write(
        folder_ / "dark.png", encoded(cv::Mat(20, 40, CV_16UC1, cv::Scalar(64)), ".png"));
    struct Case {
        char const* region;
        bool has_sample;
    };
    unsigned warnings = 0;
    for (Case const wanted :
         {Case{"0,0,40,20", true}, Case{"10,10,30,2", true}, Case{"0,0,30,20", false},
          Case{"0,12,40,8", false}}) {
        Names const options = {
            "--dark", in_folder("dark.png"), "--region", wanted.region, "--overwrite"};
        Names arguments = {"report", in_folder("high.png"), "-o", in_folder("page.html"), "--phase",
                           "0",      "--bit-depth",         "12"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        for (Outcome const& outcome :
             {process12({in_folder("high.png")}, options), program_run::run(arguments)}) {
            EXPECT_EQ(outcome.code, 0) << outcome.errors;
            EXPECT_EQ(line_count(outcome.errors), wanted.has_sample ? 1U : 0U)
                << wanted.region << ": " << outcome.errors;
            bool const warned =
                outcome.errors.find("high.png: has samples up to 4100") != std::string::npos;
            EXPECT_EQ(warned, wanted.has_sample) << wanted.region;
            warnings += warned ? 1U : 0U;
        }
    }
    EXPECT_EQ(warnings, 4U);
    std::printf("%u warnings of 8 runs\n", warnings);
}

} // namespace
