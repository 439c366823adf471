/// @file
/// Memory of frames that goes round between whoever reads them and NumPy's arrays.
#pragma once

#include "veldrane_mrv/polarization/frame_source.hpp"

#include <cstddef>
#include <memory>
#include <mutex>
#include <pybind11/numpy.h>
#include <vector>

namespace veldrane_python {

/// What reading one frame used and the next can use again. Fresh memory of a few million samples
/// takes the system longer than unpacking them. Any number of threads.
class Frame_rooms {
public:
    explicit Frame_rooms(std::size_t most_kept);

    std::unique_ptr<veldrane_mrv::polarization::Frame_slot> take();
    /// @param slot whose frame was read
    void give_back(std::unique_ptr<veldrane_mrv::polarization::Frame_slot> slot);
    void give_back(veldrane_mrv::polarization::Frame frame);

private:
    std::size_t most_kept_;
    std::mutex mutex_;
    std::vector<std::unique_ptr<veldrane_mrv::polarization::Frame_slot>> slots_;
    std::vector<veldrane_mrv::polarization::Frame> frames_;
};

/// The decoded frame of a slot as an array (H, W) of uint16, where it lies. Its memory goes back
/// with the array, and the slot at once.
pybind11::array lend_frame(
    std::shared_ptr<Frame_rooms> const& rooms,
    std::unique_ptr<veldrane_mrv::polarization::Frame_slot> slot);

} // namespace veldrane_python
