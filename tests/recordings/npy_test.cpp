// Arrays of NumPy as frames: every version of the format, both widths and orders of bytes, and one
// line for everything else.
#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/frame_list.hpp"

#include "test_files.hpp"

#include <gtest/gtest.h>
#include <memory>
#include <numeric>

namespace {

using namespace veldrane_mrv::polarization;
using Bytes = std::vector<std::uint8_t>;
using Samples = std::vector<std::uint16_t>;

std::string described(std::string const& type, std::string const& shape) {
    return "{'descr': '" + type + "', 'fortran_order': False, 'shape': " + shape + ", }\n";
}

std::string head(std::string const& header, char version = 1) {
    std::string text = "\x93NUMPY";
    text += {version, '\0', static_cast<char>(header.size() & 255)};
    text += static_cast<char>(header.size() >> 8 & 255);
    if (version > 1) {
        text += {'\0', '\0'};
    }
    return text + header;
}

class Npy_files : public testing::Test {
protected:
    std::unique_ptr<Frame_source> opened(std::string const& head, std::size_t sample_bytes) {
        Bytes bytes(head.begin(), head.end());
        for (std::size_t place = 0; place < sample_bytes; ++place) {
            bytes.push_back(static_cast<std::uint8_t>(place * 7 + 1));
        }
        test_files::write(file_, bytes);
        return open_frames(file_);
    }

    std::string refusal(std::string const& head, std::size_t sample_bytes = 0) {
        try {
            opened(head, sample_bytes);
        } catch (File_failure const& failure) {
            return failure.what();
        }
        return "not refused";
    }

    test_files::Folder folder_;
    std::filesystem::path file_ = folder_ / "frames.npy";
};

Samples read(Frame_source& source, std::size_t number) {
    Frame_slot slot;
    source.read(number, slot);
    EXPECT_EQ(slot.frame().samples.size(), slot.frame().width * slot.frame().height);
    return slot.frame().samples;
}

TEST_F(Npy_files, every_version_and_type_gives_the_samples_as_they_are) {
    for (char const version : {'\1', '\2', '\3'}) {
        auto const narrow = opened(head(described("|u1", "(2, 2, 3)"), version), 12);
        ASSERT_EQ(narrow->count(), 2U);
        EXPECT_EQ(narrow->shape()->sample_bits, 8U);
        EXPECT_EQ(narrow->shape()->width, 3U);
        EXPECT_EQ(read(*narrow, 1), (Samples{43, 50, 57, 64, 71, 78}));
        EXPECT_EQ(narrow->place(1).stem(), "frames_000001");
        auto const low_first = opened(head(described("<u2", "(2, 2, 2)"), version), 16);
        EXPECT_EQ(low_first->shape()->sample_bits, 16U);
        EXPECT_EQ(
            read(*low_first, 1),
            (Samples{64 << 8 | 57, 78 << 8 | 71, 92 << 8 | 85, 106 << 8 | 99}));
        auto const high_first = opened(head(described(">u2", "(1, 2)"), version), 4);
        ASSERT_EQ(high_first->count(), 1U);
        EXPECT_EQ(read(*high_first, 0), (Samples{1 << 8 | 8, 15 << 8 | 22}));
        EXPECT_EQ(high_first->place(0).stem(), "frames");
    }
}

TEST_F(Npy_files, keys_stand_in_any_order_and_notation) {
    auto const source =
        opened(head("{ \"shape\":(1,2 ,1,) , 'fortran_order' :False,\n 'descr':\"|u1\"}"), 2);
    EXPECT_EQ(read(*source, 0), (Samples{1, 8}));
}

TEST_F(Npy_files, shapes_may_be_written_by_python_2) {
    auto const source = opened(head(described("|u1", "(2L, 1, 2L)")), 4);
    ASSERT_EQ(source->count(), 2U);
    EXPECT_EQ(read(*source, 1), (Samples{15, 22}));
}

TEST_F(Npy_files, arrays_that_are_no_frames_get_one_line) {
    auto const expect = [](std::string const& line, std::string const& words) {
        EXPECT_NE(line.find(words), std::string::npos) << line;
        EXPECT_LT(line.size(), 300U) << line;
    };
    for (char const* const type : {"<f4", "<i2", "|i1", "<u4", "=u2", "|b1", "u1", ""}) {
        expect(refusal(head(described(type, "(2, 2)")), 16), "save it as uint8 or uint16");
    }
    expect(refusal(head(described("<f4", "(2, 2)"))), "type '<f4'");
    expect(
        refusal(head("{'descr': [('a]', '<u2'), ('b', [('c', '|u1')])], 'fortran_order': False, "
                     "'shape': (2, 2)}")),
        "a structured type");
    expect(refusal(head(described(std::string(900, 'u'), "(2, 2)"))), "'uuuuuuuuuuuu...'");
    expect(
        refusal(head("{'descr': '|u1', 'fortran_order': True, 'shape': (2, 2)}"), 4),
        "numpy.ascontiguousarray");
    for (char const* const shape : {"()", "(4,)", "(1, 1, 2, 2)", "(1, 1, 1, 1, 1, 1, 1, 4)"}) {
        expect(
            refusal(head(described("|u1", shape)), 4),
            "save it as (height, width) or (frames, height, width)");
    }
    expect(refusal(head(described("|u1", "(0, 2, 2)"))), "(0, 2, 2), in which there is no frame");
    expect(refusal(head(described("|u1", "(2, 0)"))), "no frame");
    expect(refusal(head(described("<u2", "(3, 2, 2)")), 23), "too few for the shape");
    expect(refusal(head(described("<u2", "(3, 2, 2)")), 25), "1 bytes behind its array");
    expect(refusal(head(described("|u1", "(1073741825, 1)"))), "more than 2^30 pixels");
    expect(
        refusal(head(described("<u2", "(18446744073709551615, 32768, 32768)"))),
        "too few for the shape");
}

TEST_F(Npy_files, damaged_headers_are_told_from_others) {
    std::string const good = described("|u1", "(2, 2)");
    std::vector<std::string> heads = {
        head(good, 4), head(good, 0), head(std::string(10001 - good.size(), ' ') + good)};
    for (std::size_t size = 6; size < head(good).size() - 2; ++size) {
        heads.push_back(head(good).substr(0, size));
    }
    for (std::string const text :
         {"{'descr': '|u1', 'shape': (2, 2)}",
          "{'descr': '|u1', 'descr': '|u1', 'fortran_order': False, 'shape': (2, 2)}",
          "{'descr': '|u1', 'fortran_order': 0, 'shape': (2, 2)}",
          "{'descr': '|u1', 'fortran_order': False, 'shape': (2 2)}",
          "{'descr': '|u1', 'fortran_order': False, 'shape': (-2, 2)}",
          "{'descr': '|u1', 'fortran_order': False, 'shape': (2LL, 2)}",
          "{'descr': '|u1', 'fortran_order': False, 'shape': (L, 2)}",
          "{'descr': '|u1', 'fortran_order': False, 'shape': (99999999999999999999, 2)}",
          "{'descr': '|u1', 'fortran_order': False, 'shape': (2, 2)} x",
          "{'descr': '|u1', 'fortran_order': False 'shape': (2, 2)}",
          "{'descr': [[, 'fortran_order': False, 'shape': (2, 2)}",
          "{'descr': '|u1', 'fortran_order': False, 'shape': (2, 2), 'more': 1}", "", "{"}) {
        heads.push_back(head(text));
    }
    for (std::string const& text : heads) {
        std::string const line = refusal(text, 4);
        EXPECT_NE(line.find("damaged or cut short"), std::string::npos) << text << ": " << line;
    }
}

TEST_F(Npy_files, one_that_becomes_shorter_is_a_line_and_no_signal) {
    auto const source = opened(head(described("<u2", "(2, 64, 64)")), 2 * 8192);
    std::filesystem::resize_file(file_, std::filesystem::file_size(file_) - 1);
    Frame_slot slot;
    source->read(0, slot);
    EXPECT_THROW(source->read(1, slot), File_failure);
}

TEST_F(Npy_files, folders_hold_them_and_maps_of_calibrations_are_passed_over) {
    opened(head(described("|u1", "(3, 2, 2)")), 12);
    std::filesystem::copy_file(file_, folder_ / "camera.maps-0123456789abcdef.npy");
    std::filesystem::copy_file(file_, folder_ / "camera.maps-0123456789abcdeg.npy");
    Found_frames const found = find_frames({folder_.path().string()}, std::nullopt);
    ASSERT_EQ(found.frames.size(), 6U);
    EXPECT_EQ(found.frames[0].file.filename(), "camera.maps-0123456789abcdeg.npy");
    EXPECT_EQ(found.frames[3].file.filename(), "frames.npy");
}

TEST_F(Npy_files, a_layout_is_for_other_files_unless_it_leaves_the_header_out) {
    std::string const start = head(described("|u1", "(2, 2)"));
    opened(start, 4);
    EXPECT_THROW(open_frames(file_, make_raw_layout("Mono8", 1, 1, 0, 0)), Argument_error);
    auto const bare = open_frames(file_, make_raw_layout("Mono8", 2, 2, start.size(), 0));
    EXPECT_EQ(read(*bare, 0), (Samples{1, 8, 15, 22}));
}

} // namespace
