// veldrane-polarize process --stack: the planes of an ordinary run in one file each, whatever
// befalls the run that makes them.
#include "process_fixture.hpp"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using process_fixture::Names;
using process_fixture::Process_command;
using program_run::Outcome;
using Bytes = std::vector<std::uint8_t>;
using Json = nlohmann::json;

constexpr std::size_t width = 40;
constexpr std::size_t height = 20;
constexpr std::size_t pixels = width * height;
constexpr std::size_t page = 4096; // where the samples of NumPy's files and of BigTIFFs begin

Names operator+(Names all, Names const& more) {
    all.insert(all.end(), more.begin(), more.end());
    return all;
}

class Process_stack : public Process_command {
protected:
    void SetUp() override {
        Process_command::SetUp();
        record("run.raw", frames_);
    }

    void record(std::string const& name, std::size_t frames) const {
        Bytes samples;
        samples.reserve(frames * pixels);
        for (std::size_t row = 0; row < frames * height; ++row) {
            for (std::size_t column = 0; column < width; ++column) {
                samples.push_back(static_cast<std::uint8_t>((row / 2 * 7 + column / 2 * 3) % 251));
            }
        }
        test_files::write(folder_ / name, samples);
    }

    Names options(Names const& more) const {
        return Names{
                   "-o",
                   results(),
                   "--phase",
                   "0",
                   "--pixel-format",
                   "Mono8",
                   "--width",
                   std::to_string(width),
                   "--height",
                   std::to_string(height)} +
               more;
    }

    Outcome stacked(Names const& more = {}) const {
        return process_with(
            {in_folder("run.raw")},
            options(
                Names{"--stack", "--format", "npy", "--planes", "s0,normalized_stokes"} + more));
    }

    // All that a run in one go leaves: names and contents.
    std::map<std::string, Bytes> files() const {
        std::map<std::string, Bytes> all;
        for (std::string const& name : test_files::names_in(results())) {
            all[name] = test_files::read(result(name));
        }
        return all;
    }

    std::map<std::string, Bytes> finished() const {
        EXPECT_EQ(stacked().code, 0);
        auto all = files();
        forget_results();
        return all;
    }

    std::uintmax_t bytes_of_record() const {
        std::error_code error;
        std::uintmax_t const size = std::filesystem::file_size(result("run_stack.part"), error);
        return error ? 0 : size;
    }

    Json description() const {
        Bytes const text = test_files::read(result("run_stack.json"));
        return Json::parse(text.begin(), text.end());
    }

    static constexpr std::size_t frames_ = 9;
};

std::string text_of(Bytes const& bytes) {
    return {bytes.begin(), bytes.end()};
}

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

// What a run leaves that is killed, from its first file to its last: each goes on to the same end.
TEST_F(Process_stack, goes_on_from_every_stage) {
    auto const whole = finished();
    Bytes const& s0 = whole.at("run_s0.npy");
    Bytes const& stokes = whole.at("run_normalized_stokes.npy");
    std::string const told = text_of(whole.at("run_stack.json"));
    Bytes torn_s0 = s0;
    std::fill(torn_s0.begin() + page + 4 * 2 * pixels, torn_s0.end(), 99);
    std::string const four = told + "0\n1\n3\n2\n";
    std::string const all = told + "0\n1\n2\n3\n4\n5\n6\n7\n8\n";
    struct Stage {
        char const* name;
        std::map<std::string, Bytes> files;
        std::string record;
        std::size_t to_do;
    };
    std::vector<Stage> const stages = {
        {"files without a record", {{"run_s0.npy.part", Bytes(9)}}, "", 9},
        {"no frame",
         {{"run_s0.npy.part", s0}, {"run_normalized_stokes.npy.part", stokes}},
         told,
         9},
        {"some frames",
         {{"run_s0.npy.part", torn_s0}, {"run_normalized_stokes.npy.part", stokes}},
         four,
         5},
        {"a torn line",
         {{"run_s0.npy.part", torn_s0}, {"run_normalized_stokes.npy.part", stokes}},
         four + "8",
         5},
        {"all frames",
         {{"run_s0.npy.part", s0}, {"run_normalized_stokes.npy.part", stokes}},
         all,
         0},
        {"one name", {{"run_s0.npy", s0}, {"run_normalized_stokes.npy.part", stokes}}, all, 0},
        {"both names", {{"run_s0.npy", s0}, {"run_normalized_stokes.npy", stokes}}, all, 0},
        {"all but the record's end", whole, all, 0},
    };
    for (Stage const& stage : stages) {
        forget_results();
        std::filesystem::create_directory(results());
        for (auto const& [name, bytes] : stage.files) {
            test_files::write(result(name), bytes);
        }
        if (!stage.record.empty()) {
            test_files::write(result("run_stack.part"), stage.record);
        }
        auto const before = files();
        expect_one_line(stacked(), 1, "--overwrite");
        EXPECT_EQ(files(), before) << stage.name;
        Outcome const outcome = stacked({"--resume"});
        EXPECT_EQ(outcome.code, 0) << stage.name << outcome.errors;
        EXPECT_EQ(outcome.errors, "");
        EXPECT_EQ(files(), whole) << stage.name;
        std::string const count =
            std::to_string(stage.to_do) + " of " + std::to_string(stage.to_do) + " frames in ";
        EXPECT_NE(
            outcome.output.find(
                stage.to_do > 0 ? count : "9 of 9 frames were done already, results in "),
            std::string::npos)
            << stage.name << outcome.output;
    }
    EXPECT_EQ(
        stacked({"--resume"}).output,
        "9 of 9 frames were done already, results in " + results() + "\n");
    EXPECT_EQ(files(), whole);
}

// However far each run comes: in the end nothing tells that there was more than one.
TEST_F(Process_stack, goes_on_after_being_killed_at_any_moment) {
    record("run.raw", 3000);
    auto const whole = finished();
    unsigned unfinished = 0;
    constexpr unsigned runs = 8;
    for (unsigned run = 0; run < runs; ++run) {
        program_run::Running_program program(
            Names{POLARIZE_PROGRAM, "process", in_folder("run.raw")} +
            options(
                {"--stack", "--format", "npy", "--planes", "s0,normalized_stokes", "--resume",
                 "--jobs", "2"}));
        std::uintmax_t const before = bytes_of_record();
        while (program.is_running() && bytes_of_record() <= before) {
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
        program.send(SIGKILL);
        program.wait();
        unfinished += std::filesystem::exists(result("run_stack.part")) ? 1U : 0U;
    }
    EXPECT_EQ(stacked({"--resume"}).code, 0);
    EXPECT_EQ(files(), whole);
    std::printf("unfinished after %u of %u runs\n", unfinished, runs);
}

TEST_F(Process_stack, an_interrupted_run_says_how_to_go_on) {
    record("run.raw", 20000);
    program_run::Running_program program(
        Names{POLARIZE_PROGRAM, "process", in_folder("run.raw")} +
        options({"--stack", "--planes", "s0", "--jobs", "2", "--quiet"}));
    while (program.is_running() && !std::filesystem::exists(result("run_stack.part"))) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    program.send(SIGINT);
    Outcome const outcome = program.wait();
    EXPECT_EQ(outcome.code, 130);
    EXPECT_EQ(
        outcome.errors, "veldrane-polarize: interrupted; the same command with --resume goes on\n");
    EXPECT_EQ(test_files::names_in(results()), (Names{"run_s0.tif.part", "run_stack.part"}));
    Outcome const second =
        process_with({in_folder("run.raw")}, options({"--stack", "--planes", "s0", "--resume"}));
    EXPECT_EQ(second.code, 0) << second.errors;
    EXPECT_EQ(test_files::names_in(results()), (Names{"run_s0.tif", "run_stack.json"}));
}

TEST_F(Process_stack, only_what_was_begun_goes_on) {
    auto const whole = finished();
    std::filesystem::create_directory(results());
    for (char const* const name : {"run_s0.npy", "run_normalized_stokes.npy"}) {
        test_files::write(result(name + std::string(".part")), whole.at(name));
    }
    test_files::write(result("run_stack.part"), text_of(whole.at("run_stack.json")) + "0\n");
    auto const before = files();
    struct Case {
        Names more;
        std::string word;
    };
    for (auto const& [more, word] : std::vector<Case>{
             {{"--stop", "5"}, "other frames than"},
             {{"--phase", "1"}, "other mosaic than"},
             {{"--units", "degrees"}, "other planes than"},
             {{"--region", "2,2,20,10"}, "other source than"}}) {
        Names arguments =
            options({"--stack", "--format", "npy", "--planes", "s0,normalized_stokes", "--resume"});
        if (more.front() == "--phase") {
            *std::ranges::find(arguments, "0") = "1";
        } else {
            arguments = arguments + more;
        }
        Outcome const outcome = process_with({in_folder("run.raw")}, arguments);
        expect_one_line(outcome, 1, word);
        EXPECT_NE(outcome.errors.find("run_stack.part"), std::string::npos);
        EXPECT_EQ(files(), before) << word;
    }
    int const record = open(result("run_stack.part").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(record, LOCK_EX), 0);
    expect_one_line(stacked({"--resume"}), 1, "another run");
    expect_one_line(stacked({"--overwrite"}), 1, "another run");
    EXPECT_EQ(files(), before);
    close(record);
    test_files::write(result("run_s0.npy.part"), Bytes(7));
    expect_one_line(stacked({"--resume"}), 1, "has 7 bytes in place of");
    test_files::write(result("run_stack.part"), std::string("{\n}\n"));
    expect_one_line(stacked({"--resume"}), 1, "does not tell of a stack");
    EXPECT_EQ(stacked({"--overwrite"}).code, 0);
    EXPECT_EQ(files(), whole);
    expect_one_line(stacked(), 1, "exists already");
    expect_one_line(
        process_with(
            {in_folder("run.raw")}, options({"--stack", "--format", "png", "--planes", "s0"})),
        2, "--format png");
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
    auto const third = s0.begin() + page + 2 * 2 * pixels;
    EXPECT_TRUE(std::all_of(third, third + 2 * pixels, [](auto byte) { return byte == 0; }));
    Bytes const stokes = test_files::read(result("series_normalized_stokes.npy"));
    std::vector<float> numbers(2 * pixels);
    std::memcpy(numbers.data(), stokes.data() + page + 2 * 8 * pixels, 8 * pixels);
    EXPECT_TRUE(std::ranges::all_of(numbers, [](float number) { return number != number; }));
    expect_one_line(stacked_series({"--resume"}), 1, "c.png");
    std::filesystem::copy_file(
        good(), picture("c"), std::filesystem::copy_options::overwrite_existing);
    Outcome const mended = stacked_series({"--resume"});
    EXPECT_EQ(mended.code, 0) << mended.errors;
    EXPECT_NE(mended.output.find(", 3 more were done already"), std::string::npos);
    EXPECT_EQ(files(), whole);
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

// A small file system in the place of the results.
class Small_disk {
public:
    explicit Small_disk(std::string const& folder) : folder_{folder} {
        std::filesystem::create_directory(folder_);
        is_mounted_ = mount("tmpfs", folder_.c_str(), "tmpfs", 0, "size=256k") == 0;
    }
    ~Small_disk() {
        if (is_mounted_) {
            umount(folder_.c_str());
        }
    }
    Small_disk(Small_disk const&) = delete;
    Small_disk& operator=(Small_disk const&) = delete;

    bool is_mounted() const { return is_mounted_; }
    void grow() const { mount("tmpfs", folder_.c_str(), "tmpfs", MS_REMOUNT, "size=8m"); }

private:
    std::string folder_;
    bool is_mounted_ = false;
};

TEST_F(Process_stack, a_full_disk_is_told_before_the_first_frame) {
    record("run.raw", 200);
    Small_disk const disk(results());
    if (!disk.is_mounted()) {
        GTEST_SKIP() << "this user may not mount a small file system";
    }
    Outcome const outcome = stacked();
    expect_one_line(outcome, 1, "run.raw takes 0.00161 GB, but 0.000262 GB are free; choose");
    EXPECT_TRUE(test_files::names_in(results()).empty());
}

// The stack has its room; pictures take what is left.
TEST_F(Process_stack, a_disk_that_fills_up_stops_the_run_and_resuming_ends_it) {
    record("run.raw", 60);
    Small_disk const disk(results());
    if (!disk.is_mounted()) {
        GTEST_SKIP() << "this user may not mount a small file system";
    }
    Names const more = options({"--stack", "--planes", "dolp", "--pictures", "--jobs", "2"});
    Outcome const outcome = process_with({in_folder("run.raw")}, more);
    EXPECT_EQ(outcome.code, 1);
    EXPECT_NE(outcome.errors.find("No space left on device"), std::string::npos) << outcome.errors;
    EXPECT_TRUE(outcome.errors.ends_with(
        " of 60 frames are done; the same command with --resume goes on\n"))
        << outcome.errors;
    EXPECT_TRUE(std::filesystem::exists(result("run_dolp.tif.part")));
    disk.grow();
    Outcome const second = process_with({in_folder("run.raw")}, more + Names{"--resume"});
    EXPECT_EQ(second.code, 0) << second.errors;
    EXPECT_EQ(test_files::names_in(results()).size(), 62U);
}

TEST_F(Process_stack, a_file_that_cannot_grow_leaves_nothing) {
    Outcome const outcome = program_run::run_command(
        {"/bin/sh", "-c",
         "ulimit -f 8; exec '" POLARIZE_PROGRAM "' process '" + in_folder("run.raw") + "' -o '" +
             results() +
             "' --phase 0 --pixel-format Mono8 --width 40 --height 20 --stack --planes s0"});
    expect_one_line(outcome, 1, "cannot be written: File too large");
    EXPECT_FALSE(std::filesystem::exists(results()));
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
