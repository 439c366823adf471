#include "comparison/agreement.hpp"

#include "comparison/statistics.hpp"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <stdexcept>

namespace {

/// Fewer and more pixels than the limit takes for a frame in the caches: it has a loop for each.
constexpr Frame_size sizes[] = {{64, 512}, {320, 512}};

/// Counts of 4095 that half and 95 of 100 pixels keep within. The arctangents differ by up to 0.3
/// degrees, that is 7 counts; the reciprocals by a count.
struct Tolerance {
    double half, most;
};

constexpr Tolerance exact_plane{0.5, 1};
constexpr Tolerance azimuth_tolerance{4, 8};
constexpr Tolerance dolp_tolerance{1, 2};

/// Of a ratio around 1.
constexpr Tolerance ratio_tolerance{1e-4, 1e-3};

/// What no contender writes: samples and planes end at the full scale, ratios at twice of it.
constexpr std::uint16_t spoiled_pixel = 0xFFFF;
constexpr float spoiled_ratio = 1e9F;
static_assert(spoiled_pixel > Frame_ring::full_scale && spoiled_ratio > 2 * Frame_ring::full_scale);

/// For each element of a plane the one at its pixel's own position, or `nowhere` if it is left out.
using Layout = std::vector<std::size_t>;

constexpr auto nowhere = static_cast<std::size_t>(-1);

Layout every_pixel_at_its_position(std::size_t count) {
    Layout layout(count);
    std::iota(layout.begin(), layout.end(), std::size_t{0});
    return layout;
}

/// The library's plane of ratios. Blocks of 16 columns of a row pair store half of their pixels,
/// packed, from a float index that runs on from pair to pair, over what earlier pairs have stored
/// there; the columns behind the blocks and the last row pair stand at their own positions.
Layout ratios_of_library(Frame_size size) {
    static constexpr std::size_t stored[] = {0, 1, 4, 5, 10, 11, 14, 15};
    std::size_t const block_columns = (size.width / 16 - 1) * 16;
    Layout layout(2 * size.pixels(), nowhere);
    std::size_t float_index = 0;
    for (std::size_t row = 0; row + 2 < size.height; row += 2) {
        for (std::size_t block = 0; block < block_columns; block += 16) {
            for (std::size_t const pixel : stored) {
                for (std::size_t const of_pixel : {0U, 1U}) {
                    std::size_t const first = 2 * (row * size.width + block + pixel) + of_pixel;
                    layout[float_index] = first;
                    layout[float_index + 2 * size.width] = first + 2 * size.width;
                    ++float_index;
                }
            }
        }
        for (std::size_t const of_pair : {row, row + 1}) {
            std::size_t const end = 2 * (of_pair + 1) * size.width;
            for (std::size_t at = end - 2 * (size.width - block_columns); at < end; ++at) {
                layout[at] = at;
            }
        }
    }
    for (std::size_t at = 2 * (size.height - 2) * size.width; at < layout.size(); ++at) {
        layout[at] = at;
    }
    return layout;
}

struct Layouts {
    explicit Layouts(Frame_size size)
        : pixels(every_pixel_at_its_position(size.pixels())),
          ratios(every_pixel_at_its_position(2 * size.pixels())),
          packed_ratios(ratios_of_library(size)) {}

    Layout pixels, ratios, packed_ratios;
};

/// A contender that leaves elements out must not be taken for the one before it.
void spoil(Polarization_computation_arguments const& frame) {
    std::size_t const pixels = frame.height * frame.width;
    for (std::uint16_t* const plane :
         {frame.s0_image, frame.s1_image, frame.s2_image, frame.azimuth_image, frame.dolp_image}) {
        if (plane != nullptr) {
            std::fill_n(plane, pixels, spoiled_pixel);
        }
    }
    if (frame.normalized_stokes_image != nullptr) {
        std::fill_n(frame.normalized_stokes_image, 2 * pixels, spoiled_ratio);
    }
}

/// One contender's planes of one set beside those of the library.
class Check {
public:
    Check(Runner const& runner, char const* set, Layouts const& layouts)
        : layouts_(layouts), is_copy_(runner.kind == Runner::Kind::copy),
          is_library_(runner.kind == Runner::Kind::library),
          what_(runner.name + ", " + set + ": ") {}

    void planes(
        Polarization_computation_arguments const& own,
        Polarization_computation_arguments const& library) {
        auto const check = [&](char const* name, std::uint16_t const* plane,
                               std::uint16_t const* expected, Tolerance tolerance) {
            this->plane(
                name, plane, layouts_.pixels, spoiled_pixel, expected, layouts_.pixels, tolerance);
        };
        check("S0", own.s0_image, library.s0_image, exact_plane);
        check("S1", own.s1_image, library.s1_image, exact_plane);
        check("S2", own.s2_image, library.s2_image, exact_plane);
        check("azimuth", own.azimuth_image, library.azimuth_image, azimuth_tolerance);
        check("DoLP", own.dolp_image, library.dolp_image, dolp_tolerance);
        plane(
            "ratios", own.normalized_stokes_image,
            is_library_ ? layouts_.packed_ratios : layouts_.ratios, spoiled_ratio,
            library.normalized_stokes_image, layouts_.packed_ratios, ratio_tolerance);
    }

    Agreement found{0, 0};

private:
    template <typename Element>
    void plane(
        char const* name, Element const* plane, Layout const& layout, Element spoiled,
        Element const* expected, Layout const& expected_layout, Tolerance tolerance) {
        if (plane == nullptr) {
            return;
        }
        written(name, plane, layout, spoiled);
        if (!is_copy_) {
            values(name, plane, expected, expected_layout, tolerance);
        }
    }

    /// Exactly the elements of the layout, the borders among them.
    template <typename Element>
    void written(char const* name, Element const* plane, Layout const& layout, Element spoiled) {
        for (std::size_t at = 0; at < layout.size(); ++at) {
            bool const is_written = plane[at] != spoiled;
            if (is_written != (layout[at] != nowhere)) {
                throw std::runtime_error(
                    what_ + name + " has element " + std::to_string(at) + " of " +
                    std::to_string(layout.size()) +
                    (is_written ? " written, which is left out by definition"
                                : " left out, which is to be written") +
                    "; mend the contender first");
            }
        }
        ++found.written;
    }

    template <typename Element>
    void values(
        char const* name, Element const* plane, Element const* expected, Layout const& layout,
        Tolerance tolerance) {
        std::vector<double> all;
        for (std::size_t at = 0; at < layout.size(); ++at) {
            std::size_t const position = layout[at];
            if (position != nowhere) {
                Element const own = plane[is_library_ ? at : position];
                all.push_back(std::abs(static_cast<double>(own) - expected[at]));
            }
        }
        double const half = median(all);
        double const most = quantile(all, 0.95);
        // Not a comparison with >: it would let a NaN pass.
        if (!(half <= tolerance.half && most <= tolerance.most)) {
            throw std::runtime_error(
                what_ + name + " differs from the library's: median " + std::to_string(half) +
                ", 95 of 100 within " + std::to_string(most) + "; mend the contender first");
        }
        ++found.compared;
    }

    Layouts const& layouts_;
    bool is_copy_, is_library_;
    std::string what_;
};

void check_frames_of(Frame_size size, std::vector<Runner> const& runners, Agreement& all) {
    Frame_ring const ring(size, 2, six_planes);
    Layouts const layouts(size);
    for (Output_set const& set : output_sets) {
        auto frames = ring.frames_with(set.planes);
        frames[1].raw_image = frames[0].raw_image;
        spoil(frames[0]);
        runners[0].process(frames[0], ring.matrices());
        for (Runner const& runner : runners) {
            spoil(frames[1]);
            runner.process(frames[1], ring.matrices());
            Check check(runner, set.name, layouts);
            check.planes(frames[1], frames[0]);
            all.written += check.found.written;
            all.compared += check.found.compared;
        }
    }
}

} // namespace

Agreement check_agreement(std::vector<Runner> const& runners) {
    Agreement all{0, 0};
    for (Frame_size const size : sizes) {
        check_frames_of(size, runners, all);
    }
    return all;
}
