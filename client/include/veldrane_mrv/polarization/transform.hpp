/// @file
/// From a raw frame to planes, in three ways, each checked before it touches memory.
///
/// Fast: `transform`, one call of the processor. Every plane is as the processor writes it: the
/// matrices reach only the columns right of the vector blocks and the last rows, and
/// `normalized_stokes` is packed, so that only frames narrower than 32 columns or of two rows have
/// every pixel at its place.
/// Calibrated: `Calibrated_transform`, every pixel through the matrix of its position, every plane
/// at pixel positions.
/// Signed: `Signed_transform`, S1 and S2 with their signs, by two passes of either mode.
///
/// All of them check, before anything is written:
///   the frame has two rows and two columns, and 16 columns unless it has exactly two rows;
///   every plane that is not empty has exactly the elements of the frame, at an aligned address;
///   no two buffers overlap, the frame included;
///   no weight of the matrices is NaN or absurdly large;
///   the processor has AVX2 and FMA.
/// Full scales are checked by `Scale`, null and absurd sizes by `Frame_view`. A violation is an
/// `Argument_error`.
///
/// Floating-point results follow the rounding mode in force. The functions may run in any number of
/// threads on separate planes; an object of one of the classes serves one thread at a time.
#pragma once

#include "veldrane_mrv/polarization/matrices.hpp"
#include "veldrane_mrv/polarization/mosaic.hpp"
#include "veldrane_mrv/polarization/scale.hpp"
#include "veldrane_mrv/polarization/views.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace veldrane_mrv::polarization {

/// All that frames of one recording have in common.
struct Settings {
    Mosaic mosaic;
    Scale scale;
    Matrices matrices;
};

/// With the weights of an ideal sensor.
Settings ideal_settings(Mosaic const& mosaic, Scale const& scale);

/// The matrix of the last pixel of the last row. Where height and width differ in parity, the
/// processor gives this one pixel the matrix of even rows and even columns, which is not that of
/// its position.
enum class Final_pixel {
    /// The matrix of the pixel's position, as for every other pixel.
    by_position,
    /// The pixel as the processor writes it.
    as_processed,
};

enum class Mode { fast, calibrated };

/// The checks alone, as listed above.
/// @throws Argument_error for the first violation
void check_call(Frame_view const& frame, Settings const& settings, Plane_views const& planes);

/// Fast mode. Nothing happens if no plane is wanted.
/// @throws Argument_error if a check fails; nothing has been written then
void transform(Frame_view const& frame, Settings const& settings, Plane_views const& planes);

/// Calibrated mode. The processor applies the matrices in frames of up to 31 columns throughout, so
/// wider frames go through it in upright strips that overlap by the column whose neighbours are
/// turned; the results are joined, bit for bit what the processor's arithmetic of one pixel gives.
/// Keeps its workspace from frame to frame: 62 bytes for each row of the tallest frame so far, and
/// as many for every plane, 248 for one of two floats.
class Calibrated_transform {
public:
    explicit Calibrated_transform(
        Settings const& settings, Final_pixel final_pixel = Final_pixel::by_position);

    Settings const& settings() const { return settings_; }
    Final_pixel final_pixel() const { return final_pixel_; }

    /// Nothing happens if no plane is wanted.
    /// @throws Argument_error if a check fails; nothing has been written then
    void operator()(Frame_view const& frame, Plane_views const& planes);

private:
    /// Dense memory of one strip.
    struct Strip {
        std::vector<std::uint16_t> samples;
        Per_plane<std::vector> planes;

        void reserve(std::size_t pixels, Plane_set const& wanted);
        Plane_views views(std::size_t pixels, Plane_set const& wanted);
    };

    void process_in_strips(Frame_view const& frame, Plane_views const& planes);
    void mend_final_pixel(Frame_view const& frame, Plane_views const& planes) const;

    Settings settings_;
    Final_pixel final_pixel_;
    Strip strip_;
};

/// Where signed S1 and S2 go; an empty span says that one is not wanted.
struct Signed_views {
    std::span<std::int32_t> s1{};
    std::span<std::int32_t> s2{};
};

/// Memory for signed planes: -full_scale to full_scale in the units of the 16-bit planes, which is
/// more than 16 bits with a sign can hold.
struct Signed_planes {
    std::vector<std::int32_t> s1;
    std::vector<std::int32_t> s2;

    /// Zeros for every pixel of a frame; S1 and S2 of `wanted` count.
    Signed_planes(std::size_t height, std::size_t width, Plane_set const& wanted);

    Signed_views views() { return {s1, s2}; }
};

/// The checks of a `Signed_transform` alone: those of `check_call`, the same for the signed planes,
/// and that the rounding mode is to nearest if there are any.
/// @throws Argument_error for the first violation
void check_signed_call(
    Frame_view const& frame, Settings const& settings, Plane_views const& planes,
    Signed_views const& signed_planes);

/// Signed S1 and S2, with any other planes of the first pass.
///
/// The processor stores only the positive half of S1 and S2. A second pass with the opposite mosaic
/// and with rows 1 and 2 of all matrices negated gives the other half; it takes both, since a
/// mosaic's phase reaches only the pixels of vector blocks and matrices only the others. The
/// negation is exact in rounding to nearest, so no pixel is positive in both.
class Signed_transform {
public:
    explicit Signed_transform(
        Settings const& settings, Mode mode = Mode::fast,
        Final_pixel final_pixel = Final_pixel::by_position);

    Settings const& settings() const { return positive_pass_.settings(); }

    /// `Final_pixel` has a meaning in calibrated mode only. `planes` may hold S1 and S2 too: the
    /// positive halves.
    /// @throws Argument_error if a check fails, or if signed planes are wanted and the rounding
    ///         mode is not to nearest; nothing has been written then
    void operator()(
        Frame_view const& frame, Plane_views const& planes, Signed_views const& signed_planes);

private:
    void run_pass(
        Calibrated_transform& pass, Frame_view const& frame, Plane_views const& planes) const;

    Mode mode_;
    Calibrated_transform positive_pass_;
    Calibrated_transform negative_pass_;
    /// Halves of S1 and of S2 that the caller has no plane for.
    std::array<std::vector<std::uint16_t>, 2> positive_;
    std::array<std::vector<std::uint16_t>, 2> negative_;
};

/// One frame through a `Signed_transform` of its own.
void transform_signed(
    Frame_view const& frame, Settings const& settings, Mode mode, Plane_views const& planes,
    Signed_views const& signed_planes);

} // namespace veldrane_mrv::polarization
