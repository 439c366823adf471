// A client of the layer for frames that arrive: hands one over in memory and prints the sum of its
// samples, and whether there is a way to cameras.

#include "veldrane_mrv/polarization/camera.hpp"

#include <chrono>
#include <cstdio>
#include <exception>
#include <numeric>

int main() {
    namespace polarization = veldrane_mrv::polarization;
    try {
        polarization::Live_source source(
            "memory", "memory", polarization::make_raw_layout("Mono8", 2, 2, 0, 0));
        source.feed().give("\1\2\3\4", {.frame_number = 7}, std::chrono::steady_clock::now());
        source.feed().end();
        if (!source.has_frame(0)) {
            return 1;
        }
        polarization::Frame_slot slot;
        source.read(0, slot);
        polarization::Frame const& frame = slot.frame();
        std::printf(
            "frame %u, sum %u, %s cameras\n",
            static_cast<unsigned>(slot.place().capture.value().frame_number),
            std::accumulate(frame.samples.begin(), frame.samples.end(), 0U),
            polarization::is_built_with_cameras() ? "with" : "without");
    } catch (std::exception const& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}
