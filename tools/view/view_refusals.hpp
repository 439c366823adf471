/// @file
/// What goes wrong with a request or a frame, as a browser is told.
#pragma once

#include "input/frame_finding.hpp"
#include "terminal/failure.hpp"
#include "terminal/memory.hpp"
#include "view/frame_answers.hpp"

#include <exception>
#include <string>

namespace polarize_tool {

/// What goes to the browser in place of an answer.
struct Refused {
    int status;
    std::string line;
};

/// Every failure of a frame but lack of memory becomes one line that names it, as `process` has it.
template <class Action>
decltype(auto) naming(Frame_place const& place, Action action) {
    try {
        return action();
    } catch (File_failure const&) {
        throw;
    } catch (std::exception const& error) {
        if (is_lack_of_memory(error)) {
            throw;
        }
        throw File_failure(place.name(), reason_of(error));
    }
}

/// The answer, or what is told in its place.
template <class Action>
Answer answered(Action action) {
    try {
        return action();
    } catch (Parameter_error const& error) {
        return refusal(400, error.what());
    } catch (Refused const& refused) {
        return refusal(refused.status, refused.line);
    } catch (File_failure const& failure) {
        return refusal(422, failure.what());
    } catch (std::exception const& error) {
        if (is_lack_of_memory(error)) {
            return refusal(
                503, "memory is short; ask for a smaller region or fewer planes, or close other "
                     "pages");
        }
        throw;
    }
}

} // namespace polarize_tool
