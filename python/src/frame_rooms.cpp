#include "frame_rooms.hpp"

#include <cstdint>
#include <utility>

namespace veldrane_python {
namespace {

namespace py = pybind11;
namespace polarization = veldrane_mrv::polarization;

/// A frame in an array's hands. Its room may outlive the file.
class Lent_frame {
public:
    Lent_frame(std::shared_ptr<Frame_rooms> rooms, polarization::Frame frame)
        : rooms_{std::move(rooms)}, frame_{std::move(frame)} {}
    ~Lent_frame() { rooms_->give_back(std::move(frame_)); }
    Lent_frame(Lent_frame const&) = delete;
    Lent_frame& operator=(Lent_frame const&) = delete;

    polarization::Frame const& frame() const { return frame_; }

private:
    std::shared_ptr<Frame_rooms> rooms_;
    polarization::Frame frame_;
};

} // namespace

Frame_rooms::Frame_rooms(std::size_t most_kept) : most_kept_{most_kept} {
    slots_.reserve(most_kept);
    frames_.reserve(most_kept);
}

std::unique_ptr<polarization::Frame_slot> Frame_rooms::take() {
    std::lock_guard const lock{mutex_};
    if (slots_.empty()) {
        return std::make_unique<polarization::Frame_slot>();
    }
    auto slot = std::move(slots_.back());
    slots_.pop_back();
    if (!frames_.empty()) {
        slot->frame() = std::move(frames_.back());
        frames_.pop_back();
    }
    return slot;
}

void Frame_rooms::give_back(std::unique_ptr<polarization::Frame_slot> slot) {
    std::lock_guard const lock{mutex_};
    if (slots_.size() < most_kept_) {
        slots_.push_back(std::move(slot));
    }
}

void Frame_rooms::give_back(polarization::Frame frame) {
    std::lock_guard const lock{mutex_};
    if (frames_.size() < most_kept_) {
        frames_.push_back(std::move(frame));
    }
}

py::array lend_frame(
    std::shared_ptr<Frame_rooms> const& rooms, std::unique_ptr<polarization::Frame_slot> slot) {
    auto lent = std::make_unique<Lent_frame>(rooms, std::exchange(slot->frame(), {}));
    rooms->give_back(std::move(slot));
    polarization::Frame const& frame = lent->frame();
    py::capsule const owner{
        lent.get(), [](void* pointer) { delete static_cast<Lent_frame*>(pointer); }};
    static_cast<void>(lent.release());
    return py::array_t<std::uint16_t>{
        std::vector<std::size_t>{frame.height, frame.width}, frame.samples.data(), owner};
}

} // namespace veldrane_python
