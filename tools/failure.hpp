/// @file
/// The one error of the tool's parts: something about one file is wrong.
#ifndef VELDRANE_TOOLS_FAILURE_HPP
#define VELDRANE_TOOLS_FAILURE_HPP

#include <filesystem>
#include <stdexcept>
#include <string>

namespace polarize_tool {

/// One line for the user: the file, what is wrong with it, and the remedy where there is one.
class File_failure : public std::runtime_error {
public:
    File_failure(std::filesystem::path const& file, std::string const& problem)
        : std::runtime_error(file.string() + ": " + problem) {}
};

} // namespace polarize_tool

#endif
