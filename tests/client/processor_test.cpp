// What a processor may lack.

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/processor.hpp"

#include <gtest/gtest.h>

namespace {

using namespace veldrane_mrv::polarization;

TEST(Processor, is_told_what_it_lacks) {
    EXPECT_EQ(missing_instructions({true, true}), "");
    EXPECT_EQ(missing_instructions({true, false}), "FMA");
    EXPECT_EQ(missing_instructions({false, true}), "AVX2");
    EXPECT_EQ(missing_instructions({false, false}), "AVX2 and FMA");
    EXPECT_EQ(missing_instructions(), "") << "these tests run the transform";
}

TEST(Processor, is_refused_with_what_it_lacks) {
    EXPECT_NO_THROW(check(Processor_features{true, true}));
    try {
        check(Processor_features{false, true});
        FAIL();
    } catch (Argument_error const& error) {
        EXPECT_STREQ(
            error.what(), "the processor of this machine is without AVX2; use an x86-64 processor "
                          "that has AVX2 and FMA");
    }
}

} // namespace
