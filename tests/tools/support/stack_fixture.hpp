/// @file
/// A recording of small frames, and `process --stack` run on it.
#pragma once

#include "process_fixture.hpp"

#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace stack_fixture {

using process_fixture::Names;
using process_fixture::Process_command;
using program_run::Outcome;
using Bytes = std::vector<std::uint8_t>;
using Json = nlohmann::json;

inline constexpr std::size_t width = 40;
inline constexpr std::size_t height = 20;
inline constexpr std::size_t pixels = width * height;
/// Where the samples of NumPy's files and of BigTIFFs begin.
inline constexpr std::size_t page = 4096;

inline Names operator+(Names all, Names const& more) {
    all.insert(all.end(), more.begin(), more.end());
    return all;
}

class Process_stack : public Process_command {
protected:
    void SetUp() override {
        Process_command::SetUp();
        record("run.raw", frames_);
    }

    void record(std::string const& name, std::size_t frames) const {
        Bytes samples;
        samples.reserve(frames * pixels);
        for (std::size_t row = 0; row < frames * height; ++row) {
            for (std::size_t column = 0; column < width; ++column) {
                samples.push_back(static_cast<std::uint8_t>((row / 2 * 7 + column / 2 * 3) % 251));
            }
        }
        test_files::write(folder_ / name, samples);
    }

    Names options(Names const& more) const {
        return Names{
                   "-o",
                   results(),
                   "--phase",
                   "0",
                   "--pixel-format",
                   "Mono8",
                   "--width",
                   std::to_string(width),
                   "--height",
                   std::to_string(height)} +
               more;
    }

    Outcome stacked(Names const& more = {}) const {
        return process_with(
            {in_folder("run.raw")},
            options(
                Names{"--stack", "--format", "npy", "--planes", "s0,normalized_stokes"} + more));
    }

    // All that a run in one go leaves: names and contents.
    std::map<std::string, Bytes> files() const {
        std::map<std::string, Bytes> all;
        for (std::string const& name : test_files::names_in(results())) {
            all[name] = test_files::read(result(name));
        }
        return all;
    }

    std::map<std::string, Bytes> finished() const {
        EXPECT_EQ(stacked().code, 0);
        auto all = files();
        forget_results();
        return all;
    }

    std::uintmax_t bytes_of_record() const {
        std::error_code error;
        std::uintmax_t const size = std::filesystem::file_size(result("run_stack.part"), error);
        return error ? 0 : size;
    }

    Json description() const {
        Bytes const text = test_files::read(result("run_stack.json"));
        return Json::parse(text.begin(), text.end());
    }

    static constexpr std::size_t frames_ = 9;
};

inline std::string text_of(Bytes const& bytes) {
    return {bytes.begin(), bytes.end()};
}

} // namespace stack_fixture
