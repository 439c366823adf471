#include "failure.hpp"

#include <new>
#include <system_error>

namespace polarize_tool {

std::string reason_of(std::exception const& error) {
    bool const lacks_memory = dynamic_cast<std::bad_alloc const*>(&error) != nullptr ||
                              dynamic_cast<std::length_error const*>(&error) != nullptr;
    if (lacks_memory) {
        return "too large for the memory of this machine; use a smaller frame";
    }
    if (auto const* const refused = dynamic_cast<std::system_error const*>(&error)) {
        return "the system refuses: " + refused->code().message();
    }
    return error.what();
}

} // namespace polarize_tool
