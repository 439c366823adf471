// Recordings that need not be described: what stands beside them tells the samples' layout, and
// what the camera told of each frame. Whatever else stands there gets one line.
#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/frame_list.hpp"

#include "test_files.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace {

using namespace veldrane_mrv::polarization;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint64_t largest = ~std::uint64_t{0};

Recording_description described() {
    Recording_description description;
    description.format = Pixel_format::mono12p;
    description.size = {4, 2}; // 12 bytes
    description.frames = 3;
    description.mosaic = Mosaic::parse("45,90,0,135");
    description.camera = {"fake \"1\"", "Vendor", "Model", ""};
    description.settings = {1500.5, 0, std::nullopt, Region{3, 2, 4, 2}};
    description.counts = {5, 2, 1, {{"missing packets", 1}, {"timeout", 0}}};
    description.begin = "2026-01-31T12:00:00Z";
    description.software = "veldrane-polarize 1";
    description.captures = {{65535, 7, largest}, {1, 8, largest - 1}, {2, 9007199254740993, 3}};
    return description;
}

class Recording_descriptions : public testing::Test {
protected:
    void write(std::string const& text, std::size_t bytes = 36) {
        Bytes samples(bytes);
        for (std::size_t place = 0; place < bytes; ++place) {
            samples[place] = static_cast<std::uint8_t>(place);
        }
        test_files::write(file_, samples);
        test_files::write(description_file_of(file_), Bytes(text.begin(), text.end()));
    }

    std::string refusal(std::string const& text) {
        write(text);
        try {
            open_frames(file_);
        } catch (File_failure const& failure) {
            return failure.what();
        }
        return "not refused";
    }

    // What becomes of a description in which `old` is `changed`.
    std::string refusal_with(std::string const& old, std::string const& changed) {
        std::string text = recording_description_text(described());
        std::size_t const place = text.find(old);
        EXPECT_NE(place, std::string::npos) << old;
        return refusal(text.replace(place, old.size(), changed));
    }

    test_files::Folder folder_;
    std::filesystem::path file_ = folder_ / "run.raw";
};

TEST_F(Recording_descriptions, come_back_as_they_were_written) {
    write(recording_description_text(described()));
    auto const read = read_recording_description(file_);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->format, described().format);
    EXPECT_EQ(read->size, described().size);
    EXPECT_EQ(read->frames, described().frames);
    EXPECT_EQ(read->mosaic, described().mosaic);
    EXPECT_EQ(read->camera, described().camera);
    EXPECT_EQ(read->settings, described().settings);
    EXPECT_EQ(read->counts, described().counts);
    EXPECT_EQ(read->begin, described().begin);
    EXPECT_EQ(read->software, described().software);
    EXPECT_EQ(read->captures, described().captures);
}

TEST_F(Recording_descriptions, tell_what_is_in_the_file) {
    write(recording_description_text(described()));
    auto const source = open_frames(file_);
    EXPECT_EQ(source->count(), 3U);
    EXPECT_EQ(source->shape()->width, 4U);
    EXPECT_TRUE(source->failures().empty());
    Frame_slot slot;
    source->read(1, slot);
    EXPECT_EQ(slot.place().capture, described().captures[1]);
    EXPECT_EQ(slot.frame().samples[0], 12 + 256 * (13 & 15));
    EXPECT_EQ(slot.frame().samples[1], (13 >> 4) + 16 * 14);
}

TEST_F(Recording_descriptions, tell_it_of_every_frame_that_is_found) {
    write(recording_description_text(described()));
    auto const found = find_frames({file_.string()}, std::nullopt);
    ASSERT_EQ(found.frames.size(), 3U);
    Frame_list list(found.frames, std::nullopt);
    Frame_slot slot;
    list.read(2, slot);
    EXPECT_EQ(slot.place().capture, described().captures[2]);
}

TEST_F(Recording_descriptions, are_found_in_a_folder) {
    write(recording_description_text(described()));
    test_files::write(folder_ / "other.raw", Bytes(36));
    EXPECT_EQ(find_frames({folder_.path().string()}, std::nullopt).frames.size(), 3U);
}

TEST_F(Recording_descriptions, of_all_inputs_or_none) {
    write(recording_description_text(described()));
    auto const missing = (folder_ / "missing.raw").string();
    auto const all = described_recordings({file_.string(), missing}, false);
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].file, file_);
    auto const other = folder_ / "other.raw";
    test_files::write(other, Bytes(36));
    EXPECT_TRUE(described_recordings({file_.string(), other.string()}, false).empty());
}

TEST_F(Recording_descriptions, agree_with_a_layout_that_is_given) {
    write(recording_description_text(described()));
    EXPECT_EQ(open_frames(file_, make_raw_layout("Mono12p", 4, 2, 0, 0))->count(), 3U);
    auto const refused = [this](Raw_layout const& layout) -> std::string {
        try {
            open_frames(file_, layout);
        } catch (Argument_error const& error) {
            return error.what();
        }
        return "not refused";
    };
    std::string const beside = ", but " + file_.string() + ".json tells ";
    std::string const remedy = "; leave out what describes the samples";
    EXPECT_EQ(
        refused(make_raw_layout("Mono8", 4, 2, 0, 0)),
        "--pixel-format is Mono8" + beside + "Mono12p" + remedy);
    EXPECT_EQ(
        refused(make_raw_layout("Mono12p", 5, 2, 0, 0)), "--width is 5" + beside + "4" + remedy);
    EXPECT_EQ(
        refused(make_raw_layout("Mono12p", 4, 2, 8, 0)),
        "--header-bytes is 8" + beside + "0" + remedy);
    EXPECT_EQ(
        refused(make_raw_layout("Mono12p", 4, 2, 0, 9)), "--stride is 9" + beside + "6" + remedy);
}

TEST_F(Recording_descriptions, of_a_recording_cut_short_leave_its_whole_frames) {
    std::string const text = recording_description_text(described());
    write(text, 25);
    auto const source = open_frames(file_);
    EXPECT_EQ(source->count(), 2U);
    ASSERT_EQ(source->failures().size(), 1U);
    EXPECT_EQ(
        source->failures()[0], file_.string() + ": is cut short within frame 2 of 3; the frames "
                                                "before it are read");
    write(text, 11);
    EXPECT_THROW(open_frames(file_), File_failure);
    write(text, 37);
    EXPECT_THROW(open_frames(file_), File_failure);
}

TEST_F(Recording_descriptions, without_a_number_of_frames_are_of_all_that_are_there) {
    auto unfinished = described();
    unfinished.frames.reset();
    unfinished.captures.clear();
    write(recording_description_text(unfinished), 26);
    auto const source = open_frames(file_);
    EXPECT_EQ(source->count(), 2U);
    EXPECT_EQ(source->failures().size(), 1U);
    EXPECT_FALSE(source->place(0).capture);
}

TEST_F(Recording_descriptions, are_none_in_files_of_others) {
    for (std::string const text :
         {"", "{}", "no JSON", "[\"veldrane-recording\"]", "{\"format\": \"x\", \"version\": 1}",
          "{\"plane\": \"veldrane-recording\"}", "\xff\xfe"}) {
        write(text);
        EXPECT_FALSE(read_recording_description(file_)) << text;
    }
    std::filesystem::remove(description_file_of(file_));
    EXPECT_FALSE(read_recording_description(file_));
    std::filesystem::create_directory(description_file_of(file_));
    EXPECT_FALSE(read_recording_description(file_));
    std::filesystem::remove(description_file_of(file_));
    ASSERT_EQ(mkfifo(description_file_of(file_).c_str(), 0600), 0);
    EXPECT_FALSE(read_recording_description(file_));
}

TEST_F(Recording_descriptions, that_are_damaged_get_one_line) {
    std::string const start = file_.string() + ".json";
    std::string const remedy =
        "; restore it, or move it away and describe the samples with --pixel-format, --width and "
        "--height";
    auto const line = [&](std::string const& what) { return start + what + remedy; };
    EXPECT_EQ(
        refusal_with("\"version\": 1", "\"version\": 2"),
        line(", version: is 2, of a newer program than this one"));
    EXPECT_EQ(refusal_with("Mono12p", "Mono13"), line(", pixel_format: is none that is read"));
    EXPECT_EQ(refusal_with("\"Mono12p\"", "12"), line(", pixel_format: is no text"));
    std::string const side = ": is no whole number from 1 to 1073741824";
    EXPECT_EQ(refusal_with("\"width\": 4", "\"width\": 1e300"), line(", width" + side));
    EXPECT_EQ(refusal_with("\"width\": 4", "\"width\": 0"), line(", width" + side));
    EXPECT_EQ(refusal_with("\"width\": 4", "\"width\": -4"), line(", width" + side));
    EXPECT_EQ(refusal_with("\"width\": 4", "\"width\": null"), line(", width: is missing"));
    EXPECT_EQ(
        refusal_with("\"width\": 4", "\"width\": 1e999"), line(": a number in it is too large"));
    EXPECT_EQ(
        refusal_with("\"width\": 4", "\"width\": 1073741824"),
        line(", width: gives frames of more than 2^30 pixels"));
    EXPECT_EQ(
        refusal_with("\"width\": 4", "\"width\": 4, \"width\": 4"),
        line(", width: stands there twice"));
    EXPECT_EQ(
        refusal_with("45,90,0,135", "1,2,3,4"),
        line(", layout: is no layout of a mosaic, such as 90,45,135,0"));
    EXPECT_EQ(refusal_with("\"gain\": 0.0", "\"gain\": []"), line(", settings/gain: is no number"));
    EXPECT_EQ(
        refusal_with("\"column\": 3", "\"column\": {}"),
        line(", settings/region/column: is no whole number from 0 to 1073741824"));
    EXPECT_EQ(
        refusal_with("\"lost\": 2", "\"lost\": \"2\""),
        line(", counts/lost: is no whole number from 0 to 18446744073709551615"));
    EXPECT_EQ(
        refusal_with("{\n    \"id\"", "0, \"x\": {\n    \"id\""), line(", camera: is no object"));
    EXPECT_EQ(
        refusal_with("[65535, 1", "[65535"),
        line(", frame_number: is no list of 3 whole numbers, one for each frame"));
    EXPECT_EQ(
        refusal_with("[65535, 1", "[65535, 0.5"),
        line(", frame_number: is no list of 3 whole numbers, one for each frame"));
    EXPECT_EQ(refusal_with("\"Model\"", "\"\xff\""), line(", line 12: this is no valid JSON"));
    EXPECT_EQ(
        refusal_with("\"Model\"", std::string(100000, '[')),
        line(": values are nested too deeply"));
}

TEST_F(Recording_descriptions, that_would_be_too_large_leave_out_what_is_of_each_frame) {
    std::string const whole = recording_description_text(described());
    EXPECT_EQ(recording_description_text(described(), whole.size()), whole);
    std::string const text = recording_description_text(described(), whole.size() - 1);
    auto without = described();
    without.captures.clear();
    EXPECT_EQ(text, recording_description_text(without));
    EXPECT_EQ(recording_description_text(described(), 0), text);
    write(text);
    EXPECT_EQ(open_frames(file_)->count(), 3U);
    EXPECT_FALSE(open_frames(file_)->place(0).capture);
}

TEST_F(Recording_descriptions, of_endless_recordings_are_refused) {
    std::string const told = refusal_with("\"frames\": 3", "\"frames\": 18446744073709551615");
    EXPECT_NE(told.find("frame_number: is no list of 18446744073709551615"), std::string::npos);
    auto text = recording_description_text(described());
    text = text.substr(0, text.find(",\n  \"frame_number\"")) + "}";
    text.replace(text.find("\"frames\": 3"), 11, "\"frames\": 18446744073709551615");
    write(text);
    EXPECT_EQ(open_frames(file_)->count(), 3U);
}

} // namespace
