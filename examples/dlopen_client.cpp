// A client that loads the processor at run time and so can do without it. It needs the header only.
//
//     g++ dlopen_client.cpp $(pkg-config --cflags veldrane_mrv_polarization)

#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"

#include <array>
#include <cstdint>
#include <cstdio>
#include <dlfcn.h>

namespace {

// decltype of the declared function: a pointer of another type would not compile.
template <typename Function>
Function* find(void* library, char const* name) {
    auto* const function = reinterpret_cast<Function*>(dlsym(library, name));
    if (function == nullptr) {
        std::fprintf(stderr, "%s not found: %s\n", name, dlerror());
    }
    return function;
}

} // namespace

int main(int argument_count, char** arguments) {
    char const* const file =
        argument_count > 1 ? arguments[1] : "libveldrane_mrv_polarization_processor_vector_avx2.so";
    void* const library = dlopen(file, RTLD_NOW);
    if (library == nullptr) {
        std::fprintf(stderr, "%s\nGive the library's path as the argument.\n", dlerror());
        return 1;
    }
    auto* const initialize =
        find<decltype(qn_polarization_processor_vector_avx2_module_initialize)>(
            library, "qn_polarization_processor_vector_avx2_module_initialize");
    auto* const transform = find<decltype(qn_polarization_processor_transform_vector_avx2)>(
        library, "qn_polarization_processor_transform_vector_avx2");
    auto* const terminate = find<decltype(qn_polarization_processor_vector_avx2_module_terminate)>(
        library, "qn_polarization_processor_vector_avx2_module_terminate");
    if (initialize == nullptr || transform == nullptr || terminate == nullptr) {
        return 1;
    }
    if (!__builtin_cpu_supports("avx2") || !__builtin_cpu_supports("fma")) {
        std::puts("This processor has no AVX2 and FMA; no frame processed.");
        return 0;
    }

    initialize();
    std::array<std::uint16_t, 4> const raw{400, 300, 200, 100};
    std::array<std::uint16_t, 4> s0{};
    std::array<float, 16> const sum{1, 1, 1, 1};
    Polarization_computation_arguments frame{};
    frame.height = 2;
    frame.width = 2;
    frame.raw_image = raw.data();
    frame.bit_depth = 12;
    frame.maximum_output_value = 4095;
    frame.maximum_output_value_integer = 4095; // equals 2^12 - 1: the planes keep sample units
    frame.s0_image = s0.data();
    transform(frame, Calibration_matrices{sum, sum, sum, sum});
    std::printf("total intensity %d\n", s0[0]);
    terminate();
    dlclose(library);
}
