#include "veldrane_mrv/polarization/processor.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

namespace veldrane_mrv::polarization {

Processor_features processor_features() {
    return {__builtin_cpu_supports("avx2") != 0, __builtin_cpu_supports("fma") != 0};
}

std::string missing_instructions(Processor_features const& features) {
    if (features.avx2 && features.fma) {
        return {};
    }
    if (!features.avx2 && !features.fma) {
        return "AVX2 and FMA";
    }
    return features.avx2 ? "FMA" : "AVX2";
}

void check(Processor_features const& features) {
    std::string const missing = missing_instructions(features);
    if (!missing.empty()) {
        throw Argument_error{
            "the processor of this machine", "without " + missing,
            "use an x86-64 processor that has AVX2 and FMA"};
    }
}

} // namespace veldrane_mrv::polarization
