// Frames of a real sensor, where the environment variable POLARIZATION_FRAMES names their folder:
// files of one frame whose names say what they hold, NAME_WIDTHxHEIGHT_DEPTHbit_phasePHASE.png or
// .tif, with the samples in the low bits.
#include "program_run.hpp"
#include "test_files.hpp"
#include "veldrane_mrv/polarization/processor.hpp"

#include <cstdlib>
#include <gtest/gtest.h>
#include <regex>

namespace {

struct Real_frame {
    std::filesystem::path file;
    std::size_t width;
    std::size_t height;
    std::string bit_depth;
    std::string phase;
};

std::vector<Real_frame> frames_in(std::filesystem::path const& folder) {
    std::regex const form(R"(.*_(\d+)x(\d+)_(\d+)bit_phase([0-3])\.(png|tif))");
    std::vector<Real_frame> frames;
    for (auto const& entry : std::filesystem::directory_iterator(folder)) {
        std::string const name = entry.path().filename().string();
        if (std::smatch parts; std::regex_match(name, parts, form)) {
            frames.push_back(
                {entry.path(), std::stoul(parts[1]), std::stoul(parts[2]), parts[3], parts[4]});
        }
    }
    return frames;
}

double mean_degree(test_files::Tiff const& plane) {
    double sum = 0.0;
    for (double const sample : plane.samples) {
        sum += sample / 65535.0;
    }
    return sum / static_cast<double>(plane.samples.size());
}

TEST(Real_frames, are_processed_and_partly_polarised) {
    char const* const folder = std::getenv("POLARIZATION_FRAMES");
    if (folder == nullptr) {
        GTEST_SKIP() << "POLARIZATION_FRAMES is not set";
    }
    std::string const lacking = veldrane_mrv::polarization::missing_instructions();
    if (!lacking.empty()) {
        GTEST_SKIP() << "this processor lacks " << lacking;
    }
    std::vector<Real_frame> const frames = frames_in(folder);
    ASSERT_FALSE(frames.empty()) << "no NAME_WIDTHxHEIGHT_DEPTHbit_phasePHASE.png or .tif in "
                                 << folder;
    for (Real_frame const& frame : frames) {
        test_files::Folder const results;
        program_run::Outcome const outcome = program_run::run(
            {"process", frame.file.string(), "-o", results.path().string(), "--phase", frame.phase,
             "--bit-depth", frame.bit_depth});
        EXPECT_EQ(outcome.code, 0);
        EXPECT_EQ(outcome.errors, "");
        EXPECT_EQ(test_files::names_in(results.path()).size(), 14U);
        test_files::Tiff const degree =
            test_files::read_tiff(results / (frame.file.stem().string() + "_dolp.tif"));
        ASSERT_EQ(degree.samples.size(), frame.width * frame.height);
        double const mean = mean_degree(degree);
        std::printf("%smean degree of polarisation %.4f\n", outcome.output.c_str(), mean);
        EXPECT_GT(mean, 0.0);
        EXPECT_LE(mean, 1.0);
    }
    std::printf("%zu frames\n", frames.size());
}

} // namespace
