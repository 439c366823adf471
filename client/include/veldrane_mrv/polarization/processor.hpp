/// @file
/// What the machine's processor must be able to do. Safe to ask on any x86-64.
#pragma once

#include <string>

namespace veldrane_mrv::polarization {

struct Processor_features {
    bool avx2;
    bool fma;
};

/// Of the processor that runs this code.
Processor_features processor_features();

/// Empty if the transform can run, else what it lacks: "AVX2", "FMA" or "AVX2 and FMA".
std::string missing_instructions(Processor_features const& features = processor_features());

/// @throws Argument_error if the transform cannot run, naming what the processor lacks
void check(Processor_features const& features);

} // namespace veldrane_mrv::polarization
