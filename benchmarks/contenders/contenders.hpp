#pragma once

#include "support/output_sets.hpp"

#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"

/// What the library is measured against. Each takes a frame as the library does: even height and
/// width, samples within `bit_depth`, full scales in sample units, one of the sets of
/// `Output_planes`. They agree with the library within a few counts, and differ from it at the
/// joint of its arctangent.
namespace contenders {

using Process = void(Polarization_computation_arguments const& frame);

/// The least that any such program does: every raw sample read once, every element of every plane
/// written once, with ordinary vector stores, prefetched as the library's, without arithmetic.
Process limit;

/// The C library's copy for as many bytes, plane by plane; it may use streaming stores.
Process memory_copy;

/// What a good engineer writes without the library, compiled for AVX2 and for the machine at hand.
Process plain_loop_avx2, plain_loop_native;

/// The same loop by somebody who knows what the compiler vectorises best: it reads and writes pairs
/// of pixels as words of 32 bits.
Process word_loop_avx2, word_loop_native;

/// OpenCV's functions in strips of 16 rows. Up to eleven intermediate images of a strip, 1.7 MB at
/// 2448 columns, stay in the caches, if not all in the second level. Lower strips would, but are
/// slower by up to a tenth with 8 rows and more with fewer: each call costs more than it saves.
Process opencv_strips;

} // namespace contenders
