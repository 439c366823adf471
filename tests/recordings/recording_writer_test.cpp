// Frames into a recording: whole at every moment, under its name when it is finished, and never in
// the place of something else.
#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/recording_writer.hpp"

#include "test_files.hpp"

#include <csignal>
#include <gtest/gtest.h>
#include <optional>
#include <sys/resource.h>
#include <sys/stat.h>

namespace {

using namespace veldrane_mrv::polarization;
namespace fs = std::filesystem;

Recording_description described(Size size = {4, 2}) {
    Recording_description description;
    description.format = Pixel_format::mono8;
    description.size = size;
    description.mosaic = Mosaic::from_phase(3);
    return description;
}

std::vector<std::byte> filled(int value, std::size_t bytes = 8) {
    return std::vector<std::byte>(bytes, static_cast<std::byte>(value));
}

std::size_t files_in(fs::path const& folder) {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

class Recording_writers : public testing::Test {
protected:
    std::string refusal(Existing_files existing = Existing_files::keep) const {
        try {
            Recording_writer(file_, described(), existing);
        } catch (File_failure const& failure) {
            return failure.what();
        }
        return "not refused";
    }

    void record(int value, Existing_files existing = Existing_files::keep) const {
        Recording_writer writer(file_, described(), existing);
        writer.append(filled(value), {});
        writer.finish({});
    }

    std::uint16_t first_sample() const {
        Frame_slot slot;
        open_frames(file_)->read(0, slot);
        return slot.frame().samples[0];
    }

    test_files::Folder folder_;
    fs::path file_ = folder_ / "run.raw";
    fs::path part_ = folder_ / "run.raw.part";
    fs::path description_part_ = folder_ / "run.raw.json.part";
};

TEST_F(Recording_writers, write_what_open_frames_reads) {
    Recording_writer writer(file_, described());
    for (int number = 0; number < 3; ++number) {
        auto const told = static_cast<std::uint64_t>(number);
        writer.append(filled(number), {told + 1, told + 10, told + 100});
    }
    EXPECT_EQ(writer.frames(), 3U);
    EXPECT_FALSE(fs::exists(file_));
    EXPECT_FALSE(fs::exists(description_file_of(file_)));
    writer.finish({3, 1, 2, {{"timeout", 4}}});
    auto const source = open_frames(file_);
    EXPECT_EQ(source->count(), 3U);
    Frame_slot slot;
    source->read(2, slot);
    EXPECT_EQ(slot.frame().samples, std::vector<std::uint16_t>(8, 2));
    EXPECT_EQ(slot.place().capture, (Capture{3, 12, 102}));
    auto const description = read_recording_description(file_);
    EXPECT_EQ(description->counts, (Receiving_counts{3, 1, 2, {{"timeout", 4}}}));
    EXPECT_EQ(description->mosaic, Mosaic::from_phase(3));
    EXPECT_EQ(description->begin.size(), 20U);
    EXPECT_EQ(description->software.find("veldrane-polarize "), 0U);
    EXPECT_EQ(files_in(folder_.path()), 2U);
}

TEST_F(Recording_writers, leave_nothing_without_a_frame) {
    std::optional<Recording_writer> writer;
    writer.emplace(file_, described());
    writer->finish({});
    writer.reset();
    EXPECT_EQ(files_in(folder_.path()), 0U);
    writer.emplace(file_, described());
    writer.reset();
    EXPECT_EQ(files_in(folder_.path()), 0U);
}

TEST_F(Recording_writers, that_never_finish_leave_what_can_be_read) {
    std::optional<Recording_writer> writer;
    writer.emplace(file_, described());
    writer->append(filled(7), {});
    writer.reset();
    fs::rename(part_, file_);
    fs::rename(description_part_, description_file_of(file_));
    EXPECT_EQ(first_sample(), 7);
    EXPECT_TRUE(open_frames(file_)->failures().empty());
}

TEST_F(Recording_writers, refuse_what_is_there) {
    record(1);
    EXPECT_EQ(
        refusal(), file_.string() +
                       ": exists already; give --overwrite to replace it, or choose another place");
    fs::remove(file_);
    EXPECT_EQ(
        refusal(),
        file_.string() +
            ".json: exists already; give --overwrite to replace it, or choose another place");
    fs::remove(description_file_of(file_));
    test_files::write(part_, std::vector<std::uint8_t>(3));
    EXPECT_EQ(
        refusal(), part_.string() + ": is a recording that was broken off or is under way; keep it "
                                    "under another name, or give --overwrite to replace it");
    EXPECT_EQ(files_in(folder_.path()), 1U);
    fs::remove(part_);
    test_files::write(description_part_, std::vector<std::uint8_t>(3));
    EXPECT_NE(refusal(), "not refused");
    EXPECT_EQ(files_in(folder_.path()), 1U);
    record(2, Existing_files::replace);
    EXPECT_EQ(first_sample(), 2);
    EXPECT_EQ(files_in(folder_.path()), 2U);
}

TEST_F(Recording_writers, leave_one_under_way_alone) {
    Recording_writer writer(file_, described());
    writer.append(filled(1), {});
    EXPECT_EQ(
        refusal(Existing_files::replace),
        part_.string() + ": is a recording under way; choose another name");
    writer.append(filled(2), {});
    writer.finish({});
    EXPECT_EQ(open_frames(file_)->count(), 2U);
    EXPECT_EQ(files_in(folder_.path()), 2U);
    record(3, Existing_files::replace); // the first is finished, though its writer lives
    EXPECT_EQ(first_sample(), 3);
}

TEST_F(Recording_writers, keep_an_older_one_until_they_finish) {
    record(1);
    Recording_writer writer(file_, described(), Existing_files::replace);
    writer.append(filled(2), {});
    EXPECT_EQ(first_sample(), 1);
    writer.finish({});
    EXPECT_EQ(first_sample(), 2);
}

TEST_F(Recording_writers, replace_no_pipe_and_no_link) {
    ASSERT_EQ(mkfifo(file_.c_str(), 0600), 0);
    EXPECT_NE(refusal(Existing_files::replace).find("it is no regular file"), std::string::npos);
    fs::remove(file_);
    fs::create_symlink("elsewhere", part_);
    EXPECT_NE(refusal(Existing_files::replace).find("it is a link"), std::string::npos);
    fs::remove(part_);
    file_ = folder_ / "missing" / "run.raw";
    EXPECT_NE(refusal().find("No such file or directory; choose"), std::string::npos);
}

TEST_F(Recording_writers, do_not_replace_what_came_meanwhile) {
    Recording_writer writer(file_, described());
    writer.append(filled(1), {});
    test_files::write(file_, std::vector<std::uint8_t>(3));
    EXPECT_THROW(writer.finish({}), File_failure);
    EXPECT_EQ(fs::file_size(file_), 3U);
    EXPECT_EQ(fs::file_size(part_), 8U);
}

TEST_F(Recording_writers, refuse_frames_of_another_size) {
    Recording_writer writer(file_, described());
    EXPECT_THROW(writer.append(filled(0, 7), {}), Argument_error);
}

// A file that may not grow stands for a disk that is full.
TEST_F(Recording_writers, keep_whole_frames_where_no_more_fits) {
    constexpr std::size_t frame = std::size_t{1} << 16;
    Recording_writer writer(file_, described({256, 256}));
    rlimit before = {};
    getrlimit(RLIMIT_FSIZE, &before);
    rlimit const limit{frame * 5 / 2, before.rlim_max};
    auto const handler = std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &limit);
    writer.append(filled(1, frame), {1, 1, 1});
    writer.append(filled(2, frame), {2, 2, 2});
    std::string line;
    try {
        writer.append(filled(3, frame), {3, 3, 3});
    } catch (File_failure const& failure) {
        line = failure.what();
    }
    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, handler);
    EXPECT_EQ(
        line, file_.string() + ": cannot be written: File too large; 2 frames are kept; make "
                               "room, or choose another place");
    EXPECT_EQ(fs::file_size(part_), 2 * frame);
    writer.append(filled(4, frame), {4, 4, 4}); // there is room again
    writer.finish({});
    auto const source = open_frames(file_);
    EXPECT_EQ(source->count(), 3U);
    Frame_slot slot;
    source->read(2, slot);
    EXPECT_EQ(slot.frame().samples[0], 4);
    EXPECT_EQ(slot.place().capture->frame_number, 4U);
}

} // namespace
