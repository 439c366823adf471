// veldrane-polarize process --stack --resume: whatever befalls a run, another goes on to the same
// files.
#include "stack_fixture.hpp"

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <memory>
#include <sys/file.h>
#include <sys/mount.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace stack_fixture;

using Process_stack_resuming = Process_stack;

// What a run leaves that is killed, from its first file to its last: each goes on to the same end.
TEST_F(Process_stack_resuming, goes_on_from_every_stage) {
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
TEST_F(Process_stack_resuming, goes_on_after_being_killed_at_any_moment) {
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
    EXPECT_GT(unfinished, 0U);
    std::printf("unfinished after %u of %u runs\n", unfinished, runs);
}

// Whichever comes first: the others leave its files alone.
TEST_F(Process_stack_resuming, runs_at_once_do_not_disturb_each_other) {
    auto const whole = finished();
    for (char const* const option : {"--overwrite", "--resume", "--quiet"}) {
        forget_results();
        std::filesystem::create_directory(results());
        std::vector<std::unique_ptr<program_run::Running_program>> programs;
        for (unsigned run = 0; run < 4; ++run) {
            programs.push_back(std::make_unique<program_run::Running_program>(
                Names{POLARIZE_PROGRAM, "process", in_folder("run.raw")} +
                options(
                    {"--stack", "--format", "npy", "--planes", "s0,normalized_stokes", option})));
        }
        unsigned done = 0;
        for (auto const& program : programs) {
            done += program->wait().code == 0 ? 1U : 0U;
        }
        EXPECT_GT(done, 0U) << option;
        EXPECT_EQ(files(), whole) << option;
    }
}

TEST_F(Process_stack_resuming, lines_of_a_record_are_numbers_of_its_frames) {
    auto const whole = finished();
    std::filesystem::create_directory(results());
    for (char const* const name : {"run_s0.npy", "run_normalized_stokes.npy"}) {
        test_files::write(result(name + std::string(".part")), Bytes(whole.at(name).size()));
    }
    for (char const* const line : {"\n", "x\n", "1 \n", "9\n", "99999999999999999999999\n"}) {
        test_files::write(
            result("run_stack.part"), text_of(whole.at("run_stack.json")) + "3\n" + line);
        expect_one_line(stacked({"--resume"}), 1, "has a line that is no number of a frame");
    }
}

TEST_F(Process_stack_resuming, beginning_anew_with_fewer_planes_leaves_no_part) {
    auto const whole = finished();
    std::filesystem::create_directory(results());
    for (char const* const name : {"run_s0.npy", "run_normalized_stokes.npy"}) {
        test_files::write(result(name + std::string(".part")), whole.at(name));
    }
    test_files::write(result("run_stack.part"), text_of(whole.at("run_stack.json")) + "0\n");
    EXPECT_EQ(
        process_with(
            {in_folder("run.raw")},
            options({"--stack", "--format", "npy", "--planes", "s0", "--overwrite"}))
            .code,
        0);
    EXPECT_EQ(test_files::names_in(results()), (Names{"run_s0.npy", "run_stack.json"}));
}

TEST_F(Process_stack_resuming, an_interrupted_run_says_how_to_go_on) {
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
        outcome.errors, "veldrane-polarize: interrupted; the same command with --resume, and "
                        "without --overwrite, goes on\n");
    EXPECT_EQ(test_files::names_in(results()), (Names{"run_s0.tif.part", "run_stack.part"}));
    Outcome const second =
        process_with({in_folder("run.raw")}, options({"--stack", "--planes", "s0", "--resume"}));
    EXPECT_EQ(second.code, 0) << second.errors;
    EXPECT_EQ(test_files::names_in(results()), (Names{"run_s0.tif", "run_stack.json"}));
}

TEST_F(Process_stack_resuming, only_what_was_begun_goes_on) {
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

TEST_F(Process_stack_resuming, a_full_disk_is_told_before_the_first_frame) {
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
TEST_F(Process_stack_resuming, a_disk_that_fills_up_stops_the_run_and_resuming_ends_it) {
    record("run.raw", 60);
    Small_disk const disk(results());
    if (!disk.is_mounted()) {
        GTEST_SKIP() << "this user may not mount a small file system";
    }
    Names const more = options({"--stack", "--planes", "dolp", "--pictures", "--jobs", "2"});
    Outcome const outcome = process_with({in_folder("run.raw")}, more);
    EXPECT_EQ(outcome.code, 1);
    EXPECT_NE(outcome.errors.find("No space left on device"), std::string::npos) << outcome.errors;
    EXPECT_TRUE(outcome.errors.ends_with(" of 60 frames are done; the same command with --resume, "
                                         "and without --overwrite, goes on\n"))
        << outcome.errors;
    EXPECT_TRUE(std::filesystem::exists(result("run_dolp.tif.part")));
    disk.grow();
    Outcome const second = process_with({in_folder("run.raw")}, more + Names{"--resume"});
    EXPECT_EQ(second.code, 0) << second.errors;
    EXPECT_EQ(test_files::names_in(results()).size(), 62U);
}

TEST_F(Process_stack_resuming, a_file_that_cannot_grow_leaves_nothing) {
    Outcome const outcome = program_run::run_command(
        {"/bin/sh", "-c",
         "ulimit -f 8; exec '" POLARIZE_PROGRAM "' process '" + in_folder("run.raw") + "' -o '" +
             results() +
             "' --phase 0 --pixel-format Mono8 --width 40 --height 20 --stack --planes s0"});
    expect_one_line(outcome, 1, "cannot be written: File too large");
    EXPECT_FALSE(std::filesystem::exists(results()));
}

} // namespace
