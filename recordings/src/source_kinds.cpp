#include "source_kind.hpp"

#include <algorithm>
#include <array>
#include <utility>

namespace veldrane_mrv::polarization {
namespace recordings {

// Each defined in a file of its own.
extern Source_kind const bare_samples;
extern Source_kind const png;
extern Source_kind const pgm;
extern Source_kind const tiff;
extern Source_kind const npy;

namespace {

constexpr std::array<Source_kind const*, 5> kinds = {&bare_samples, &png, &pgm, &tiff, &npy};

std::string problem_of_other_format(std::string_view bytes, Frame&, unsigned&) {
    std::string const what_it_is_not = "not a PNG, TIFF, binary PGM or npy file; ";
    if (bytes.empty()) {
        return "is empty, " + what_it_is_not + "copy or record it again";
    }
    if (bytes.starts_with("\xFF\xD8\xFF")) {
        return "a JPEG, " + what_it_is_not +
               "JPEG changes the samples, so record it again without loss";
    }
    if (bytes.starts_with("P2")) {
        return "a plain (ASCII) PGM is not read; save it as binary PGM or PNG";
    }
    return what_it_is_not + "convert it to one of these, or describe raw samples with "
                            "--pixel-format, --width and --height";
}

} // namespace

std::span<Source_kind const* const> source_kinds() {
    return kinds;
}

std::unique_ptr<Frame_source> open_frames(Opened_file file) {
    if (auto description = read_recording_description(file.name())) {
        return open_recording(std::move(file), std::move(*description));
    }
    auto const kind = std::find_if(kinds.begin(), kinds.end(), [&file](Source_kind const* known) {
        return known->needs_layout ? file.layout().has_value() : known->recognises(file.start());
    });
    return kind != kinds.end() ? (*kind)->open(std::move(file))
                               : one_picture(std::move(file), problem_of_other_format);
}

} // namespace recordings

std::unique_ptr<Frame_source> open_frames(
    std::filesystem::path const& file, std::optional<Raw_layout> const& layout) {
    return recordings::open_frames(recordings::Opened_file(file, layout));
}

} // namespace veldrane_mrv::polarization
