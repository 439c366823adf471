#include "view/kept_frames.hpp"

#include <algorithm>
#include <utility>

namespace polarize_tool {

struct Kept_frames::Place {
    std::size_t number = 0;
    std::size_t users = 0;
    std::uint64_t last_use = 0;
    Kept_frame frame;
};

Kept_frames::Kept_frames(std::size_t most) : most_{most} {}
Kept_frames::~Kept_frames() = default;

Kept_frames::Use::Use(Use&& other) noexcept
    : frames_{other.frames_}, place_{std::exchange(other.place_, nullptr)} {}

Kept_frames::Use& Kept_frames::Use::operator=(Use&& other) noexcept {
    std::swap(frames_, other.frames_);
    std::swap(place_, other.place_);
    return *this;
}

Kept_frames::Use::~Use() {
    if (place_ != nullptr) {
        frames_->release(*place_);
    }
}

Kept_frame& Kept_frames::Use::operator*() const {
    return place_->frame;
}

std::size_t Kept_frames::Use::number() const {
    return place_->number;
}

Kept_frames::Use Kept_frames::find(std::size_t number) {
    std::scoped_lock const lock(mutex_);
    auto const found = std::ranges::find(
        places_, number, [](std::unique_ptr<Place> const& place) { return place->number; });
    if (found == places_.end()) {
        return {};
    }
    Place& place = **found;
    ++place.users;
    place.last_use = ++uses_;
    return {*this, place};
}

Kept_frames::Use Kept_frames::find_or_take(std::size_t number) {
    std::scoped_lock const lock(mutex_);
    auto const found = std::ranges::find(
        places_, number, [](std::unique_ptr<Place> const& place) { return place->number; });
    Place& place = found == places_.end() ? place_for(number) : **found;
    ++place.users;
    place.last_use = ++uses_;
    return {*this, place};
}

Kept_frames::Use Kept_frames::take_newest(std::size_t number) {
    std::scoped_lock const lock(mutex_);
    Place& place = place_for(number);
    newest_ = number;
    ++place.users;
    return {*this, place};
}

Kept_frames::Place& Kept_frames::place_for(std::size_t number) {
    Place* free = nullptr;
    if (places_.size() >= most_) {
        for (std::unique_ptr<Place> const& place : places_) {
            bool const may_go = place->users == 0 && place->number != newest_;
            if (may_go && (free == nullptr || place->last_use < free->last_use)) {
                free = place.get();
            }
        }
    }
    if (free == nullptr) {
        free = places_.emplace_back(std::make_unique<Place>()).get();
    }
    free->number = number;
    free->last_use = 0;
    free->frame.is_read = false;
    free->frame.is_prepared = false;
    return *free;
}

void Kept_frames::release(Place& place) {
    std::scoped_lock const lock(mutex_);
    --place.users;
    while (places_.size() > most_) {
        auto const goes =
            std::ranges::min_element(places_, {}, [&](std::unique_ptr<Place> const& one) {
                bool const stays = one->users > 0 || one->number == newest_;
                return std::pair(stays, one->last_use);
            });
        if ((*goes)->users > 0 || (*goes)->number == newest_) {
            return;
        }
        places_.erase(goes);
    }
}

} // namespace polarize_tool
