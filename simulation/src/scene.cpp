#include "veldrane_mrv/polarization/scene.hpp"

#include <algorithm>
#include <cmath>

namespace veldrane_mrv::polarization {
namespace {

constexpr double glass_index = 1.5;
constexpr double ball_radius = 0.7; // in units of half the picture's smaller side

struct Vector {
    double x; // to the right
    double y; // up
    double z; // towards the camera
};

double dot(Vector const& a, Vector const& b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}

Vector unit(Vector const& v) {
    double const length = std::sqrt(dot(v, v));
    return {v.x / length, v.y / length, v.z / length};
}

// 0 below 0, 1 above 1, with a continuous slope between.
double smooth_step(double x) {
    double const t = std::clamp(x, 0.0, 1.0);
    return t * t * (3.0 - 2.0 * t);
}

// High on the left, behind the camera's shoulder: the key light of the ball.
Vector key_light() {
    return unit({-0.55, 0.65, 0.62});
}

// The sun behind the picture, outside the field of view: it polarises the sky.
Vector sun_of_sky() {
    return unit({0.75, 0.9, -0.45});
}

// Light with polarised part `polarised` whose angle is that of (x, y). Doubling the angle by
// cos 2a = (x^2 - y^2) / (x^2 + y^2) and sin 2a = 2 x y / (x^2 + y^2) needs no trigonometry.
Stokes along(double s0, double polarised, double x, double y) {
    double const square = x * x + y * y;
    if (square <= 0.0) {
        return {s0, 0.0, 0.0};
    }
    return {s0, polarised * (x * x - y * y) / square, polarised * 2.0 * x * y / square};
}

// Clear sky by single scattering (Rayleigh; Coulson, Polarization and Intensity of Light in the
// Atmosphere): at the angle g from the sun the degree is sin^2 g / (1 + cos^2 g), weakened by
// multiple scattering, and the electric vector stands across the plane of sun and view.
Stokes sky(double x, double y) {
    constexpr double field_of_view = 0.75;
    constexpr double multiple_scattering = 0.62;
    Vector const view = unit({field_of_view * x, field_of_view * y, -1.0});
    Vector const sun = sun_of_sky();
    double const cosine = dot(view, sun);
    double const degree = multiple_scattering * (1.0 - cosine * cosine) / (1.0 + cosine * cosine);
    double const brightness = 0.2 + 0.16 * (1.0 + cosine * cosine) - 0.05 * y;
    return along(
        brightness, brightness * degree, view.y * sun.z - view.z * sun.y,
        view.z * sun.x - view.x * sun.z);
}

// Light from the surroundings that arrives from a direction, taken as unpolarised: a bright
// overcast dome above a dim floor, and the key light as a wide soft box.
double surroundings(Vector const& from) {
    double const dome = 0.3 + 0.6 * smooth_step(0.5 + 0.7 * from.y);
    double const off_axis = 1.0 - dot(from, key_light());
    double const lobe = 1.0 / (1.0 + 30.0 * off_axis);
    return dome + 8.0 * lobe * lobe * lobe;
}

// Light scattered inside the body of the ball, before it leaves through the surface.
double body(Vector const& normal) {
    constexpr double dark = 0.05;
    constexpr double bright = 0.85;
    // A belt of paint around a tilted axis: in its light parts the body wins, in its dark parts
    // the reflection, and the angle of polarisation turns by 90 degrees between them.
    double const latitude = dot(normal, unit({0.42, 0.85, 0.3}));
    double const belt = smooth_step((0.1 - std::abs(latitude + 0.08)) / 0.08 + 0.5);
    double const albedo = dark + (bright - dark) * belt;
    double const wrapped = std::max(0.0, (dot(normal, key_light()) + 0.35) / 1.35);
    return albedo * (0.22 + 0.2 * (normal.y + 1.0) / 2.0 + 0.95 * wrapped * wrapped);
}

// The ball where its surface normal has the components x and y, seen from far away: the cosine of
// the viewing angle is the normal's z. Light reflected at the surface is polarised across the
// plane of incidence by (Rs - Rp) / 2. Light from inside leaves with 1 - Rs and 1 - Rp, so it is
// polarised by as much, but along that plane (Wolff & Boult, IEEE PAMI 13, 1991; Atkinson &
// Hancock, IEEE TIP 15, 2006). The plane's azimuth is that of the normal.
Stokes ball(double x, double y) {
    double const z = std::sqrt(1.0 - x * x - y * y);
    Vector const normal = {x, y, z};
    Vector const mirrored = {2.0 * z * x, 2.0 * z * y, 2.0 * z * z - 1.0};
    Fresnel_reflectances const r = fresnel_reflectances(z, glass_index);
    double const reflected = surroundings(mirrored);
    double const emerging = body(normal);
    double const mean = (r.perpendicular + r.parallel) / 2.0;
    double const half_difference = (r.perpendicular - r.parallel) / 2.0;
    return along(
        reflected * mean + emerging * (1.0 - mean), (emerging - reflected) * half_difference, x, y);
}

} // namespace

Fresnel_reflectances fresnel_reflectances(double cosine, double index) {
    // Snell's law gives the refracted angle's cosine.
    double const refracted = std::sqrt(1.0 - (1.0 - cosine * cosine) / (index * index));
    double const perpendicular = (cosine - index * refracted) / (cosine + index * refracted);
    double const parallel = (index * cosine - refracted) / (index * cosine + refracted);
    return {perpendicular * perpendicular, parallel * parallel};
}

Scene::Scene(std::size_t width, std::size_t height)
    : centre_column_{(static_cast<double>(width) - 1.0) / 2.0},
      centre_row_{(static_cast<double>(height) - 1.0) / 2.0},
      picture_radius_{static_cast<double>(std::min(width, height)) / 2.0},
      edge_width_{std::max(0.012, 3.0 / (picture_radius_ * ball_radius))} {}

Stokes Scene::at(std::size_t row, std::size_t column) const {
    double const x = (static_cast<double>(column) - centre_column_) / picture_radius_;
    double const y = (centre_row_ - static_cast<double>(row)) / picture_radius_;
    double const ball_x = x / ball_radius;
    double const ball_y = y / ball_radius;
    double const distance = std::sqrt(ball_x * ball_x + ball_y * ball_y);

    // The outline is out of focus by `edge_width_`: light of ball and sky mixes, Stokes vectors
    // add. The ball ends just short of grazing incidence, where its normal would lose its z.
    double const ball_part = smooth_step((1.0 - distance) / edge_width_);
    Stokes mixed = sky(x, y);
    if (ball_part > 0.0) {
        Stokes const front = ball(ball_x, ball_y);
        mixed.s0 += ball_part * (front.s0 - mixed.s0);
        mixed.s1 += ball_part * (front.s1 - mixed.s1);
        mixed.s2 += ball_part * (front.s2 - mixed.s2);
    }
    return mixed;
}

} // namespace veldrane_mrv::polarization
