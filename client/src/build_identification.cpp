#include "veldrane_mrv/polarization/build_identification.hpp"

#include "veldrane_mrv/polarization/regular_files.hpp"
#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"

#include <dlfcn.h>
#include <span>
#include <string_view>

namespace veldrane_mrv::polarization {
namespace {

// The library keeps its identification in its data for tools that search files, and exports no
// symbol for it; which file it was loaded from, the loader tells.
std::string identification_in(std::string const& file) {
    constexpr std::string_view start = "Version = ";
    std::string_view const marker = "$Id: veldrane_mrv_polarization_processor_vector_avx2";
    // At once: piece by piece, megabytes take longer than a frame does.
    regular_files::Input const library = regular_files::open_to_read(file);
    std::string bytes(
        library.problem.empty() ? static_cast<std::size_t>(library.status.st_size) : 0, '\0');
    regular_files::read_exactly(library.descriptor, std::as_writable_bytes(std::span(bytes)));
    std::size_t const place = bytes.find(marker);
    std::size_t const version = bytes.find(start, place);
    std::size_t const end = bytes.find(" $", version);
    if (place == std::string::npos || version == std::string::npos || end == std::string::npos) {
        return "version unknown (" + file + " cannot be read)";
    }
    return bytes.substr(version, end - version);
}

} // namespace

std::string const& processor_identification() {
    static std::string const identification = [] {
        Dl_info library = {};
        auto const address =
            reinterpret_cast<void const*>(&qn_polarization_processor_transform_vector_avx2);
        bool const found = dladdr(address, &library) != 0 && library.dli_fname != nullptr;
        return identification_in(found ? library.dli_fname : "the library");
    }();
    return identification;
}

} // namespace veldrane_mrv::polarization
