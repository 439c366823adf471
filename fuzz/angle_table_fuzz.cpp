/// @file
/// Any bytes as a table of polariser angles, and as the name of a frame. A table is refused with a
/// line for the user, or gives every frame finite settings, which a table of them gives again.

#include "memory_file.hpp"

#include "input/angle_list.hpp"
#include "terminal/failure.hpp"

#include <cmath>
#include <sstream>

namespace {

using fuzz::Memory_file;
using fuzz::require;
using namespace polarize_tool;

std::vector<Frame_place> const frames{{"a.png", 0, 1}, {"b.tif", 0, 2}, {"b.tif", 1, 2}};

std::string table_of(std::vector<Polariser_setting> const& settings) {
    constexpr int digits_that_tell_doubles = 17;
    std::ostringstream text;
    text.precision(digits_that_tell_doubles);
    text << "file,frame,angle,intensity\n";
    for (std::size_t index = 0; index < frames.size(); ++index) {
        text << frames[index].file.string() << ',' << frames[index].index << ','
             << settings[index].angle << ',' << settings[index].intensity << '\n';
    }
    return text.str();
}

void require_same(
    std::vector<Polariser_setting> const& settings, std::vector<Polariser_setting> const& again) {
    require(again.size() == settings.size(), "settings are missing in a table of them");
    for (std::size_t index = 0; index < settings.size(); ++index) {
        require(
            again[index].angle == settings[index].angle &&
                again[index].intensity == settings[index].intensity,
            "a setting changes when it is written and read");
    }
}

void read_table(std::span<std::uint8_t const> bytes) {
    static Memory_file const table;
    static Memory_file const table_again;
    table.write(bytes);
    std::vector<Polariser_setting> settings;
    try {
        settings = settings_from_table(table.path(), frames);
    } catch (File_failure const&) {
        return;
    }
    require(settings.size() == frames.size(), "a frame got no setting");
    for (Polariser_setting const& setting : settings) {
        require(
            std::isfinite(setting.angle) && std::isfinite(setting.intensity),
            "a setting is no finite number");
    }
    table_again.write(table_of(settings));
    require_same(settings, settings_from_table(table_again.path(), frames));
}

void read_name(std::string const& name) {
    std::optional<double> const angle = angle_in_name(name);
    require(!angle || std::isfinite(*angle), "an angle in a name is no finite number");
    try {
        std::vector<Polariser_setting> const settings = settings_from_names({{name, 0, 1}});
        require(angle && settings.at(0).angle == *angle, "a name tells two angles");
    } catch (File_failure const&) {
        require(!angle, "an angle in a name was refused");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    read_table({data, size});
    read_name({data, data + size});
    return 0;
}
