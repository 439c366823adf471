#include "terminal/failure.hpp"

#include "terminal/memory.hpp"

#include <system_error>

namespace polarize_tool {

std::string reason_of(std::exception const& error) {
    if (is_lack_of_memory(error)) {
        return "too large for the memory of this machine; use a smaller frame";
    }
    if (auto const* const refused = dynamic_cast<std::system_error const*>(&error)) {
        return "the system refuses: " + refused->code().message();
    }
    return error.what();
}

} // namespace polarize_tool
