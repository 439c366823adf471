// What a program can say of the processor that it runs with.

#include "veldrane_mrv/polarization/build_identification.hpp"
#include "veldrane_mrv/polarization/calibration.hpp"

#include <gtest/gtest.h>
#include <regex>
#include <string>

namespace {

using namespace veldrane_mrv::polarization;

TEST(Build_identification, has_version_commit_and_time) {
    std::string const& found = processor_identification();
    std::regex const form(
        R"(Version = [0-9]+(\.[0-9]+){3}_[0-9a-f]{7} [0-9]{4}(-[0-9]{2}){2}T[0-9]{2}(:[0-9]{2}){2})");
    EXPECT_TRUE(std::regex_match(found, form)) << found;
    EXPECT_TRUE(found.starts_with("Version = " + std::string(software_version()) + "_")) << found;
}

} // namespace
