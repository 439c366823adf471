// A client that names the library's exported `logger` directly has a copy of its own under that
// name; the one that the library works with is found by dlsym on the library's handle.

#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"

#include <cstdint>
#include <cstdio>
#include <dlfcn.h>

struct Exported_logger {
    void* object;
    std::int32_t count;
    unsigned char lock[40];
};
extern Exported_logger logger;

int main() {
    void* const library =
        dlopen("libveldrane_mrv_polarization_processor_vector_avx2.so", RTLD_LAZY | RTLD_NOLOAD);
    if (library == nullptr) {
        std::printf("the library is not loaded under its name\n");
        return 1;
    }
    auto const* const exported = static_cast<Exported_logger*>(dlsym(library, "logger"));
    qn_polarization_processor_vector_avx2_module_initialize();
    std::int32_t const held = exported->count;
    std::int32_t const named = logger.count;
    qn_polarization_processor_vector_avx2_module_terminate();
    std::printf(
        "after initialise: %d reference by dlsym, %d by name; after terminate: %d\n", held, named,
        exported->count);
    bool const is_apart = exported != &logger && held == 1 && named == 0 && exported->count == 0;
    dlclose(library);
    return is_apart ? 0 : 1;
}
