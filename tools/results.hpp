/// @file
/// The files that one processed frame leaves in the folder of results.
#ifndef VELDRANE_TOOLS_RESULTS_HPP
#define VELDRANE_TOOLS_RESULTS_HPP

#include "frame.hpp"
#include "transform.hpp"

#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace polarize_tool {

/// Paths of all files that `planes` of a frame called `stem` lead to.
std::vector<std::filesystem::path> result_files(
    std::filesystem::path const& folder, std::string const& stem, std::set<Plane> const& planes);

/// Writes them, all or none.
/// @throws File_failure
void write_results(
    std::filesystem::path const& folder, std::string const& stem, Frame const& frame,
    Transform_result const& result, Transform_settings const& settings);

} // namespace polarize_tool

#endif
