#include "source_kind.hpp"

#include "veldrane_mrv/polarization/geometry.hpp"

#include <utility>

namespace veldrane_mrv::polarization::recordings {
namespace {

class Picture_decoder : public Frame_decoder {
public:
    explicit Picture_decoder(Decode_picture picture) : decode_{picture} {}

    unsigned decode(std::string_view bytes, Frame_place const& place, Frame& frame) const override {
        unsigned sample_bits = 16;
        std::string const problem = decode_(bytes, frame, sample_bits);
        if (!problem.empty()) {
            throw File_failure(place.name(), problem);
        }
        return sample_bits;
    }

private:
    Decode_picture decode_;
};

class Picture : public Frame_source {
public:
    Picture(Opened_file file, Decode_picture decode)
        : file_{std::move(file)}, decoder_{picture_decoder(decode)} {}

    std::string name() const override { return file_.name().string(); }
    std::optional<std::size_t> count() const override { return 1; }
    Frame_place place(std::size_t) const override { return {file_.name(), 0, 1}; }

private:
    void fetch(std::size_t, Fetched_frame& target) override {
        file_.read(0, static_cast<std::size_t>(file_.size()), target.bytes);
        target.decoder = decoder_;
    }

    Opened_file file_;
    std::shared_ptr<Frame_decoder const> decoder_;
};

} // namespace

std::string size_problem(std::size_t width, std::size_t height) {
    if (width != 0 && height != 0 && height <= largest_frame / width) {
        return {};
    }
    return "its size is " + to_string(Size{width, height}) + ", more than 2^30 pixels; crop it";
}

std::shared_ptr<Frame_decoder const> picture_decoder(Decode_picture decode) {
    return std::make_shared<Picture_decoder>(decode);
}

std::unique_ptr<Frame_source> one_picture(Opened_file file, Decode_picture decode) {
    return std::make_unique<Picture>(std::move(file), decode);
}

} // namespace veldrane_mrv::polarization::recordings
