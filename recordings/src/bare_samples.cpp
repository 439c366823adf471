// Files of bare samples, which the user describes.
#include "source_kind.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

#include <array>
#include <sys/stat.h>

namespace veldrane_mrv::polarization::recordings {
namespace {

constexpr std::array<std::string_view, 3> endings = {".raw", ".bin", ".dat"};

// The bytes of a PNG are never samples. Those of a TIFF may be, behind a header that the user
// knows.
void refuse_picture(Opened_file const& file) {
    using namespace std::string_view_literals;
    bool const is_png = file.start().starts_with("\x89PNG\r\n\x1a\n");
    bool is_tiff = false;
    for (std::string_view const start : {"II*\0"sv, "MM\0*"sv, "II+\0"sv, "MM\0+"sv}) {
        is_tiff = is_tiff || file.start().starts_with(start);
    }
    if (is_png || (is_tiff && file.layout()->header_bytes == 0)) {
        throw Argument_error(
            "--pixel-format",
            "for bare samples, but " + file.name().string() + " is a " + (is_png ? "PNG" : "TIFF") +
                " image",
            "leave the option out");
    }
}

class Unpacker : public Frame_decoder {
public:
    explicit Unpacker(Raw_layout const& layout) : layout_{layout} {}

    unsigned decode(std::string_view bytes, Frame_place const&, Frame& frame) const override {
        frame.width = layout_.width;
        frame.height = layout_.height;
        frame.samples.resize(frame.width * frame.height);
        unpack_frame(
            layout_.format, std::as_bytes(std::span(bytes)), frame.width, frame.samples,
            layout_.stride);
        return 16;
    }

private:
    Raw_layout layout_;
};

class Bare_samples : public Frame_source {
public:
    explicit Bare_samples(Opened_file file)
        : file_{std::move(file)}, layout_{*file_.layout()}, count_{layout_.frames_in(file_.size())},
          unpacker_{std::make_shared<Unpacker>(layout_)} {
        if (count_ == 0) {
            throw File_failure(file_.name(), layout_.size_problem(file_.size()));
        }
    }

    std::string name() const override { return file_.name().string(); }
    std::optional<std::size_t> count() const override { return count_; }
    std::optional<Frame_shape> shape() const override {
        return Frame_shape{layout_.width, layout_.height, 16};
    }
    Frame_place place(std::size_t number) const override { return {file_.name(), number, count_}; }

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
    std::size_t count_;
    std::shared_ptr<Frame_decoder const> unpacker_;
};

std::unique_ptr<Frame_source> open_bare_samples(Opened_file file) {
    refuse_picture(file);
    return std::make_unique<Bare_samples>(std::move(file));
}

} // namespace

extern Source_kind const bare_samples;
constinit Source_kind const bare_samples{endings, true, nullptr, open_bare_samples};

} // namespace veldrane_mrv::polarization::recordings
