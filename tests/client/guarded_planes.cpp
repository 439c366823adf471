#include "guarded_planes.hpp"

#include <algorithm>
#include <string>

namespace client_test {

using namespace polarization;

std::optional<std::string> first_difference(Plane_views const& views, Planes& expected) {
    Plane_views const right = expected.views();
    for (Plane const plane : views.wanted().list()) {
        std::span<std::byte const> const actual = Guarded_planes::bytes_of(views, plane);
        std::span<std::byte const> const wanted = Guarded_planes::bytes_of(right, plane);
        auto const [place, other] = std::ranges::mismatch(actual, wanted);
        if (place != actual.end()) {
            auto const pixel = static_cast<std::size_t>(place - actual.begin()) /
                               (actual.size() / (expected.height() * expected.width()));
            return std::string{name_of(plane)} + " at row " +
                   std::to_string(pixel / expected.width()) + ", column " +
                   std::to_string(pixel % expected.width()) + " of " +
                   std::to_string(expected.width()) + " x " + std::to_string(expected.height());
        }
    }
    return std::nullopt;
}

} // namespace client_test
