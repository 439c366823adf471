// veldrane-polarize process --stack: the planes of an ordinary run in one file each, and what is
// told of frames that are missing.
#include "stack_fixture.hpp"

#include <algorithm>
#include <cstring>
#include <opencv2/imgcodecs.hpp>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace stack_fixture;

// The samples of files of an ordinary run, one behind the other.
TEST_F(Process_stack, holds_the_planes_of_an_ordinary_run) {
    Names const planes = {"s0", "s1", "azimuth", "normalized_stokes", "validity", "uncertainty"};
    Names const common = {
        "--planes", "s0,s1,azimuth,normalized_stokes,validity,uncertainty", "--signed",
        "--electrons-per-count", "2"};
    ASSERT_EQ(
        process_with({in_folder("run.raw")}, options(common + Names{"--format", "raw"})).code, 0);
    std::map<std::string, Bytes> expected;
    for (std::string const& plane : planes) {
        for (std::size_t frame = 0; frame < frames_; ++frame) {
            Bytes const samples = test_files::read(
                result("run_00000" + std::to_string(frame) + "_" + plane + ".raw"));
            expected[plane].insert(expected[plane].end(), samples.begin(), samples.end());
        }
    }
    for (auto const& [format, ending] :
         {std::pair("npy", ".npy"), std::pair("raw", ".raw"), std::pair("tiff", ".tif")}) {
        for (char const* const jobs : {"1", "2", "4"}) {
            forget_results();
            Outcome const outcome = process_with(
                {in_folder("run.raw")},
                options(common + Names{"--stack", "--format", format, "--jobs", jobs}));
            ASSERT_EQ(outcome.code, 0) << outcome.errors;
            EXPECT_EQ(test_files::names_in(results()).size(), planes.size() + 1);
            for (std::string const& plane : planes) {
                Bytes const file = test_files::read(result("run_" + plane + ending));
                Bytes const& samples = expected[plane];
                std::size_t const start = std::strcmp(format, "raw") == 0 ? 0 : page;
                ASSERT_GE(file.size(), start + samples.size());
                EXPECT_TRUE(std::equal(
                    samples.begin(), samples.end(), file.begin() + std::ptrdiff_t(start)))
                    << plane << format << jobs;
            }
        }
    }
}

TEST_F(Process_stack, tells_all_frames_once) {
    Outcome const outcome = stacked({"--start", "1", "--step", "3"});
    ASSERT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_EQ(
        outcome.output.find(
            in_folder("run.raw") + ": 3 frames of 40 x 20, wrote " + result("run_s0.npy") + " " +
            result("run_normalized_stokes.npy") + "\n3 of 3 frames in "),
        0U)
        << outcome.output;
    Json const json = description();
    EXPECT_EQ(json["missing"], Json::array());
    EXPECT_EQ(
        json["frames"],
        Json::array({{{"file", in_folder("run.raw")}, {"first", 1}, {"step", 3}, {"count", 3}}}));
    EXPECT_EQ(json["planes"][1]["channels"], 2);
    Bytes const file = test_files::read(result("run_normalized_stokes.npy"));
    EXPECT_NE(
        text_of(file).find("'descr': '<f4', 'fortran_order': False, 'shape': (3, 20, 40, 2), }"),
        std::string::npos);
    forget_results();
    ASSERT_EQ(
        process_with(
            {in_folder("run.raw")},
            options({"--planes", "s0", "--start", "1", "--stop", "2", "--format", "npy"}))
            .code,
        0);
    Bytes const text = test_files::read(result("run_000001_s0.json"));
    Json of_a_frame = Json::parse(text.begin(), text.end());
    Json of_a_plane = json["planes"][0];
    of_a_frame.erase("file");
    of_a_frame["source"].erase("file");
    of_a_frame["source"].erase("frame");
    for (auto const& [key, value] : of_a_frame.items()) {
        Json const& told = of_a_plane.contains(key) ? of_a_plane[key] : json[key];
        for (auto const& [inner, inner_value] :
             value.is_object() ? value.items() : Json().items()) {
            EXPECT_EQ(told[inner], inner_value) << key << inner;
        }
        if (!value.is_object()) {
            EXPECT_EQ(told, value) << key;
        }
    }
}

TEST_F(Process_stack, a_tiff_is_read_by_the_image_library) {
    ASSERT_EQ(
        process_with(
            {in_folder("run.raw")}, options({"--stack", "--planes", "s0", "--units", "degrees"}))
            .code,
        0);
    std::vector<cv::Mat> pictures;
    ASSERT_TRUE(cv::imreadmulti(result("run_s0.tif"), pictures, cv::IMREAD_UNCHANGED));
    ASSERT_EQ(pictures.size(), frames_);
    Bytes const file = test_files::read(result("run_s0.tif"));
    for (std::size_t frame = 0; frame < frames_; ++frame) {
        ASSERT_EQ(pictures[frame].type(), CV_32FC1);
        EXPECT_EQ(
            std::memcmp(pictures[frame].data, file.data() + page + frame * 4 * pixels, 4 * pixels),
            0);
    }
}

class Process_stack_of_pictures : public Process_stack {
protected:
    void SetUp() override {
        Process_stack::SetUp();
        std::filesystem::create_directory(folder_ / "series");
        for (std::string const name : {"a", "b", "c", "d"}) {
            std::filesystem::copy_file(good(), picture(name));
        }
    }

    std::filesystem::path picture(std::string const& name) const {
        return folder_ / "series" / (name + ".png");
    }

    Outcome stacked_series(Names const& more = {}) const {
        return process(
            {in_folder("series")},
            Names{"--stack", "--format", "npy", "--planes", "s0,normalized_stokes"} + more);
    }
};

TEST_F(Process_stack_of_pictures, a_frame_that_fails_is_missing_until_it_is_mended) {
    ASSERT_EQ(stacked_series().code, 0);
    auto const whole = files();
    forget_results();
    test_files::write(picture("c"), std::string("no picture"));
    Outcome const outcome = stacked_series({"--jobs", "2"});
    expect_one_line(outcome, 1, "c.png");
    EXPECT_NE(outcome.output.find("3 of 4 frames in "), std::string::npos) << outcome.output;
    EXPECT_EQ(
        test_files::names_in(results()),
        (Names{"series_normalized_stokes.npy", "series_s0.npy", "series_stack.json"}));
    Bytes const told = test_files::read(result("series_stack.json"));
    EXPECT_EQ(Json::parse(told.begin(), told.end())["missing"], Json::array({2}));
    Bytes const s0 = test_files::read(result("series_s0.npy"));
    auto const third = s0.begin() + page + std::size_t{2} * 2 * pixels;
    EXPECT_TRUE(std::all_of(third, third + 2 * pixels, [](auto byte) { return byte == 0; }));
    Bytes const stokes = test_files::read(result("series_normalized_stokes.npy"));
    std::vector<float> numbers(2 * pixels);
    std::memcpy(numbers.data(), stokes.data() + page + std::size_t{2} * 8 * pixels, 8 * pixels);
    EXPECT_TRUE(std::ranges::all_of(numbers, [](float number) { return number != number; }));
    expect_one_line(stacked_series({"--resume"}), 1, "c.png");
    std::filesystem::copy_file(
        good(), picture("c"), std::filesystem::copy_options::overwrite_existing);
    Outcome const mended = stacked_series({"--resume"});
    EXPECT_EQ(mended.code, 0) << mended.errors;
    EXPECT_NE(mended.output.find(", 3 more were done already"), std::string::npos);
    EXPECT_EQ(files(), whole);
}

// A TIFF could hold any number of frames; those behind it would move up.
TEST_F(Process_stack_of_pictures, a_damaged_tiff_keeps_its_place) {
    Bytes const tiff = test_files::encoded(test_files::pattern(40, 20, CV_8UC1), ".tif");
    for (std::string const name : {"a", "b", "c", "d"}) {
        std::filesystem::remove(picture(name));
        test_files::write(picture(name).replace_extension(".tif"), tiff);
    }
    ASSERT_EQ(stacked_series().code, 0);
    auto const whole = files();
    forget_results();
    std::filesystem::path const second = picture("b").replace_extension(".tif");
    std::filesystem::resize_file(second, 60);
    expect_one_line(stacked_series(), 1, "b.tif");
    Bytes const told = test_files::read(result("series_stack.json"));
    EXPECT_EQ(Json::parse(told.begin(), told.end())["missing"], Json::array({1}));
    test_files::write(second, tiff);
    EXPECT_EQ(stacked_series({"--resume"}).code, 0);
    EXPECT_EQ(files(), whole);
}

// Files at their full length, of a run that was to begin anew and was killed before it did.
TEST_F(Process_stack_of_pictures, a_finished_stack_is_mended_in_its_own_files) {
    ASSERT_EQ(stacked_series().code, 0);
    auto const whole = files();
    forget_results();
    test_files::write(picture("c"), std::string("no picture"));
    ASSERT_EQ(stacked_series().code, 1);
    for (std::string const name : {"series_s0.npy", "series_normalized_stokes.npy"}) {
        test_files::write(result(name + ".part"), Bytes(whole.at(name).size()));
    }
    test_files::write(result("series_stack.part"), std::string("{\n  \"planes\""));
    std::filesystem::copy_file(
        good(), picture("c"), std::filesystem::copy_options::overwrite_existing);
    EXPECT_EQ(stacked_series({"--resume"}).code, 0);
    EXPECT_EQ(files(), whole);
}

TEST_F(Process_stack_of_pictures, frames_that_lack_a_picture_alone_keep_their_planes) {
    Names const more = {"--planes", "dolp", "--stack", "--format", "raw", "--resume"};
    ASSERT_EQ(process({in_folder("series")}, more).code, 0);
    auto const whole = files();
    test_files::write(picture("b"), std::string("no picture"));
    expect_one_line(process({in_folder("series")}, more + Names{"--pictures"}), 1, "b.png");
    auto const after = files();
    EXPECT_FALSE(after.contains("b_degree.png"));
    for (auto const& [name, bytes] : whole) {
        EXPECT_TRUE(after.contains(name) && after.at(name) == bytes) << name;
    }
}

TEST_F(Process_stack_of_pictures, frames_of_another_size_fail) {
    test_files::write(
        picture("b"), test_files::encoded(test_files::pattern(30, 20, CV_8UC1), ".png"));
    expect_one_line(
        stacked_series(), 1,
        "b.png: has 30 x 20 pixels, but its stack 40 x 20; process it in a call of its own");
    forget_results();
    for (std::string const name : {"a", "b", "c", "d"}) {
        test_files::write(picture(name), std::string("no picture"));
    }
    EXPECT_EQ(stacked_series().code, 1);
    EXPECT_FALSE(std::filesystem::exists(results()));
}

TEST_F(Process_stack_of_pictures, stacks_do_not_overwrite_each_other_or_a_frame) {
    record("series.raw", 2);
    Outcome const twice = process({good(), good()}, {"--stack", "--planes", "s0"});
    expect_one_line(twice, 1, "given twice");
    std::filesystem::create_directory(folder_ / "other");
    std::filesystem::create_directory(folder_ / "other" / "series");
    for (char const* const name : {"a.png", "b.png"}) {
        std::filesystem::copy_file(good(), folder_ / "other" / "series" / name);
    }
    Outcome const outcome =
        process({in_folder("series"), in_folder("other/series")}, {"--stack", "--planes", "s0"});
    expect_one_line(outcome, 1, "would overwrite that of");
    EXPECT_EQ(test_files::names_in(results()), (Names{"series_s0.tif", "series_stack.json"}));
    auto const own = test_files::names_in(folder_ / "series");
    forget_results();
    std::filesystem::copy_file(good(), folder_ / "series" / "series_s0.tif");
    Outcome const input = process_with(
        {in_folder("series")}, {"-o", in_folder("series"), "--phase", "0", "--bit-depth", "8",
                                "--stack", "--planes", "s0", "--overwrite"});
    expect_one_line(input, 1, "would overwrite the input");
    EXPECT_EQ(test_files::names_in(folder_ / "series").size(), own.size() + 1);
}

TEST_F(Process_stack_of_pictures, pictures_are_made_on_request) {
    Names const more = {"--planes", "dolp", "--stack", "--format", "raw", "--resume"};
    ASSERT_EQ(process({in_folder("series")}, more).code, 0);
    EXPECT_EQ(test_files::names_in(results()).size(), 2U);
    Outcome const outcome = process({in_folder("series")}, more + Names{"--pictures"});
    EXPECT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_NE(outcome.output.find("4 of 4 frames in "), std::string::npos) << outcome.output;
    EXPECT_EQ(
        test_files::names_in(results()),
        (Names{
            "a_degree.png", "b_degree.png", "c_degree.png", "d_degree.png", "series_dolp.raw",
            "series_stack.json"}));
}

// In kilobytes.
long most_memory(Names const& command) {
    std::vector<char*> arguments;
    for (std::string const& word : command) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    pid_t const process = fork();
    if (process == 0) {
        execv(arguments[0], arguments.data());
        _exit(127);
    }
    int status = 0;
    rusage usage = {};
    wait4(process, &status, 0, &usage);
    EXPECT_EQ(status, 0);
    return usage.ru_maxrss;
}

TEST_F(Process_stack, memory_does_not_grow_with_the_stack) {
    if (process_fixture::built_with_sanitizer) {
        GTEST_SKIP() << "memory is the sanitizer's here";
    }
    auto const memory = [&](std::size_t frames) {
        forget_results();
        record("run.raw", frames);
        return most_memory(
            Names{POLARIZE_PROGRAM, "process", in_folder("run.raw")} +
            options({"--stack", "--format", "npy", "--jobs", "2", "--quiet"}));
    };
    long const few = memory(20);
    long const many = memory(6000); // 86 MB of results
    EXPECT_LT(many, few + 16000);
    std::printf("%ld and %ld kB\n", few, many);
}

} // namespace
