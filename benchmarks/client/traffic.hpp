#pragma once

#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"

#include <cstddef>
#include <cstdint>
#include <span>

/// Row after row, every raw sample and every byte of the tables is read once and every element of
/// every 16-bit plane of the record written once, with ordinary vector stores, prefetched as the
/// transform's, without arithmetic: what the memory alone allows.
/// @param tables of a multiple of 32 bytes for each row
/// @param signed_planes of 32-bit integers; may be null
void move_same_bytes(
    Polarization_computation_arguments const& frame,
    std::span<std::span<std::byte const> const> tables,
    std::span<std::int32_t* const> signed_planes);
