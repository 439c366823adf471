#include "input/frame_finding.hpp"

#include "input/calibration_mark.hpp"
#include "input/input_opening.hpp"
#include "input/tiff_reading.hpp"
#include "terminal/failure.hpp"
#include "terminal/interruption.hpp"
#include "terminal/messages.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>
#include <glob.h>
#include <unistd.h>

namespace polarize_tool {
namespace {

namespace fs = std::filesystem;

bool sorts_before(fs::path const& a, fs::path const& b) {
    return strverscmp(a.c_str(), b.c_str()) < 0;
}

bool has_ending_of_frames(fs::path const& file, bool raw) {
    constexpr std::array<char const*, 4> images = {".png", ".pgm", ".tif", ".tiff"};
    constexpr std::array<char const*, 3> recordings = {".raw", ".bin", ".dat"};
    std::string ending = file.extension().string();
    std::transform(ending.begin(), ending.end(), ending.begin(), [](unsigned char letter) {
        return static_cast<char>(std::tolower(letter));
    });
    return raw ? std::find(recordings.begin(), recordings.end(), ending) != recordings.end()
               : std::find(images.begin(), images.end(), ending) != images.end();
}

std::vector<fs::path> files_in(fs::path const& folder, bool raw) {
    std::vector<fs::path> files;
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        fs::path const file = entry->path();
        std::error_code ignored;
        // Links that lead nowhere and pipes are named by whoever reads them.
        if (file.filename().string().front() != '.' && !fs::is_directory(file, ignored) &&
            has_ending_of_frames(file, raw)) {
            files.push_back(file);
        }
    }
    if (error) {
        throw File_failure(folder, "cannot be read: " + error.message());
    }
    if (files.empty()) {
        throw File_failure(
            folder,
            raw ? "holds no recording (.raw, .bin, .dat); name the files"
                : "holds no PNG, TIFF or PGM file; name the files, or describe raw ones with "
                  "--pixel-format");
    }
    std::sort(files.begin(), files.end(), sorts_before);
    return files;
}

std::vector<fs::path> files_matching(std::string const& pattern) {
    glob_t found = {};
    std::vector<fs::path> files;
    if (glob(pattern.c_str(), 0, nullptr, &found) == 0) {
        files.assign(found.gl_pathv, found.gl_pathv + found.gl_pathc);
    }
    globfree(&found);
    std::erase_if(files, [](fs::path const& file) {
        std::error_code ignored;
        return fs::is_directory(file, ignored);
    });
    if (files.empty()) {
        throw File_failure(pattern, "matches no file; check the folder and the pattern");
    }
    std::sort(files.begin(), files.end(), sorts_before);
    return files;
}

struct Found_files {
    std::vector<fs::path> files;
    bool are_named; // one by one, not by their folder or a pattern
};

Found_files files_of(std::string const& input, bool raw) {
    std::error_code error;
    if (fs::is_directory(input, error)) {
        return {files_in(input, raw), false};
    }
    bool const is_pattern = input.find_first_of("*?[") != std::string::npos;
    if (is_pattern && !fs::exists(input, error)) {
        return {files_matching(input), false};
    }
    return {{input}, true};
}

std::string start_of(regular_files::Input const& input) {
    std::string start(calibration_mark_reach, '\0');
    ssize_t const count = pread(input.descriptor.get(), start.data(), start.size(), 0);
    start.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return start;
}

// The bytes of a PNG are never samples. Those of a TIFF may be, behind a header that the user
// knows.
void refuse_image(fs::path const& file, std::string const& start, Raw_layout const& raw) {
    bool const is_png = start.starts_with("\x89PNG\r\n\x1a\n");
    if (is_png || (raw.header_bytes == 0 && begins_like_tiff(start))) {
        throw Usage_error(
            "--pixel-format is for bare samples, but " + file.string() + " is a " +
            (is_png ? "PNG" : "TIFF") + " image; leave the option out");
    }
}

void add_frames(Found_frames& found, fs::path const& file, std::size_t count) {
    for (std::size_t index = 0; index < count; ++index) {
        found.frames.push_back({file, index, count});
    }
}

/// What becomes of files that `calibrate` made. They lie among its frames if it was told so.
enum class Own_files { pass_over, pass_over_loudly, take };

void look_into(
    Found_frames& found, fs::path const& file, std::optional<Raw_layout> const& raw,
    Own_files own_files) {
    regular_files::Input const input = regular_files::open_to_read(file);
    if (!input.problem.empty()) {
        add_frames(found, file, 1); // reading it says what is wrong
        return;
    }
    std::string const start = start_of(input);
    if (own_files != Own_files::take && is_of_calibration(start)) {
        if (own_files == Own_files::pass_over_loudly) {
            warn(file.string() + ": passed over, since `calibrate` made it; leave it out");
        }
        return;
    }
    if (raw) {
        refuse_image(file, start, *raw);
        auto const size = static_cast<std::uint64_t>(input.status.st_size);
        std::size_t const count = raw->frames_in(size);
        if (count == 0) {
            throw File_failure(file, raw->size_problem(size));
        }
        add_frames(found, file, count);
        return;
    }
    if (!begins_like_tiff(start)) {
        add_frames(found, file, 1);
        return;
    }
    Tiff_file::Pages const pages = Tiff_file(file).pages();
    add_frames(found, file, std::max<std::size_t>(pages.count, 1));
    if (!pages.is_complete && pages.count > 0) {
        throw File_failure(
            file, "damaged or cut short behind picture " + std::to_string(pages.count) +
                      "; copy or record it again");
    }
}

std::vector<Frame_place> selected(
    std::vector<Frame_place> const& frames, Frame_selection const& selection) {
    std::vector<Frame_place> chosen;
    std::size_t const stop = std::min(selection.stop.value_or(frames.size()), frames.size());
    for (std::size_t number = selection.start; number < stop;) {
        chosen.push_back(frames[number]);
        number += std::min(selection.step, stop - number); // a large step would wrap around
    }
    return chosen;
}

} // namespace

std::string Frame_place::name() const {
    return is_part() ? file.string() + ", frame " + std::to_string(index) : file.string();
}

std::string Frame_place::stem() const {
    std::string const start = file.stem().string();
    if (!is_part()) {
        return start;
    }
    constexpr std::size_t least_digits = 6;
    std::string const number = std::to_string(index);
    return start + "_" + std::string(least_digits - std::min(least_digits, number.size()), '0') +
           number;
}

Found_frames find_frames(
    std::vector<std::string> const& inputs, std::optional<Raw_layout> const& raw,
    Frame_selection const& selection) {
    Found_frames found;
    for (std::string const& input : inputs) {
        try {
            Found_files const files = files_of(input, raw.has_value());
            Own_files const own_files = !files.are_named    ? Own_files::pass_over
                                        : inputs.size() > 1 ? Own_files::pass_over_loudly
                                                            : Own_files::take;
            std::size_t const before = found.frames.size() + found.failures.size();
            for (fs::path const& file : files.files) {
                throw_if_interrupted();
                try {
                    look_into(found, file, raw, own_files);
                } catch (File_failure const& failure) {
                    found.failures.emplace_back(failure.what());
                }
            }
            if (!files.are_named && found.frames.size() + found.failures.size() == before) {
                throw File_failure(
                    input, "holds no frame, only what `calibrate` made; name the frames");
            }
        } catch (File_failure const& failure) {
            found.failures.emplace_back(failure.what());
        }
    }
    found.frames = selected(found.frames, selection);
    return found;
}

void require_frames(Found_frames const& found) {
    if (found.frames.empty() && found.failures.empty()) {
        throw Usage_error("--start, --stop and --step leave no frame; choose others");
    }
}

} // namespace polarize_tool
