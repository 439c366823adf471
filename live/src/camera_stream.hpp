/// @file
/// The thread that takes frames from a camera, and looks for it again when it is gone.
#pragma once

#include "camera_setup.hpp"

#include <atomic>
#include <deque>
#include <thread>

namespace veldrane_mrv::polarization::aravis {

class Camera_stream {
public:
    /// Begins to receive. `feed` outlives it.
    /// @throws File_failure if the camera does not begin to send
    Camera_stream(Ready_camera camera, Camera_options options, Live_feed& feed);
    ~Camera_stream();
    Camera_stream(Camera_stream const&) = delete;
    Camera_stream& operator=(Camera_stream const&) = delete;

    /// Returns when nothing is received any more. Several times; one thread at a time.
    void stop();

private:
    static void note_loss(ArvDevice*, void* stream);
    void start_sending();
    void stop_sending();
    void let_go();
    void receive();
    bool receive_until_loss();
    bool find_again();
    ArvBuffer* pop(bool waits);
    bool hand_on_what_fits();
    bool hand_on_first();
    void hand_on_rest();

    /// What a camera fills while frames before it are copied; more only helps against long stalls,
    /// and for these frames wait in the feed.
    static constexpr int buffers = 8;

    struct Arrived_buffer {
        ArvBuffer* buffer; // of the stream again, once it is handed on
        Steady_time time;
    };

    Ready_camera ready_;
    Camera_options options_;
    Live_feed& feed_;
    Owned<ArvStream> stream_;
    std::deque<Arrived_buffer> arrived_; // and not handed on
    gulong loss_handler_ = 0;
    std::atomic<bool> is_lost_ = false;
    std::atomic<bool> is_stopping_ = false;
    std::thread thread_;
};

} // namespace veldrane_mrv::polarization::aravis
