#include "view/view_parameters.hpp"

#include "view/stokes_reduction.hpp"

#include <algorithm>
#include <charconv>
#include <initializer_list>
#include <string>

namespace polarize_tool {
namespace {

// Such that sums of two do not overflow, and beyond all frames.
constexpr std::size_t largest_number = 999'999'999'999'999;

[[noreturn]] void refuse(std::string_view name, std::string_view value, std::string const& remedy) {
    throw Parameter_error(std::string(name) + " is " + std::string(value) + "; " + remedy);
}

std::vector<std::string_view> parts_of(std::string_view list) {
    std::vector<std::string_view> parts;
    for (std::size_t begin = 0; begin <= list.size();) {
        std::size_t const end = std::min(list.find(',', begin), list.size());
        parts.push_back(list.substr(begin, end - begin));
        begin = end + 1;
    }
    return parts;
}

std::optional<std::size_t> whole_number(std::string_view text) {
    std::size_t number = 0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    bool const is_one = error == std::errc() && end == text.data() + text.size();
    return is_one && number <= largest_number ? std::optional(number) : std::nullopt;
}

void require_known(Query const& query, std::initializer_list<std::string_view> known) {
    for (auto const& [name, value] : query) {
        if (std::find(known.begin(), known.end(), name) == known.end()) {
            std::string names;
            for (std::string_view const one : known) {
                names += (names.empty() ? "" : ", ") + std::string(one);
            }
            refuse(
                "the parameter", name,
                known.size() == 0 ? "give none" : "give one or more of " + names);
        }
    }
}

std::optional<std::size_t> number_in(Query const& query) {
    auto const found = query.find("number");
    if (found == query.end()) {
        return std::nullopt;
    }
    auto const number = whole_number(found->second);
    if (!number) {
        refuse("number", found->second, "give the number of a frame, 0 or more");
    }
    return number;
}

std::optional<polarization::Region> region_in(Query const& query) {
    auto const found = query.find("region");
    if (found == query.end()) {
        return std::nullopt;
    }
    std::vector<std::string_view> const parts = parts_of(found->second);
    std::array<std::size_t, 4> numbers{};
    bool is_one = parts.size() == numbers.size();
    for (std::size_t part = 0; is_one && part < numbers.size(); ++part) {
        auto const number = whole_number(parts[part]);
        is_one = number.has_value();
        numbers[part] = number.value_or(0);
    }
    if (!is_one || numbers[2] == 0 || numbers[3] == 0) {
        refuse(
            "region", found->second,
            "give COLUMN,ROW,WIDTH,HEIGHT in whole pixels, with a width and a height of 1 or more");
    }
    return polarization::Region{numbers[0], numbers[1], numbers[2], numbers[3]};
}

Frame_choice_by_number choice_in(Query const& query) {
    auto const number = number_in(query);
    auto const after = query.find("after");
    if (number.has_value() == (after != query.end())) {
        throw Parameter_error(
            number ? "number and after are given; give one of them"
                   : "neither number nor after is given; give the number of a frame, or after=-1 "
                     "for the newest");
    }
    if (number) {
        return {number, -1};
    }
    auto const behind =
        after->second == "-1" ? std::optional<std::size_t>(0) : whole_number(after->second);
    if (!behind) {
        refuse("after", after->second, "give the number of a frame, or -1 for any");
    }
    return {std::nullopt, after->second == "-1" ? -1 : static_cast<long long>(behind.value_or(0))};
}

std::size_t scale_in(Query const& query) {
    auto const found = query.find("scale");
    if (found == query.end()) {
        return 1;
    }
    std::size_t const scale = whole_number(found->second).value_or(0);
    if (scale < 1 || scale > most_reduction) {
        refuse(
            "scale", found->second,
            "give a whole number from 1 to " + std::to_string(most_reduction));
    }
    return scale;
}

std::vector<View_plane> planes_in(std::string_view list) {
    std::vector<View_plane> planes;
    for (std::string_view const name : parts_of(list)) {
        auto const found = std::find_if(
            view_plane_table.begin(), view_plane_table.end(),
            [&](View_plane_description const& about) { return about.name == name; });
        if (found == view_plane_table.end() ||
            std::find(planes.begin(), planes.end(), found->plane) != planes.end()) {
            std::string names;
            for (View_plane_description const& about : view_plane_table) {
                names += (names.empty() ? "" : ", ") + std::string(about.name);
            }
            refuse("planes", list, "give each at most once, of " + names);
        }
        planes.push_back(found->plane);
    }
    return planes;
}

} // namespace

Frame_request frame_request(Query const& query) {
    require_known(query, {"number", "after", "region", "scale", "planes"});
    Frame_request request;
    request.frame = choice_in(query);
    request.region = region_in(query);
    request.scale = scale_in(query);
    if (auto const planes = query.find("planes"); planes != query.end()) {
        request.planes = planes_in(planes->second);
    }
    return request;
}

Statistics_request statistics_request(Query const& query) {
    require_known(query, {"number", "region"});
    auto const number = number_in(query);
    if (!number) {
        throw Parameter_error("number is not given; give the number of a frame");
    }
    return {*number, region_in(query)};
}

void require_none(Query const& query) {
    require_known(query, {});
}

polarization::Region clipped(
    std::optional<polarization::Region> const& region, polarization::Size const& frame) {
    if (!region) {
        return region_of(frame);
    }
    std::size_t const column = std::min(region->column, frame.width);
    std::size_t const row = std::min(region->row, frame.height);
    return {
        column, row, std::min(region->width, frame.width - column),
        std::min(region->height, frame.height - row)};
}

} // namespace polarize_tool
