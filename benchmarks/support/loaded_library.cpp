#include "support/loaded_library.hpp"

#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace {

constexpr char const* transform_name = "qn_polarization_processor_transform_vector_avx2";

std::string identification_in(std::string const& path) {
    std::ifstream file(path, std::ios::binary);
    std::string const bytes(std::istreambuf_iterator<char>(file), {});
    std::string const start = "$Id: veldrane";
    std::size_t const at = bytes.find(start);
    std::size_t const end = at == std::string::npos ? at : bytes.find(" $", at);
    return end == std::string::npos ? path : bytes.substr(at + 5, end - at - 5);
}

} // namespace

void Loaded_library::Close::operator()(void* library) const {
    dlclose(library);
}

Loaded_library::Loaded_library(std::string const& path)
    // A path with a slash: without one the loader searches its own directories, and takes a library
    // that is already there under this name.
    : library_(dlopen(std::filesystem::absolute(path).c_str(), RTLD_NOW | RTLD_LOCAL)) {
    if (library_ == nullptr) {
        throw std::runtime_error(
            "cannot load '" + path + "': " + dlerror() + "; give the path of a built library");
    }
    transform_ = reinterpret_cast<Transform*>(dlsym(library_.get(), transform_name));
    if (transform_ == nullptr) {
        throw std::runtime_error(
            "'" + path + "' has no " + transform_name + "; give the path of a built processor");
    }
    identification_ = identification_in(path);
}
