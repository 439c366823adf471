#include "veldrane_mrv/polarization/planes.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

#include <algorithm>

namespace veldrane_mrv::polarization {
namespace {

[[noreturn]] void refuse(std::string_view list) {
    Plane_set every;
    for (Plane const plane : every_plane) {
        every.insert(plane);
    }
    throw Argument_error{
        "the list of planes", "\"" + std::string{list} + "\"",
        "name some of " + to_string(every) + " with commas between them, or all"};
}

} // namespace

std::vector<Plane> Plane_set::list() const {
    std::vector<Plane> planes;
    std::ranges::copy_if(
        every_plane, std::back_inserter(planes), [&](Plane plane) { return contains(plane); });
    return planes;
}

Plane_set parse_planes(std::string_view list) {
    if (list == "all") {
        return Plane_set::all();
    }
    Plane_set set;
    for (std::size_t start = 0; start <= list.size();) {
        std::size_t const end = std::min(list.find(',', start), list.size());
        std::string_view const name = list.substr(start, end - start);
        auto const found = std::ranges::find(plane_table, name, &Plane_description::name);
        if (found == plane_table.end()) {
            refuse(list);
        }
        set.insert(found->plane);
        start = end + 1;
    }
    return set;
}

std::string to_string(Plane_set const& planes) {
    std::string list;
    for (Plane const plane : planes.list()) {
        list += list.empty() ? "" : ",";
        list += name_of(plane);
    }
    return list;
}

} // namespace veldrane_mrv::polarization
