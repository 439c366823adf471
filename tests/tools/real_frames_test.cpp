// Frames of a real sensor, where the environment variable POLARIZATION_FRAMES names their folder.
#include "program_run.hpp"
#include "test_files.hpp"
#include "veldrane_mrv/polarization/processor.hpp"

#include <cstdlib>
#include <gtest/gtest.h>

namespace {

TEST(Real_frames, fruits_are_processed_and_polarised_weakly) {
    char const* const frames = std::getenv("POLARIZATION_FRAMES");
    if (frames == nullptr) {
        GTEST_SKIP() << "POLARIZATION_FRAMES is not set";
    }
    std::string const lacking = veldrane_mrv::polarization::missing_instructions();
    if (!lacking.empty()) {
        GTEST_SKIP() << "this processor lacks " << lacking;
    }
    std::filesystem::path const frame =
        std::filesystem::path(frames) / "fruits_2448x2048_8bit_phase2.png";
    if (!std::filesystem::exists(frame)) {
        GTEST_SKIP() << frame << " does not exist";
    }
    test_files::Folder const folder;
    program_run::Outcome const outcome = program_run::run(
        {"process", frame.string(), "-o", folder.path().string(), "--phase", "2", "--bit-depth",
         "8"});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.errors, "");
    std::printf("%s", outcome.output.c_str());
    EXPECT_EQ(test_files::names_in(folder.path()).size(), 14U);
    test_files::Tiff const degree =
        test_files::read_tiff(folder / "fruits_2448x2048_8bit_phase2_dolp.tif");
    ASSERT_EQ(degree.samples.size(), 2448U * 2048U);
    double sum = 0.0;
    for (double const sample : degree.samples) {
        sum += sample / 65535.0;
    }
    double const mean = sum / static_cast<double>(degree.samples.size());
    std::printf("mean degree of polarisation %.4f\n", mean);
    EXPECT_GT(mean, 0.005);
    EXPECT_LT(mean, 0.2);
}

} // namespace
