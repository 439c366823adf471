/// @file
/// Whether results may take the place of files that are there.
#pragma once

namespace veldrane_mrv::polarization {

/// Regular files are replaced, and nothing else: a device, a pipe, a folder or a link stays.
enum class Existing_files { keep, replace };

} // namespace veldrane_mrv::polarization
