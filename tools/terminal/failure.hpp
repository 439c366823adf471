/// @file
/// The errors of the tool's parts: something about one file is wrong.
#pragma once

#include <exception>
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

/// The place of the results takes nothing, or nothing more: every further file would fail for the
/// same reason.
class Output_exhausted : public File_failure {
public:
    using File_failure::File_failure;
};

/// The command line asks for something that cannot be; nothing has been done.
class Usage_error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// What is wrong, for the user: an own error's line as it stands, the language's in own words.
std::string reason_of(std::exception const& error);

} // namespace polarize_tool
