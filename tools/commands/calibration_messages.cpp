#include "commands/calibration_messages.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace polarize_tool {

namespace polarization = veldrane_mrv::polarization;

namespace {

std::string offset_warning(double offset) {
    char text[320];
    std::snprintf(
        text, sizeof text,
        "The four orientations are off by %+.2f degrees in common, so all calibrated angles will "
        "be turned by as much; set the polariser's zero along the rows, or %s %.2f %s its angles, "
        "and calibrate again, unless the sensor is turned in its mount.",
        offset, offset > 0 ? "take" : "add", std::abs(offset), offset > 0 ? "off" : "to");
    return text;
}

std::string outlying_warning(std::vector<polarization::Outlying_frame> const& frames) {
    std::string list;
    for (polarization::Outlying_frame const& frame : frames) {
        char text[64];
        std::snprintf(
            text, sizeof text, " at %g degrees by %.1f %%", frame.polariser_angle,
            100.0 * frame.residual);
        list += (list.empty() ? "" : ", ") + frame.source + text;
    }
    return "Off from what the other frames let expect: " + list +
           "; correct the angle, take the frame again under the same light, or leave it out.";
}

} // namespace

void Frame_failures::add(
    Frame_place const& place, std::string const& message, std::string const& kind) {
    ++count_;
    auto const group = std::ranges::find(groups_, kind, &Group::kind);
    if (group == groups_.end()) {
        groups_.push_back({kind, message, 0, ""});
    } else {
        ++group->more;
        group->last = place.name();
    }
}

std::vector<std::string> Frame_failures::lines() const {
    std::vector<std::string> lines;
    for (Group const& group : groups_) {
        lines.push_back(group.message);
        if (group.more > 0) {
            lines.back() +=
                " (" + std::to_string(group.more) + " more likewise, up to " + group.last + ")";
        }
    }
    return lines;
}

std::vector<std::string> quality_warnings(polarization::Calibration const& calibration) {
    std::vector<std::string> warnings;
    for (polarization::Quality_flag const flag : calibration.quality.flags) {
        warnings.push_back(
            flag == polarization::Quality_flag::orientation_offset
                ? offset_warning(common_offset(calibration.analysers, calibration.mosaic))
                : std::string(explanation_of(flag)));
    }
    if (!calibration.quality.outlying_frames.empty()) {
        warnings.push_back(outlying_warning(calibration.quality.outlying_frames));
    }
    return warnings;
}

} // namespace polarize_tool
