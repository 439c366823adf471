// Reads a recording frame by frame and writes as many files of the same sizes as `process` does,
// each beside its place and then renamed, and computes nothing: what is left of `process` when its
// arithmetic costs no time. Prints frames per second.
#include "veldrane_mrv/polarization/pixel_format.hpp"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <future>
#include <memory>
#include <new>
#include <span>
#include <string>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::size_t block = 4096;         // of O_DIRECT: addresses, offsets and sizes
constexpr std::size_t sidecar_bytes = 1250; // about what one has

struct Options {
    std::string recording;
    std::filesystem::path folder;
    std::string method = "buffered";
    std::size_t frames = 0;
    std::size_t frame_bytes = 0;
    std::size_t plane_bytes = 0;
    std::size_t planes = 0;
    std::size_t unpacked_width = 0;
    unsigned threads = 1;
};

void require(bool is_done, std::string const& what) {
    if (!is_done) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

struct Free {
    void operator()(char* memory) const { std::free(memory); }
};
using Buffer = std::unique_ptr<char, Free>;

// Touched, so that no page is missing later.
Buffer buffer_of(std::size_t bytes) {
    std::size_t const size = (bytes + block - 1) / block * block;
    Buffer memory(static_cast<char*>(std::aligned_alloc(block, size)));
    if (!memory) {
        throw std::bad_alloc();
    }
    std::fill_n(memory.get(), size, '\1');
    return memory;
}

void write_all(int file, std::span<char const> bytes, std::size_t offset) {
    while (!bytes.empty()) {
        ssize_t const done = pwrite(file, bytes.data(), bytes.size(), static_cast<off_t>(offset));
        require(done > 0, "write");
        bytes = bytes.subspan(static_cast<std::size_t>(done));
        offset += static_cast<std::size_t>(done);
    }
}

class Contender {
public:
    explicit Contender(Options const& options)
        : options_{options}, recording_{open(options.recording.c_str(), O_RDONLY | O_CLOEXEC)},
          buffers_(options.threads) {
        require(recording_ >= 0, options.recording);
        for (Buffers& buffers : buffers_) {
            buffers.frame = buffer_of(options.frame_bytes);
            while (buffers.planes.size() < options.planes) {
                buffers.planes.push_back(buffer_of(options.plane_bytes));
            }
            buffers.samples.resize(options.unpacked_width == 0 ? 0 : options.plane_bytes / 2);
        }
    }

    double frames_per_second() {
        auto const start = std::chrono::steady_clock::now();
        std::vector<std::future<void>> threads;
        for (Buffers& buffers : buffers_) {
            threads.push_back(std::async(std::launch::async, [&] { run(buffers); }));
        }
        for (std::future<void>& thread : threads) {
            thread.get();
        }
        std::chrono::duration<double> const elapsed = std::chrono::steady_clock::now() - start;
        return static_cast<double>(options_.frames) / elapsed.count();
    }

private:
    struct Buffers {
        Buffer frame;
        std::vector<Buffer> planes;
        std::vector<std::uint16_t> samples;
    };

    void run(Buffers& buffers) {
        for (std::size_t index = next_++; index < options_.frames; index = next_++) {
            ssize_t const done = pread(
                recording_, buffers.frame.get(), options_.frame_bytes,
                static_cast<off_t>(index * options_.frame_bytes));
            require(
                done >= 0 && static_cast<std::size_t>(done) == options_.frame_bytes,
                options_.recording);
            if (!buffers.samples.empty()) {
                veldrane_mrv::polarization::unpack_frame(
                    veldrane_mrv::polarization::Pixel_format::mono12p,
                    std::as_bytes(std::span(buffers.frame.get(), options_.frame_bytes)),
                    options_.unpacked_width, buffers.samples);
            }
            write_frame(options_.folder / std::to_string(index), buffers.planes);
        }
    }

    void write_frame(std::string const& stem, std::vector<Buffer> const& planes) const {
        for (std::size_t plane = 0; plane < planes.size(); ++plane) {
            std::string const name = stem + "_" + std::to_string(plane);
            write_plane(name + ".raw", {planes[plane].get(), options_.plane_bytes});
            int const file = create(name + ".json", 0);
            write_all(file, std::span(planes[plane].get(), sidecar_bytes), 0);
            require(close(file) == 0, name);
        }
        for (std::size_t plane = 0; plane < planes.size(); ++plane) {
            for (char const* const ending : {".raw", ".json"}) {
                std::string const name = stem + "_" + std::to_string(plane) + ending;
                require(rename((name + ".part").c_str(), name.c_str()) == 0, name);
            }
        }
    }

    void write_plane(std::string const& name, std::span<char const> bytes) const {
        bool const is_direct = options_.method == "direct";
        int const file = create(name, is_direct ? O_DIRECT : 0);
        if (options_.method != "buffered") {
            require(fallocate(file, 0, 0, static_cast<off_t>(bytes.size())) == 0, name);
        }
        std::size_t const aligned = is_direct ? bytes.size() / block * block : bytes.size();
        write_all(file, bytes.first(aligned), 0);
        if (aligned < bytes.size()) {
            require(fcntl(file, F_SETFL, 0) == 0, name);
            write_all(file, bytes.subspan(aligned), aligned);
        }
        require(close(file) == 0, name);
    }

    static int create(std::string const& name, int how) {
        int const file =
            open((name + ".part").c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | how, 0666);
        require(file >= 0, name);
        return file;
    }

    Options const& options_;
    int recording_;
    std::vector<Buffers> buffers_; // one a thread
    std::atomic<std::size_t> next_ = 0;
};

} // namespace

int main(int count, char** arguments) {
    CLI::App app("Reads and writes what `veldrane-polarize process` does, and nothing else.");
    Options options;
    app.add_option("recording", options.recording)->required();
    app.add_option("folder", options.folder)->required();
    app.add_option("--method", options.method)
        ->check(CLI::IsMember({"buffered", "preallocated", "direct"}));
    app.add_option("--frames", options.frames)->required();
    app.add_option("--frame-bytes", options.frame_bytes)->required();
    app.add_option("--planes", options.planes, "a frame, each with a sidecar")->required();
    app.add_option("--plane-bytes", options.plane_bytes)->required();
    app.add_option("--unpacked-width", options.unpacked_width, "unpacks Mono12p, too");
    app.add_option("--threads", options.threads)->check(CLI::Range(1, 64));
    CLI11_PARSE(app, count, arguments);
    try {
        std::printf("%.3f frames/s\n", Contender(options).frames_per_second());
    } catch (std::exception const& error) {
        std::fprintf(stderr, "error: %s\n", error.what());
        return 1;
    }
    return 0;
}
