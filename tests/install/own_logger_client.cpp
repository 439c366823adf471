// A client whose own global object has the name of the one that the library exports. Each side must
// keep to its own, to the very end of the process.

#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>

constexpr std::uint8_t mark = 0xA5;

extern std::array<std::uint8_t, 256> logger;
std::array<std::uint8_t, 256> logger = [] {
    std::array<std::uint8_t, 256> bytes{};
    bytes.fill(mark);
    return bytes;
}();

int main() {
    qn_polarization_processor_vector_avx2_module_initialize();
    qn_polarization_processor_vector_avx2_module_initialize();
    qn_polarization_processor_vector_avx2_module_terminate();
    bool const untouched =
        std::all_of(logger.begin(), logger.end(), [](std::uint8_t byte) { return byte == mark; });
    std::printf("the client's object is %s\n", untouched ? "untouched" : "changed");
    return untouched ? 0 : 1;
}
