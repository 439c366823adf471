/// @file
/// The boundary of libveldrane_mrv_polarization_processor_vector_avx2.so: one call turns one raw
/// frame of a polarisation image sensor (a 2x2 mosaic of linear polarisers) into up to six
/// full-resolution polarimetric planes.
///
/// The header needs C++11 and no compiler flag. The library needs a processor with AVX2 and FMA
/// for every call that requests a plane; it does not test for them.
///
/// Terms
///   sample    one unsigned 16-bit number of the raw frame
///   S0        total intensity in sample units: half the sum of the four samples of a 2x2 cell,
///             so it reaches twice the sensor's full scale
///   S1, S2    linear Stokes quantities in sample units, signed: I(0) - I(90) and I(45) - I(135)
///   azimuth   angle of polarisation, shifted by 90 degrees: light polarised along the zero
///             direction of S1 has azimuth 90
///   DoLP      degree of linear polarisation, sqrt(S1^2 + S2^2) / S0
///
/// Planes
///   Every plane is row-major and densely packed: element row * width + column, no row padding, no
///   offset. Nothing beyond the element's natural alignment is required of any buffer. The raw
///   frame and the five 16-bit planes hold height * width elements, `normalized_stokes_image`
///   2 * height * width floats. A call writes each element of a requested 16-bit plane exactly
///   once.
///
/// What a caller guarantees. Nothing of it is checked; a call that breaks one of these has
/// undefined behaviour, up to memory faults.
///   1. `height` and `width` are at least 2.
///   2. If `height` is not exactly 2, `width` is at least 16.
///   3. `raw_image` has height * width readable samples, and every output pointer that is not null
///      points to a writable plane of the size above.
///   4. No two buffers overlap. Samples are read after neighbouring outputs have been written.
///   5. `maximum_output_value` is at most 65535.
///   6. `maximum_input_value` is not zero when it is read: when `s0_image`, `s1_image` or
///      `s2_image` is requested and `maximum_output_value_integer` differs from 2^bit_depth - 1.
///   7. All four references of `Calibration_matrices` are valid if any plane is requested.
///   8. The processor has AVX2 and FMA if any plane is requested.
///
/// Bits
///   A result follows from the samples, the record, the matrices, the rounding mode in force and
///   the processor's approximate reciprocal, whose bits differ between processor models. So azimuth
///   and DoLP may differ by a few steps from one model to another everywhere, and `s0_image`,
///   `s1_image` and `s2_image` where a vector block rescales them. On one model equal calls give
///   equal bits.
///
/// Threads
///   The transform reads its two arguments, writes the requested planes and its own stack, and
///   touches nothing else: any number of threads may run it at once on separate output planes, and
///   may share raw frames and matrices.
///
/// Ownership
///   Every buffer and matrix belongs to the caller and is used during the call only.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/// One frame and what is wanted of it. Filled in by the caller, only read by the library.
///
/// `maximum_input_value`, `maximum_output_value` and `maximum_output_value_integer` are three
/// independent numbers: none is derived from or checked against another.
struct Polarization_computation_arguments {
    /// Rows of the raw frame and of every plane, at least 2.
    std::size_t height;

    /// Columns of the raw frame and of every plane, and the row stride of each in elements. At
    /// least 2, and at least 16 unless `height` is 2.
    std::size_t width;

    /// Orientation of the mosaic: the polariser angles in degrees of the top-left cell, row by row,
    ///   1: 45 90 / 0 135    2: 90 45 / 135 0    3: 135 0 / 90 45    any other: 0 135 / 45 90.
    /// Reaches only the fixed pixels, see `Calibration_matrices`.
    std::int32_t polar_phase;

    /// The raw frame, height * width samples in host byte order. Samples enter the arithmetic as
    /// they stand: bits above `bit_depth` are not masked.
    std::uint16_t const* raw_image;

    /// Significant bits of a sample. Serves only to form the expected full scale 2^bit_depth - 1,
    /// in 32-bit arithmetic with the low five bits of `bit_depth` as shift count: 16 gives 65535,
    /// 31 gives 2147483647, 0 and 32 give 0.
    std::int32_t bit_depth;

    /// Full scale of S0, S1 and S2 in sample units, the divisor of their rescaling. Not zero when
    /// it is read, which is only when one of the three planes is requested and
    /// `maximum_output_value_integer` differs from 2^bit_depth - 1.
    float maximum_input_value;

    /// Full scale of the five 16-bit planes, at most 65535: upper limit of each, 180 degrees in
    /// `azimuth_image`, 1 in `dolp_image`, and the factor in the rescaling of `s0_image`,
    /// `s1_image` and `s2_image`.
    float maximum_output_value;

    /// Decides the rescaling and nothing else: equal to 2^bit_depth - 1, `s0_image`, `s1_image` and
    /// `s2_image` keep sample units; different, they are multiplied by maximum_output_value and
    /// divided by maximum_input_value. The vector blocks multiply by the processor's approximate
    /// reciprocal of maximum_input_value (relative error up to 1.5 * 2^-12) in place of the
    /// division, so there a full scale may come out a few steps off.
    std::int32_t maximum_output_value_integer;

    /// Two floats per pixel, S1 / S0 and S2 / S0, or null if not wanted. 2 * height * width floats.
    ///
    /// Weighted pixels (see `Calibration_matrices`) are stored at float 2 * (row * width + column).
    /// The vector blocks (16 columns of two rows, block_count = width / 16 - 1 of them in each row
    /// pair) keep to no position: they store pixels 0, 1, 4, 5, 10, 11, 14, 15 of a block one after
    /// another, from a running float index that starts at 0 and grows by 16 a block, the second row
    /// 2 * width floats behind the first. Blocks of later row pairs so overwrite weighted pixels of
    /// earlier ones: 32 of the 144 in a frame of width 48 and height 7. At every size only the last
    /// row (odd height) or the last two (even height), written after all blocks, are sure to stand
    /// where they belong. What no store reaches keeps the caller's contents. S0 equal to 0 gives an
    /// infinity or a NaN, stored as it falls. The plane holds every pixel at its own position for
    /// frames narrower than 32 columns or of 2 rows.
    float* normalized_stokes_image;

    /// Total intensity, or null if not wanted: S0 clamped to 0 .. maximum_output_value.
    ///
    /// In phase 0 alone, S0 of the first eight columns of a block's second row takes its
    /// even-column sample from the row above in place of the row below. The three planes that use
    /// S0 show it.
    std::uint16_t* s0_image;

    /// Positive half of S1, or null if not wanted: a negative S1 is stored as 0.
    std::uint16_t* s1_image;

    /// Positive half of S2, or null if not wanted: a negative S2 is stored as 0.
    std::uint16_t* s2_image;

    /// Azimuth, or null if not wanted: 0 to 180 degrees as 0 to `maximum_output_value`, that is
    /// (atan2(S2, S1) / 2 in degrees + 90) * maximum_output_value / 180. The arctangent is a
    /// two-term polynomial with an error of at most about 0.15 degrees of azimuth.
    std::uint16_t* azimuth_image;

    /// Degree of linear polarisation, or null if not wanted: 0 to 1 as 0 to `maximum_output_value`.
    /// About twelve good bits; 0 where S0 is 0.
    std::uint16_t* dolp_image;
};

/// Weights that turn the four samples of a pixel's 2x2 neighbourhood into 2 * S0, S1 and S2.
///
/// A matrix is row-major, 4 rows of 4. Element 4 * i + j weighs sample j in estimate i: rows 0, 1
/// and 2 give twice S0, S1 and S2; row 3 is never read. The samples are the pixel's own (j = 0),
/// its horizontal (1), its vertical (2) and its diagonal (3) neighbour; they lie to the right and
/// below, or to the left in the last column and above in the last row.
///
/// A member's name tells the parities of row and column of the pixels that it serves; the final
/// pixel of a frame whose height and width differ in parity takes `even_row_even_column`. Matrices
/// reach only the pixels outside the vector blocks, the weighted ones: of each row pair the columns
/// from 16 * (width / 16 - 1) on, and the last one (odd height) or two rows (even height). Inside
/// the blocks pixels are fixed: S0, S1 and S2 are sums and differences that `polar_phase` chooses.
/// Weights that agree with these give a picture without a seam. All four may name one array.
///
/// Nothing checks the weights. Where infinite or NaN weights make an estimate NaN, the 16-bit
/// planes that need it hold `maximum_output_value` and `normalized_stokes_image` holds NaN; but
/// DoLP is 0 wherever S0 is 0, and an S1 of 0 beside a NaN for S2 gives the azimuth of a negative
/// S2, 45 degrees.
struct Calibration_matrices {
    std::array<float, 16> const& even_row_even_column;
    std::array<float, 16> const& even_row_odd_column;
    std::array<float, 16> const& odd_row_even_column;
    std::array<float, 16> const& odd_row_odd_column;
};

extern "C" {

/// Takes a reference on the module's binding to the optional logging library. Meant to be called
/// once before the first frame; the transform works without it. Thread-safe; the logging library
/// must not call back into it or into terminate.
/// @return 0
/// @throws std::system_error with the lock's error number if the lock cannot be taken
/// @throws std::bad_alloc if memory fails
/// @throws ... whatever the logging library's mrv_get_log throws
/// The count of references is unchanged then.
__attribute__((visibility("default"))) int
qn_polarization_processor_vector_avx2_module_initialize();

/// Gives back a reference taken by qn_polarization_processor_vector_avx2_module_initialize; the
/// last one releases the binding. Without a reference it does nothing. Thread-safe. A binding that
/// is still held when the library is unloaded or the process exits is released then, whatever the
/// count of references, and without the lock.
/// @return 0
/// @throws std::system_error with the lock's error number if the lock cannot be taken; nothing has
///        changed then
__attribute__((visibility("default"))) int qn_polarization_processor_vector_avx2_module_terminate();

/// Computes every requested plane of one frame: those whose pointer in `arguments` is not null.
/// Reads no sample and writes nothing if all are null. Allocates nothing, takes no lock, throws
/// nothing. Floating-point results follow the rounding mode in force; the library never sets it.
/// @param arguments the frame and the planes; must meet guarantees 1 to 8 above
/// @param matrices  the weights of the weighted pixels
/// @return 0
__attribute__((visibility("default"))) int qn_polarization_processor_transform_vector_avx2(
    Polarization_computation_arguments const& arguments, Calibration_matrices const& matrices);

} // extern "C"

// Callers compiled against another declaration of these records rely on this layout.
static_assert(sizeof(Polarization_computation_arguments) == 96, "size of the record");
static_assert(offsetof(Polarization_computation_arguments, height) == 0, "offset of height");
static_assert(offsetof(Polarization_computation_arguments, width) == 8, "offset of width");
static_assert(
    offsetof(Polarization_computation_arguments, polar_phase) == 16, "offset of polar_phase");
static_assert(offsetof(Polarization_computation_arguments, raw_image) == 24, "offset of raw_image");
static_assert(offsetof(Polarization_computation_arguments, bit_depth) == 32, "offset of bit_depth");
static_assert(
    offsetof(Polarization_computation_arguments, maximum_input_value) == 36,
    "offset of maximum_input_value");
static_assert(
    offsetof(Polarization_computation_arguments, maximum_output_value) == 40,
    "offset of maximum_output_value");
static_assert(
    offsetof(Polarization_computation_arguments, maximum_output_value_integer) == 44,
    "offset of maximum_output_value_integer");
static_assert(
    offsetof(Polarization_computation_arguments, normalized_stokes_image) == 48,
    "offset of normalized_stokes_image");
static_assert(offsetof(Polarization_computation_arguments, s0_image) == 56, "offset of s0_image");
static_assert(offsetof(Polarization_computation_arguments, s1_image) == 64, "offset of s1_image");
static_assert(offsetof(Polarization_computation_arguments, s2_image) == 72, "offset of s2_image");
static_assert(
    offsetof(Polarization_computation_arguments, azimuth_image) == 80, "offset of azimuth_image");
static_assert(
    offsetof(Polarization_computation_arguments, dolp_image) == 88, "offset of dolp_image");
static_assert(sizeof(Calibration_matrices) == 32, "four references");
