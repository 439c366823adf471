#include "veldrane_mrv/polarization/frame_list.hpp"

#include "source_kind.hpp"

#include "veldrane_mrv/polarization/calibration_mark.hpp"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <glob.h>
#include <utility>

namespace veldrane_mrv::polarization {
namespace {

namespace fs = std::filesystem;

bool sorts_before(fs::path const& a, fs::path const& b) {
    return strverscmp(a.c_str(), b.c_str()) < 0;
}

bool has_ending_of_frames(fs::path const& file, bool raw) {
    std::string ending = file.extension().string();
    std::transform(ending.begin(), ending.end(), ending.begin(), [](unsigned char letter) {
        return static_cast<char>(std::tolower(letter));
    });
    auto const kinds = recordings::source_kinds();
    return std::any_of(kinds.begin(), kinds.end(), [&](recordings::Source_kind const* kind) {
        return kind->needs_layout == raw &&
               std::find(kind->endings.begin(), kind->endings.end(), ending) != kind->endings.end();
    });
}

bool is_recording(fs::path const& file) {
    try {
        return has_ending_of_frames(file, true) && read_recording_description(file);
    } catch (File_failure const&) {
        return true; // reading it says what is wrong
    }
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
            (has_ending_of_frames(file, raw) || (!raw && is_recording(file)))) {
            files.push_back(file);
        }
    }
    if (error) {
        throw File_failure(folder, "cannot be read: " + error.message());
    }
    if (files.empty()) {
        throw File_failure(
            folder, raw ? "holds no recording (.raw, .bin, .dat); name the files"
                        : "holds no PNG, TIFF or PGM file and no npy array; name the files, or "
                          "describe raw "
                          "ones with --pixel-format");
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

void add_frames(Found_frames& found, fs::path const& file, std::size_t count) {
    for (std::size_t index = 0; index < count; ++index) {
        found.frames.push_back({file, index, count});
    }
}

/// What becomes of files that `calibrate` made. They lie among its frames if it was told so.
enum class Own_files { pass_over, pass_over_loudly, take };

void look_into(
    Found_frames& found, fs::path const& file, std::optional<Raw_layout> const& layout,
    Own_files own_files) {
    regular_files::Input input = regular_files::open_to_read(file);
    if (!input.problem.empty()) {
        add_frames(found, file, 1); // reading it says what is wrong
        return;
    }
    recordings::Opened_file opened(file, std::move(input), layout);
    if (own_files != Own_files::take && is_of_calibration(file, opened.start())) {
        if (own_files == Own_files::pass_over_loudly) {
            found.warnings.push_back(
                file.string() + ": passed over, since `calibrate` made it; leave it out");
        }
        return;
    }
    auto const source = recordings::open_frames(std::move(opened));
    for (std::size_t index = 0; index < source->count().value_or(0); ++index) {
        found.frames.push_back(source->place(index));
    }
    for (std::string& failure : source->failures()) {
        found.failures.push_back(std::move(failure));
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

Found_frames find_frames(
    std::vector<std::string> const& inputs, std::optional<Raw_layout> const& layout,
    Frame_selection const& selection, std::function<void()> const& between_files,
    Damaged_files damaged) {
    Found_frames found;
    for (std::string const& input : inputs) {
        try {
            Found_files const files = files_of(input, layout.has_value());
            Own_files const own_files = !files.are_named    ? Own_files::pass_over
                                        : inputs.size() > 1 ? Own_files::pass_over_loudly
                                                            : Own_files::take;
            std::size_t const before = found.frames.size() + found.failures.size();
            for (fs::path const& file : files.files) {
                if (between_files) {
                    between_files();
                }
                try {
                    look_into(found, file, layout, own_files);
                } catch (File_failure const& failure) {
                    if (damaged == Damaged_files::are_frames) {
                        add_frames(found, file, 1);
                    } else {
                        found.failures.emplace_back(failure.what());
                    }
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

std::vector<Described_recording> described_recordings(
    std::vector<std::string> const& inputs, bool has_layout) {
    std::vector<Described_recording> described;
    for (std::string const& input : inputs) {
        std::vector<fs::path> files;
        try {
            files = files_of(input, has_layout).files;
        } catch (File_failure const&) {
            continue; // who looks for frames says what is wrong
        }
        for (fs::path const& file : files) {
            std::error_code error;
            if (!fs::exists(file, error)) {
                continue;
            }
            auto description = read_recording_description(file);
            if (!description) {
                return {};
            }
            description->captures = {};
            described.push_back({file, std::move(*description)});
        }
    }
    return described;
}

Frame_list::Frame_list(std::vector<Frame_place> frames, std::optional<Raw_layout> const& layout)
    : frames_{std::move(frames)}, layout_{layout} {}

Frame_list::Frame_list(Found_frames found, std::optional<Raw_layout> const& layout)
    : frames_{std::move(found.frames)}, failures_{std::move(found.failures)}, layout_{layout} {}

std::string Frame_list::name() const {
    return frames_.empty() ? "no frame" : frames_.front().file.string();
}

std::optional<Frame_shape> Frame_list::shape() const {
    return layout_ ? std::optional(Frame_shape{layout_->width, layout_->height, 16}) : std::nullopt;
}

void Frame_list::fetch(std::size_t number, Fetched_frame& target) {
    Frame_place const& wanted = frames_[number];
    if (open_source_ == nullptr || open_file_ != wanted.file) {
        open_source_ = nullptr;
        open_source_ = open_frames(wanted.file, layout_);
        open_file_ = wanted.file;
    }
    if (auto const frames = open_source_->count(); frames && wanted.index >= *frames) {
        throw File_failure(
            wanted.name(), "is not there any more; has the file become shorter meanwhile?");
    }
    fetch_from(*open_source_, wanted.index, target);
}

} // namespace veldrane_mrv::polarization
