#include "veldrane_mrv/polarization/frame_source.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace veldrane_mrv::polarization {

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

Frame& Frame_slot::frame() {
    if (state_ == State::empty) {
        throw std::logic_error("no frame was read into this slot");
    }
    if (state_ == State::fetched) {
        if (fetched_.decoder != nullptr) {
            fetched_.sample_bits = fetched_.decoder->decode(fetched_.bytes, place_, fetched_.frame);
        }
        state_ = State::decoded;
    }
    return fetched_.frame;
}

unsigned Frame_slot::sample_bits() {
    frame();
    return fetched_.sample_bits;
}

Row_decoder const* Frame_slot::undecoded_rows() const {
    bool const is_fetched = state_ == State::fetched && fetched_.decoder != nullptr;
    return is_fetched ? fetched_.decoder->by_rows() : nullptr;
}

Size Frame_slot::size() {
    if (Row_decoder const* const rows = undecoded_rows()) {
        return {rows->shape().width, rows->shape().height};
    }
    return frame().size();
}

void Frame_slot::copy_row(
    std::size_t row, std::size_t column, std::span<std::uint16_t> target) const {
    if (Row_decoder const* const rows = undecoded_rows()) {
        rows->decode_row(fetched_.bytes, row, column, target);
        return;
    }
    Frame const& frame = fetched_.frame;
    std::copy_n(frame.samples.data() + row * frame.width + column, target.size(), target.data());
}

void Frame_source::read(std::size_t number, Frame_slot& slot) {
    if (!has_frame(number)) {
        throw Argument_error(
            "frame number", std::to_string(number),
            "give one below the " + std::to_string(count().value_or(number)) + " of " + name());
    }
    slot.state_ = Frame_slot::State::empty;
    slot.place_ = place(number);
    next_ = number + 1;
    fetch_from(*this, number, slot.fetched_);
    slot.state_ = Frame_slot::State::fetched;
}

bool Frame_source::read_next(Frame_slot& slot) {
    if (!has_frame(next_)) {
        return false;
    }
    read(next_, slot);
    return true;
}

void Frame_source::fetch_from(Frame_source& source, std::size_t number, Fetched_frame& target) {
    target.decoder = nullptr;
    source.fetch(number, target);
}

Frame read_frame(std::filesystem::path const& file) {
    Frame_slot slot;
    open_frames(file)->read(0, slot);
    return std::move(slot.frame());
}

} // namespace veldrane_mrv::polarization
