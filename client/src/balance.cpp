#include "veldrane_mrv/polarization/balance.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <sstream>

namespace veldrane_mrv::polarization {
namespace {

constexpr std::size_t tile_edge = 16;

// By position in the cell: even row even column, even row odd column, odd row even column, odd row
// odd column.
using Sums = std::array<std::uint64_t, 4>;

Sums sums_of_tile(Frame_view const& frame, std::size_t row, std::size_t column) {
    std::size_t const row_end = std::min(row + tile_edge, frame.height() & ~std::size_t{1});
    std::size_t const column_end = std::min(column + tile_edge, frame.width() & ~std::size_t{1});
    Sums sums{};
    for (std::size_t r = row; r < row_end; r += 2) {
        for (std::size_t c = column; c < column_end; c += 2) {
            sums[0] += frame(r, c);
            sums[1] += frame(r, c + 1);
            sums[2] += frame(r + 1, c);
            sums[3] += frame(r + 1, c + 1);
        }
    }
    return sums;
}

// First pair less second pair, in the order of `every_pairing`.
std::array<double, 3> differences(Sums const& sums) {
    std::array<double, 4> s{};
    std::ranges::transform(sums, s.begin(), [](std::uint64_t sum) { return double(sum); });
    return {s[0] + s[3] - s[1] - s[2], s[0] + s[1] - s[2] - s[3], s[0] + s[2] - s[1] - s[3]};
}

// Noise gives the three figures a scatter against each other that falls with the square root of the
// number of tiles. 1.25 stays above what real sensors show in unpolarised scenes.
double clear_ratio(std::size_t tiles) {
    return 1.25 + 4 / std::sqrt(static_cast<double>(tiles));
}

Balance::Verdict verdict_of(std::array<double, 3> const& imbalance, std::size_t tiles) {
    auto const [diagonals, rows, columns] = imbalance;
    double const others = std::min(rows, columns);
    if (diagonals * clear_ratio(tiles) < others) {
        return Balance::Verdict::possible;
    }
    return others * clear_ratio(tiles) < diagonals ? Balance::Verdict::unlikely
                                                   : Balance::Verdict::undecided;
}

} // namespace

std::string_view name_of(Pairing pairing) {
    constexpr std::array<std::string_view, every_pairing.size()> names{
        "diagonals", "rows", "columns"};
    return names[static_cast<unsigned>(pairing)];
}

std::string_view name_of(Balance::Verdict verdict) {
    constexpr std::array<std::string_view, 3> names{"possible", "unlikely", "undecided"};
    return names[static_cast<unsigned>(verdict)];
}

Balance check_balance(Frame_view const& frame) {
    if (frame.height() < 2 || frame.width() < 2) {
        throw Argument_error{
            "the size of the frame", to_string(frame.size()),
            "give a frame of at least one cell of 2 x 2 pixels"};
    }
    std::array<double, 3> squares{};
    double light = 0;
    std::size_t tiles = 0;
    for (std::size_t row = 0; row + 1 < frame.height(); row += tile_edge) {
        for (std::size_t column = 0; column + 1 < frame.width(); column += tile_edge) {
            // Tiles at the right and lower edges hold fewer cells.
            double const cells =
                static_cast<double>(std::min(tile_edge, frame.height() - row) / 2) *
                static_cast<double>(std::min(tile_edge, frame.width() - column) / 2);
            Sums const sums = sums_of_tile(frame, row, column);
            std::array<double, 3> const difference = differences(sums);
            for (std::size_t i = 0; i < squares.size(); ++i) {
                squares[i] += difference[i] * difference[i] / (cells * cells);
            }
            light += static_cast<double>(sums[0] + sums[1] + sums[2] + sums[3]) / cells;
            ++tiles;
        }
    }
    Balance balance{};
    if (light > 0) {
        auto const count = static_cast<double>(tiles);
        std::ranges::transform(squares, balance.imbalance.begin(), [&](double square) {
            return std::sqrt(square / count) / (light / count);
        });
    }
    balance.verdict = verdict_of(balance.imbalance, tiles);
    return balance;
}

std::string Balance::explanation() const {
    std::ostringstream text;
    text.precision(3);
    switch (verdict) {
    case Verdict::possible:
        text << "The diagonals of the mosaic's cell are in balance, as they are in all four "
                "mosaics; which of the four phases it is no frame can tell without light of known "
                "polarisation, so take it from the sensor's data sheet.";
        break;
    case Verdict::unlikely:
        text << "The " << (of(Pairing::rows) < of(Pairing::columns) ? "rows" : "columns")
             << " of the mosaic's cell are in better balance than its diagonals (imbalance "
             << std::min(of(Pairing::rows), of(Pairing::columns)) << " against "
             << of(Pairing::diagonals)
             << "), so orthogonal polarisers do not seem to lie on the diagonals: none of the four "
                "mosaics fits, or the frame's size or header is not what it is taken for.";
        break;
    case Verdict::undecided:
        text << "The frame shows too little polarised light, or light at an angle between two "
                "polarisers, to tell whether orthogonal polarisers lie on the diagonals of the "
                "mosaic's cell; the four phases cannot be told apart in any case.";
        break;
    }
    return text.str();
}

} // namespace veldrane_mrv::polarization
