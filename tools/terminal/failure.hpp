/// @file
/// The errors of the tool's parts: something about one file is wrong.
#pragma once

#include "veldrane_mrv/polarization/file_failure.hpp"

#include <exception>
#include <stdexcept>
#include <string>

namespace polarize_tool {

using veldrane_mrv::polarization::File_failure;

/// The place of the results takes nothing, or nothing more: every further file would fail for the
/// same reason.
class Output_exhausted : public File_failure {
public:
    using File_failure::File_failure;
    explicit Output_exhausted(File_failure const& failure) : File_failure(failure) {}
};

/// The command line asks for something that cannot be; nothing has been done.
class Usage_error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// What is wrong, for the user: an own error's line as it stands, the language's in own words.
std::string reason_of(std::exception const& error);

} // namespace polarize_tool
