/// @file
/// Covers the layout of the exported object and of the record in it, on which other programs rely.

#include "scenario_run.hpp"

#include <gtest/gtest.h>

namespace lifecycle {
namespace {

TEST(Logger, and_its_record_keep_their_fields_in_place) {
    std::string const log = log_of({"initialize layout"});
    EXPECT_NE(
        log.find("logger at 0, 56 bytes\n"
                 "object at 0, 8 bytes\n"
                 "count at 8, 4 bytes\n"
                 "lock at 16, 40 bytes\n"
                 "library_handle at 0, 8 bytes\n"
                 "log_handle at 8, 8 bytes\n"
                 "log_function at 16, 8 bytes\n"
                 "is_bound at 24, 1 bytes\n"
                 "module_name at 32, 32 bytes\n"
                 "log_qualifier at 64, 32 bytes\n"),
        std::string::npos)
        << log;
}

} // namespace
} // namespace lifecycle
