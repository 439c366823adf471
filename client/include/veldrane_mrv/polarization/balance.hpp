/// @file
/// Whether a frame can come from a mosaic with orthogonal polarisers on the diagonals of its cell.
#pragma once

#include "veldrane_mrv/polarization/views.hpp"

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace veldrane_mrv::polarization {

/// The three ways to split the four positions of a cell into two pairs.
enum class Pairing : unsigned { diagonals, rows, columns };

inline constexpr std::array every_pairing{Pairing::diagonals, Pairing::rows, Pairing::columns};

/// "diagonals", "rows" or "columns".
std::string_view name_of(Pairing pairing);

/// What `check_balance` found.
///
/// Two polarisers at right angles pass all of the light between them, so the two pairs of a cell
/// have equal sums if each pair is orthogonal. The imbalance of a pairing is the root mean square,
/// over tiles of 16 by 16 pixels, of the difference between the two pairs' sums in a tile, divided
/// by the mean sum of all four: 0 for pairs in balance, 1 if all light were in one pair. Summing
/// over tiles takes out noise, and the slopes of the picture within a cell.
struct Balance {
    enum class Verdict {
        /// The diagonals are clearly in better balance than rows and columns: the mosaic can be one
        /// of the four.
        possible,
        /// Rows or columns are clearly in better balance: the mosaic is none of the four, or the
        /// rows of the frame are not where they are thought to be.
        unlikely,
        /// The frame shows no clear difference: little polarised light, or all of it at an angle
        /// halfway between two polarisers.
        undecided,
    };

    /// In the order of `every_pairing`.
    std::array<double, 3> imbalance;
    Verdict verdict;

    double of(Pairing pairing) const { return imbalance[static_cast<unsigned>(pairing)]; }

    /// One or two sentences for a user, which also say what no frame can tell: the four mosaics
    /// balance alike, so a phase has to come from the sensor's data sheet or from light of known
    /// polarisation.
    std::string explanation() const;
};

/// "possible", "unlikely" or "undecided".
std::string_view name_of(Balance::Verdict verdict);

/// @throws Argument_error unless the frame has two rows and two columns
Balance check_balance(Frame_view const& frame);

} // namespace veldrane_mrv::polarization
