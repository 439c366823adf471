/// @file
/// Opens files that somebody named.
#pragma once

#include "veldrane_mrv/polarization/file_failure.hpp"
#include "veldrane_mrv/polarization/regular_files.hpp"

#include <filesystem>
#include <string>

namespace veldrane_mrv::polarization {

/// What the user named it as, for the remedy if it is none.
enum class Input_role { frame, table };

/// @throws File_failure unless `file` is a regular one that can be opened
regular_files::Input open_input(std::filesystem::path const& file, Input_role role);

/// The whole of a table.
/// @throws File_failure
std::string read_table(std::filesystem::path const& file);

} // namespace veldrane_mrv::polarization
