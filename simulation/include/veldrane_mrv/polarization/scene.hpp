/// @file
/// A scene whose polarisation is known at every point: a glossy dielectric ball under a clear sky.
#pragma once

#include <cstddef>

namespace veldrane_mrv::polarization {

/// Linear Stokes vector. The first axis of s1 points along the rows to the right, angles grow
/// counter-clockwise as the picture is seen.
struct Stokes {
    double s0;
    double s1;
    double s2;
};

/// Power reflectances of a smooth dielectric for light polarised across and along the plane of
/// incidence.
struct Fresnel_reflectances {
    double perpendicular;
    double parallel;
};

/// Fresnel's equations for light from air onto a dielectric (Born & Wolf, Principles of Optics,
/// section 1.5.2). `cosine` of the angle of incidence lies in 0..1, `index` is above 1.
Fresnel_reflectances fresnel_reflectances(double cosine, double index);

/// The scene in a frame of `width` by `height` pixels. Intensities are relative, about 0 to 1.5.
class Scene {
public:
    Scene(std::size_t width, std::size_t height);

    /// Light that reaches the sensor at the centre of a pixel. Uses only arithmetic that IEEE 754
    /// rounds exactly (+ - * / and the square root), so every platform gets the same bits.
    Stokes at(std::size_t row, std::size_t column) const;

private:
    double centre_column_;
    double centre_row_;
    double picture_radius_;
    double edge_width_;
};

} // namespace veldrane_mrv::polarization
