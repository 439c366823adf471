// A client of the layer for applications: prints the angle and the degree of a scene that is known,
// or why it cannot.

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/transform.hpp"
#include "veldrane_mrv/polarization/units.hpp"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

int main() {
    using namespace veldrane_mrv::polarization;
    constexpr std::size_t height = 48;
    constexpr std::size_t width = 64;
    Mosaic const mosaic = Mosaic::parse("90,45,135,0");
    // All light at 45 degrees: full behind its own polariser, none behind the crossed one.
    std::vector<std::uint16_t> samples(height * width);
    for (std::size_t pixel = 0; pixel < samples.size(); ++pixel) {
        int const angle = mosaic.angle(pixel / width, pixel % width);
        samples[pixel] = angle == 45 ? 2000 : angle == 135 ? 0 : 1000;
    }
    try {
        Scale const scale{12};
        Planes planes{height, width, {Plane::azimuth, Plane::dolp}};
        Calibrated_transform{ideal_settings(mosaic, scale)}(
            {samples, height, width}, planes.views());
        std::printf(
            "angle %.1f degrees, degree %.3f\n",
            angle_of_azimuth(planes.integer_plane(Plane::azimuth)[5 * width + 7], scale),
            degree_of_dolp(planes.integer_plane(Plane::dolp)[5 * width + 7], scale));
    } catch (Argument_error const& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}
