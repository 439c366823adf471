/// @file
/// The exception for a file that is not what it should be.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

namespace veldrane_mrv::polarization {

/// One line for a user's eyes: the file, what is wrong with it, and the remedy where there is one.
class File_failure : public std::runtime_error {
public:
    File_failure(std::filesystem::path const& file, std::string const& problem)
        : std::runtime_error{file.string() + ": " + problem} {}
};

} // namespace veldrane_mrv::polarization
