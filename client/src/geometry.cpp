#include "veldrane_mrv/polarization/geometry.hpp"

namespace veldrane_mrv::polarization {

bool fits(Region const& region, Size const& frame) {
    // Written without sums, which could wrap.
    return region.width > 0 && region.width <= frame.width &&
           region.column <= frame.width - region.width && region.height > 0 &&
           region.height <= frame.height && region.row <= frame.height - region.height;
}

std::string to_string(Size const& size) {
    return std::to_string(size.width) + " x " + std::to_string(size.height);
}

std::string to_string(Region const& region) {
    return to_string(region.size()) + " at column " + std::to_string(region.column) + ", row " +
           std::to_string(region.row);
}

} // namespace veldrane_mrv::polarization
