// A client of the layer that reads recordings: prints the size of a frame and the sum of its
// samples, or why it cannot.

#include "veldrane_mrv/polarization/frame_source.hpp"

#include <cstdio>
#include <exception>
#include <numeric>

int main(int argument_count, char** arguments) {
    namespace polarization = veldrane_mrv::polarization;
    if (argument_count != 2) {
        return 2;
    }
    try {
        polarization::Frame_slot slot;
        polarization::open_frames(arguments[1])->read(0, slot);
        polarization::Frame const& frame = slot.frame();
        unsigned const sum = std::accumulate(frame.samples.begin(), frame.samples.end(), 0U);
        std::printf("%zu x %zu, sum %u\n", frame.width, frame.height, sum);
    } catch (std::exception const& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}
