// The part of a run of `process` that makes planes of what was read.
#include "commands/process_run.hpp"
#include "terminal/messages.hpp"
#include "veldrane_mrv/polarization/balance.hpp"

#include <mutex>
#include <span>

namespace polarize_tool {

bool Process_run::tells_saturation(Frame_place const& place) const {
    return results_.masks_pictures(place) ||
           results_.processing.planes.contains(polarization::Plane::validity);
}

// The line about a file of one frame tells the time of the transform alone.
bool Process_run::takes_rows(Frame_place const& place) const {
    return place.is_part() && has_checked_balance_ && !tells_saturation(place) &&
           results_.processing.repetitions == 1;
}

void Process_run::transform_rows(Slot& slot) {
    polarization::Size const whole = slot.input.size();
    Frame_place const& place = slot.input.place();
    polarization::Region const part = preparation_.part_of(whole, place.name());
    slot.size = part.size();
    if (stack_) {
        require_size_of_stack(slot);
    }
    Sample_findings findings;
    std::vector<bool> is_found(part.height);
    std::mutex finding; // rows are made by several threads, some of them twice
    slot.processor.run(polarization::Frame_rows{
        part.height, part.width, [&](std::size_t begin, std::size_t end, std::uint16_t* target) {
            for (std::size_t row = begin; row != end; ++row, target += part.width) {
                std::span const samples(target, part.width);
                slot.input.copy_row(part.row + row, part.column, samples);
                Sample_findings const found =
                    preparation_.prepare_row(samples, part.row + row, part.column);
                std::lock_guard const lock{finding};
                if (!is_found[row]) {
                    is_found[row] = true;
                    findings.add(found);
                }
            }
        }});
    tell(preparation_.warnings(findings, part, place.name()), place);
}

void Process_run::transform(Slot& slot) {
    if (takes_rows(slot.input.place())) {
        transform_rows(slot);
        return;
    }
    Prepared_frame const prepared = preparation_.apply(
        slot.input, slot.room, Dark_level::subtracted,
        tells_saturation(slot.input.place()) ? &slot.saturated : nullptr);
    slot.frame = &prepared.frame;
    slot.size = slot.frame->size();
    if (stack_) {
        require_size_of_stack(slot);
    }
    tell(prepared.warnings, slot.input.place());
    slot.processor.run(*slot.frame, slot.saturated);
    if (!has_checked_balance_.exchange(true)) {
        warn_of_imbalance(slot);
    }
}

void Process_run::tell(Sample_warnings const& warnings, Frame_place const& place) {
    if (!warnings.depth.empty() && (!place.is_part() || !has_warned_of_depth_.exchange(true))) {
        warn(warnings.depth);
    }
    // The same dark frames are taken off all frames, so one line speaks for all.
    if (!warnings.dark.empty() && !has_warned_of_dark_.exchange(true)) {
        warn(warnings.dark);
    }
}

// One frame stands for all, the first that the transform takes: the same camera and the same
// options made them.
void Process_run::warn_of_imbalance(Slot& slot) const {
    polarization::Balance const balance = polarization::check_balance(slot.frame->view());
    if (balance.verdict == polarization::Balance::Verdict::unlikely) {
        warn(slot.input.place().name() + ": " + balance.explanation());
    }
}

} // namespace polarize_tool
