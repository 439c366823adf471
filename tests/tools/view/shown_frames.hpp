/// @file
/// Frames that are made when a browser asks for them, and what it gets.
#pragma once

#include "input/frame_preparation.hpp"
#include "support/samples.hpp"
#include "view/view_frames.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>

namespace polarize_tool {

inline constexpr polarization::Size size{48, 30};

inline support::Samples samples_of(std::size_t number) {
    return support::make_samples(
        support::Sample_kind::random_12_bit, size.height, size.width, number);
}

/// Frames that are made when they are read. Number 3 cannot be.
class Made_frames : public polarization::Frame_source {
public:
    std::string name() const override { return "made"; }
    std::optional<std::size_t> count() const override { return 20; }
    polarization::Frame_place place(std::size_t number) const override {
        return {"made", number, 20};
    }

    std::atomic<unsigned> reads = 0;

private:
    void fetch(std::size_t number, polarization::Fetched_frame& target) override {
        ++reads;
        if (number == 3) {
            throw polarization::File_failure(place(number).name(), "ends too early");
        }
        target.frame = {size.width, size.height, samples_of(number)};
    }
};

inline View_setup setup() {
    auto const settings =
        polarization::ideal_settings(polarization::Mosaic::from_phase(2), polarization::Scale(12));
    return {
        .name = "made",
        .transform = {settings, std::nullopt},
        .calibration_file = {},
        .rate = {},
        .camera = {},
        .generator = "test"};
}

inline Sample_options twelve_bits() {
    Sample_options options;
    options.bit_depth = 12;
    return options;
}

/// An answer in its parts.
struct Got {
    nlohmann::json header;
    std::string planes;
};

inline Got parsed(Answer const& answer) {
    EXPECT_EQ(answer.status, 200) << answer.body;
    EXPECT_EQ(answer.media_type, "application/octet-stream");
    std::uint32_t length = 0;
    std::memcpy(&length, answer.body.data(), sizeof length);
    EXPECT_EQ((sizeof length + length) % 8, 0U);
    EXPECT_EQ(answer.body.size() % 8, 0U);
    return {
        nlohmann::json::parse(answer.body.substr(sizeof length, length)),
        answer.body.substr(sizeof length + length)};
}

inline std::string bytes_of(support::Samples const& samples) {
    return {reinterpret_cast<char const*>(samples.data()), 2 * samples.size()};
}

class Frames_of_a_list : public testing::Test {
protected:
    Answer ask(std::string const& path, Query const& query) const {
        return handlers_.at(path)(query);
    }
    std::string line(std::string const& path, Query const& query, int status) const {
        Answer const answer = ask(path, query);
        EXPECT_EQ(answer.status, status) << answer.body;
        EXPECT_EQ(answer.body.find('\n'), std::string::npos);
        return answer.body;
    }

    Made_frames source_;
    Frame_preparation preparation_{twelve_bits(), std::nullopt};
    View_frames frames_{setup(), preparation_, source_};
    Handlers handlers_ = frames_.handlers();
};

} // namespace polarize_tool
