/// @file
/// What recordings tell of themselves, in place of options.
#pragma once

#include "input/input_options.hpp"

namespace polarize_tool {

/// Fills in what the command line leaves open and all recordings that it names tell: the bit depth,
/// the mosaic, and for the results how samples lie in their files. The frames are still looked for
/// without a layout, so that none of it is taken for another file. Where one of the frames is of
/// no recording, or comes from standard input, nothing.
/// @throws Usage_error if they differ in what one run has to know
/// @throws File_failure if what stands beside a recording is damaged
void take_from_recordings(Input_options& input, Sample_options& samples, Mosaic_options& mosaic);

} // namespace polarize_tool
