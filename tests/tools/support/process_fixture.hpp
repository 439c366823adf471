/// @file
/// A folder with one good frame, and `process` run on frames in it.
#pragma once

#include "program_run.hpp"
#include "test_files.hpp"
#include "veldrane_mrv/polarization/processor.hpp"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace process_fixture {

/// Their run-time libraries reserve terabytes of address space, which neither a limit nor an
/// emulator gives them, and have to be loaded before any other.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool built_with_sanitizer = true;
#elif defined(__has_feature)
inline constexpr bool built_with_sanitizer =
    __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
inline constexpr bool built_with_sanitizer = false;
#endif

using Names = std::vector<std::string>;

/// All that `process good.png` leaves by default.
inline Names const all_files = {
    "good_angle_degree.png",
    "good_azimuth.json",
    "good_azimuth.tif",
    "good_degree.png",
    "good_dolp.json",
    "good_dolp.tif",
    "good_normalized_stokes.json",
    "good_normalized_stokes.tif",
    "good_s0.json",
    "good_s0.tif",
    "good_s1.json",
    "good_s1.tif",
    "good_s2.json",
    "good_s2.tif"};

class Process_command : public testing::Test {
protected:
    void SetUp() override {
        std::string const lacking = veldrane_mrv::polarization::missing_instructions();
        if (!lacking.empty()) {
            GTEST_SKIP() << "this processor lacks " << lacking;
        }
        test_files::write(
            folder_ / "good.png",
            test_files::encoded(test_files::pattern(40, 20, CV_8UC1), ".png"));
    }

    std::string in_folder(std::string const& name) const { return (folder_ / name).string(); }
    std::string good() const { return in_folder("good.png"); }
    std::string results() const { return in_folder("results"); }
    std::string result(std::string const& name) const { return results() + "/" + name; }

    /// process FRAMES -o results --phase 0 --bit-depth 8 MORE
    program_run::Outcome process(Names const& frames, Names const& more = {}) const {
        Names arguments = {"-o", results(), "--phase", "0", "--bit-depth", "8"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return process_with(frames, arguments);
    }

    /// process FRAMES MORE
    program_run::Outcome process_with(Names const& frames, Names const& more) const {
        Names arguments = {"process"};
        arguments.insert(arguments.end(), frames.begin(), frames.end());
        arguments.insert(arguments.end(), more.begin(), more.end());
        return program_run::run(arguments);
    }

    /// The folder of results without the last ones.
    void forget_results() const { std::filesystem::remove_all(results()); }

    test_files::Folder folder_;
};

} // namespace process_fixture
