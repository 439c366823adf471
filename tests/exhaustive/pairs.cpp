#include "exhaustive/pairs.hpp"

#include "support/matrices.hpp"
#include "support/random_stream.hpp"

#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <sstream>
#include <string_view>
#include <vector>

namespace exhaustive {
namespace {

using namespace support;

/// The mosaic 45 90 / 0 135: S1 of a cell is odd-even less even-odd, S2 even-even less odd-odd.
constexpr std::int32_t polar_phase{1};

/// A cell of two by two pixels for each pair; only its first pixel has all four samples to itself.
/// The cells of all S2 fill 16382 columns, and 1025 times 16 leaves 1024 vector blocks.
constexpr std::size_t width{16400};
static_assert(16 * (width / 16 - 1) >= 2 * differences);

/// Cells of 16 S1 stay in the cache. The border takes the two rows below them.
constexpr std::size_t cell_rows{16};
constexpr std::size_t height{2 * cell_rows + 2};

constexpr std::uint64_t random_seed{20'240'229};

int stride() {
    char const* const all = std::getenv("VELDRANE_EXHAUSTIVE");
    return all != nullptr && std::string_view{all} == "1" ? 1 : PAIR_STRIDE;
}

class Pair_frame {
public:
    Pair_frame(Arithmetic arithmetic, Plane wanted) : arithmetic_{arithmetic}, wanted_{wanted} {
        Weights const spoiled{NAN, NAN, NAN, NAN};
        matrices_ = arithmetic == Arithmetic::weighted
                        ? make_matrices(Matrix_kind::ideal, polar_phase, 0)
                        : everywhere(matrix_of(spoiled, spoiled, spoiled));
    }

    void set_cell(std::size_t cell_row, int s1, int s2, int twice_s0) {
        int const shared = (twice_s0 - std::abs(s1) - std::abs(s2)) / 2;
        int const below_s1 = std::min(shared, largest_difference - std::abs(s1));
        int const below_s2 = shared - below_s1;
        std::uint16_t* const even = samples_.data() + offset(cell_row, s2);
        std::uint16_t* const odd = even + width;
        odd[0] = static_cast<std::uint16_t>(below_s1 + std::max(s1, 0));
        even[1] = static_cast<std::uint16_t>(below_s1 + std::max(-s1, 0));
        even[0] = static_cast<std::uint16_t>(below_s2 + std::max(s2, 0));
        odd[1] = static_cast<std::uint16_t>(below_s2 + std::max(-s2, 0));
    }

    /// Two rows have no vector block: the weighted arithmetic takes each row of cells as a frame.
    void run() {
        if (arithmetic_ == Arithmetic::fixed) {
            run_rows(0, height);
            return;
        }
        for (std::size_t cell_row = 0; cell_row < cell_rows; ++cell_row) {
            run_rows(2 * cell_row, 2);
        }
    }

    std::uint16_t result(std::size_t cell_row, int s2) const {
        return results_[offset(cell_row, s2)];
    }

private:
    static std::size_t offset(std::size_t cell_row, int s2) {
        return 2 * cell_row * width + 2 * static_cast<std::size_t>(s2 + largest_difference);
    }

    void run_rows(std::size_t first_row, std::size_t rows) {
        std::uint16_t* const results = results_.data() + first_row * width;
        Polarization_computation_arguments const arguments{
            rows,
            width,
            polar_phase,
            samples_.data() + first_row * width,
            16,
            65535,
            maximum_output_value,
            65535,
            nullptr,
            nullptr,
            nullptr,
            nullptr,
            wanted_ == Plane::azimuth ? results : nullptr,
            wanted_ == Plane::dolp ? results : nullptr};
        qn_polarization_processor_transform_vector_avx2(
            arguments, {matrices_[0], matrices_[1], matrices_[2], matrices_[3]});
    }

    Arithmetic arithmetic_;
    Plane wanted_;
    Matrix_set matrices_;
    std::vector<std::uint16_t> samples_ = std::vector<std::uint16_t>(height * width);
    std::vector<std::uint16_t> results_ = std::vector<std::uint16_t>(height * width);
};

/// Of the four samples two give the magnitudes; what the other two leave of 4095 each can be added.
int twice_s0_of(Intensity intensity, int s1, int s2, Random_stream& random) {
    int const smallest = std::abs(s1) + std::abs(s2);
    int const most_shared = 2 * largest_difference - smallest;
    switch (intensity) {
    case Intensity::smallest:
        return smallest;
    case Intensity::largest:
        return smallest + 2 * most_shared;
    case Intensity::random:
        break;
    }
    auto const limit = static_cast<std::uint32_t>(most_shared + 1);
    return smallest + 2 * static_cast<int>(random.below(limit));
}

/// The pairs of one S1, without results.
void make_pairs(Intensity intensity, int s1, std::vector<Pair>& pairs) {
    Random_stream random{random_seed + static_cast<std::uint64_t>(s1 + largest_difference)};
    pairs.clear();
    for (int s2 = -largest_difference; s2 <= largest_difference; ++s2) {
        pairs.push_back({s1, s2, twice_s0_of(intensity, s1, s2, random), 0});
    }
}

std::string describe(Pair const& pair) {
    std::ostringstream text;
    text << "S1 " << pair.s1 << ", S2 " << pair.s2 << ", S0 " << pair.twice_s0 * 0.5;
    return text.str();
}

} // namespace

char const* name_of(Arithmetic arithmetic) {
    return arithmetic == Arithmetic::fixed ? "fixed" : "weighted";
}

char const* name_of(Intensity intensity) {
    constexpr std::array names{"smallest", "largest", "random"};
    return names[static_cast<std::size_t>(intensity)];
}

std::size_t for_each_pair(
    Arithmetic arithmetic, Intensity intensity, Plane wanted,
    std::function<void(std::span<Pair const>)> const& visit) {
    Pair_frame frame{arithmetic, wanted};
    std::array<std::vector<Pair>, cell_rows> pairs;
    std::size_t visited = 0;
    int s1 = -largest_difference;
    while (s1 <= largest_difference) {
        std::size_t rows = 0;
        for (; rows < cell_rows && s1 <= largest_difference; ++rows, s1 += stride()) {
            make_pairs(intensity, s1, pairs[rows]);
            for (Pair const& pair : pairs[rows]) {
                frame.set_cell(rows, pair.s1, pair.s2, pair.twice_s0);
            }
        }
        frame.run();
        for (std::size_t row = 0; row < rows; ++row) {
            for (Pair& pair : pairs[row]) {
                pair.result = frame.result(row, pair.s2);
            }
            visit(pairs[row]);
            visited += pairs[row].size();
        }
    }
    return visited;
}

std::size_t pairs_to_visit() {
    return (2 * largest_difference / static_cast<std::size_t>(stride()) + 1) * differences;
}

void Tally::compare(Pair const& pair, std::uint16_t expected) {
    if (pair.result != expected && mismatches_++ == 0) {
        mismatch_ = pair;
        expected_ = expected;
    }
}

void Tally::note_error(Pair const& pair, double counts) {
    if (counts > largest_error_) {
        largest_error_ = counts;
        worst_ = pair;
    }
}

std::string Tally::describe_first_mismatch() const {
    std::ostringstream text;
    text << mismatches_ << " results differ from the reference, the first at "
         << describe(mismatch_) << ": expected " << expected_ << ", got " << mismatch_.result;
    return text.str();
}

std::string Tally::describe_largest_error() const {
    std::ostringstream text;
    text << largest_error_ << " counts of " << maximum_output_value << " at " << describe(worst_);
    return text.str();
}

} // namespace exhaustive
