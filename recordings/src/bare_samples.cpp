// Samples that lie in a file as in memory or packed: bare ones, which the user describes, and those
// behind a header that tells how.
#include "source_kind.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

#include <array>
#include <sys/stat.h>
#include <tuple>
#include <utility>

namespace veldrane_mrv::polarization::recordings {
namespace {

constexpr std::array<std::string_view, 3> endings = {".raw", ".bin", ".dat"};

constexpr std::string_view png_magic = "\x89PNG\r\n\x1a\n";

// The bytes of a PNG are never samples. Those of a TIFF may be, behind a header that the user
// knows.
void refuse_picture(Opened_file const& file) {
    char const* const kind = kind_of_picture(file.start());
    if (kind != nullptr &&
        (file.layout()->header_bytes == 0 || file.start().starts_with(png_magic))) {
        throw Argument_error(
            "--pixel-format", "for bare samples, but " + file.name().string() + " is " + kind,
            "leave the option out");
    }
}

void refuse_contradiction(Opened_file const& file, Raw_layout const& told) {
    if (!file.layout()) {
        return;
    }
    Raw_layout const& given = *file.layout();
    using Text = std::string;
    for (auto const& [option, one, other] :
         {std::tuple("--pixel-format", Text(name_of(given.format)), Text(name_of(told.format))),
          std::tuple("--width", std::to_string(given.width), std::to_string(told.width)),
          std::tuple("--height", std::to_string(given.height), std::to_string(told.height)),
          std::tuple(
              "--header-bytes", std::to_string(given.header_bytes),
              std::to_string(told.header_bytes)),
          std::tuple("--stride", std::to_string(given.stride), std::to_string(told.stride))}) {
        if (one != other) {
            throw Argument_error(
                option,
                one + ", but " + description_file_of(file.name()).string() + " tells " + other,
                "leave out what describes the samples");
        }
    }
}

class Unpacker : public Frame_decoder, public Row_decoder {
public:
    explicit Unpacker(Sample_storage const& storage) : storage_{storage} {}

    unsigned decode(std::string_view bytes, Frame_place const&, Frame& frame) const override {
        Raw_layout const& layout = storage_.layout;
        frame.width = layout.width;
        frame.height = layout.height;
        frame.samples.resize(frame.width * frame.height);
        for (std::size_t row = 0; row < frame.height; ++row) {
            decode_row(
                bytes, row, 0, std::span(frame.samples).subspan(row * frame.width, frame.width));
        }
        return storage_.sample_bits;
    }

    Row_decoder const* by_rows() const override { return this; }

    Frame_shape shape() const override {
        return {storage_.layout.width, storage_.layout.height, storage_.sample_bits};
    }

    void decode_row(
        std::string_view bytes, std::size_t row, std::size_t column,
        std::span<std::uint16_t> target) const override {
        Raw_layout const& layout = storage_.layout;
        unpack_row(
            layout.format, std::as_bytes(std::span(bytes)).subspan(row * layout.stride), target,
            column);
        if (storage_.swaps_bytes) {
            for (std::uint16_t& sample : target) {
                sample = static_cast<std::uint16_t>(sample << 8 | sample >> 8);
            }
        }
    }

private:
    Sample_storage storage_;
};

// Read by offset and not mapped: a file that becomes shorter while it is read is a line for the
// user then, where a page that is no longer there would end the process. Memory is that of one
// frame either way.
class Stored_frames : public Frame_source {
public:
    struct Contents {
        std::size_t count;
        std::vector<Capture> captures{}; // of each frame, or none
        std::vector<std::string> failures{};
    };
    Stored_frames(Opened_file file, Sample_storage const& storage, Contents contents)
        : file_{std::move(file)}, layout_{storage.layout}, sample_bits_{storage.sample_bits},
          contents_{std::move(contents)}, unpacker_{unpacker(storage)} {}

    std::string name() const override { return file_.name().string(); }
    std::optional<std::size_t> count() const override { return contents_.count; }
    std::optional<Frame_shape> shape() const override {
        return Frame_shape{layout_.width, layout_.height, sample_bits_};
    }
    Frame_place place(std::size_t number) const override {
        Frame_place place{file_.name(), number, contents_.count};
        if (number < contents_.captures.size()) {
            place.capture = contents_.captures[number];
        }
        return place;
    }
    std::vector<std::string> failures() const override { return contents_.failures; }

private:
    void fetch(std::size_t number, Fetched_frame& target) override {
        file_.read(layout_.offset_of(number), layout_.frame_bytes(), target.bytes);
        if (target.bytes.size() != layout_.frame_bytes()) {
            struct stat status = {};
            fstat(file_.descriptor().get(), &status);
            throw File_failure(
                file_.name(), "ends within frame " + std::to_string(number) + ", at byte " +
                                  std::to_string(status.st_size) +
                                  "; has it become shorter meanwhile?");
        }
        target.decoder = unpacker_;
    }

    Opened_file file_;
    Raw_layout layout_;
    unsigned sample_bits_;
    Contents contents_;
    std::shared_ptr<Frame_decoder const> unpacker_;
};

std::unique_ptr<Frame_source> open_bare_samples(Opened_file file) {
    refuse_picture(file);
    Raw_layout const layout = *file.layout();
    std::size_t const count = layout.frames_in(file.size());
    if (count == 0) {
        throw File_failure(file.name(), layout.size_problem(file.size()));
    }
    return stored_frames(std::move(file), {layout}, count);
}

} // namespace

char const* kind_of_picture(std::string_view start) {
    using namespace std::string_view_literals;
    for (std::string_view const magic : {"II*\0"sv, "MM\0*"sv, "II+\0"sv, "MM\0+"sv}) {
        if (start.starts_with(magic)) {
            return "a TIFF image";
        }
    }
    return start.starts_with(png_magic)     ? "a PNG image"
           : start.starts_with(array_magic) ? "an npy array"
                                            : nullptr;
}

std::shared_ptr<Frame_decoder const> unpacker(Sample_storage const& storage) {
    return std::make_shared<Unpacker>(storage);
}

std::unique_ptr<Frame_source> stored_frames(
    Opened_file file, Sample_storage const& storage, std::size_t count) {
    return std::make_unique<Stored_frames>(
        std::move(file), storage, Stored_frames::Contents{count});
}

std::unique_ptr<Frame_source> open_recording(Opened_file file, Recording_description description) {
    Raw_layout const layout = description.layout();
    refuse_contradiction(file, layout);
    std::string const told_by = description_file_of(file.name()).string();
    std::uint64_t const frame_bytes = layout.frame_bytes();
    std::uint64_t const there = file.size() / frame_bytes;
    bool const has_more = file.size() % frame_bytes != 0;
    std::uint64_t const told = description.frames.value_or(there);
    std::string const size = "has " + std::to_string(file.size()) + " bytes";
    if (there > told || (there == told && has_more && description.frames)) {
        throw File_failure(
            file.name(), size + ", more than the " + std::to_string(told) + " frames that " +
                             told_by + " tells; put the recording of this description back");
    }
    if (there == 0) {
        throw File_failure(
            file.name(), size + ", of which one frame takes " + std::to_string(frame_bytes) +
                             "; copy or record it again");
    }
    Stored_frames::Contents contents{there, std::move(description.captures), {}};
    if (there < told || has_more) {
        contents.failures.push_back(
            file.name().string() + ": is cut short within frame " + std::to_string(there) +
            (description.frames ? " of " + std::to_string(told) : std::string()) +
            "; the frames before it are read");
    }
    return std::make_unique<Stored_frames>(std::move(file), Sample_storage{layout}, contents);
}

extern Source_kind const bare_samples;
constinit Source_kind const bare_samples{endings, true, nullptr, open_bare_samples};

} // namespace veldrane_mrv::polarization::recordings

namespace veldrane_mrv::polarization {

std::shared_ptr<Frame_decoder const> sample_decoder(Raw_layout const& layout) {
    return recordings::unpacker({layout});
}

} // namespace veldrane_mrv::polarization
