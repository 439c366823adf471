// Arrays of NumPy (its NEP 1: a magic, a version, the length of a header, and the header, which is
// a dictionary as Python writes it). The header tells as much as a user tells of bare samples.
#include "source_kind.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <vector>

namespace veldrane_mrv::polarization::recordings {
namespace {

constexpr std::array<std::string_view, 1> endings = {".npy"};
constexpr char const* damaged_array = "damaged or cut short; save or copy it again";

bool begins_like_npy(std::string_view start) {
    return start.starts_with(array_magic);
}

/// Where the samples begin.
struct Header_place {
    std::size_t begin;
    std::size_t end;
};

// Version 1 tells the length in two bytes, the later ones in four; version 3 allows other letters.
std::optional<Header_place> header_place(std::string_view start) {
    constexpr std::size_t longest = 10000; // as NumPy's own reader has it
    std::size_t const place_of_length = array_magic.size() + 2;
    if (start.size() < place_of_length + 4) {
        return std::nullopt;
    }
    char const version = start[array_magic.size()];
    if (version < 1 || version > 3 || start[array_magic.size() + 1] != 0) {
        return std::nullopt;
    }
    std::size_t const begin = place_of_length + (version == 1 ? 2 : 4);
    std::size_t length = 0;
    for (std::size_t place = begin; place-- > place_of_length;) {
        length = length << 8 | static_cast<std::uint8_t>(start[place]);
    }
    return length <= longest ? std::optional(Header_place{begin, begin + length}) : std::nullopt;
}

struct Header {
    std::optional<std::string_view> type; // empty text for a structured one
    std::optional<bool> is_by_columns;
    std::optional<std::vector<std::uint64_t>> shape;
};

/// Takes from the front of `text` what of Python's notation a header may hold.
class Header_reader {
public:
    explicit Header_reader(std::string_view text) : rest_{text} {}

    /// Nothing if anything is missing, twice there, or of another kind.
    std::optional<Header> operator()() {
        Header header;
        bool is_good = take("{");
        while (is_good && !take("}")) {
            is_good = take_entry(header) && (take(",") || is_next('}'));
        }
        skip_blanks();
        bool const is_whole =
            is_good && rest_.empty() && header.type && header.is_by_columns && header.shape;
        return is_whole ? std::optional(header) : std::nullopt;
    }

private:
    bool take_entry(Header& header) {
        auto const key = take_text();
        if (!key || !take(":")) {
            return false;
        }
        if (*key == "descr" && !header.type) {
            header.type = is_next('[') ? take_list() : take_text();
            return header.type.has_value();
        }
        if (*key == "fortran_order" && !header.is_by_columns) {
            header.is_by_columns = take("True");
            return *header.is_by_columns || take("False");
        }
        if (*key == "shape" && !header.shape) {
            header.shape = take_numbers();
            return header.shape.has_value();
        }
        return false;
    }

    void skip_blanks() {
        rest_.remove_prefix(std::min(rest_.find_first_not_of(" \t\r\n"), rest_.size()));
    }

    bool is_next(char letter) {
        skip_blanks();
        return rest_.starts_with(letter);
    }

    bool take(std::string_view word) {
        skip_blanks();
        bool const is_there = rest_.starts_with(word);
        rest_.remove_prefix(is_there ? word.size() : 0);
        return is_there;
    }

    std::optional<std::string_view> take_text() {
        if (!is_next('\'') && !is_next('"')) {
            return std::nullopt;
        }
        std::size_t const end = rest_.find(rest_.front(), 1);
        if (end == std::string_view::npos) {
            return std::nullopt;
        }
        std::string_view const text = rest_.substr(1, end - 1);
        rest_.remove_prefix(end + 1);
        return text;
    }

    // Nothing in it is wanted but its end.
    std::optional<std::string_view> take_list() {
        std::size_t depth = 0;
        do {
            if (is_next('\'') || is_next('"')) {
                if (!take_text()) {
                    return std::nullopt;
                }
                continue;
            }
            if (rest_.empty()) {
                return std::nullopt;
            }
            if (rest_.front() == '[') {
                ++depth;
            } else if (rest_.front() == ']') {
                --depth;
            }
            rest_.remove_prefix(1);
        } while (depth > 0);
        return std::string_view();
    }

    std::optional<std::vector<std::uint64_t>> take_numbers() {
        std::vector<std::uint64_t> numbers;
        bool is_good = take("(");
        while (is_good && !take(")")) {
            skip_blanks();
            auto const [end, error] =
                std::from_chars(rest_.data(), rest_.data() + rest_.size(), numbers.emplace_back());
            rest_.remove_prefix(static_cast<std::size_t>(end - rest_.data()));
            take("L"); // of Python 2
            is_good = error == std::errc() && (take(",") || is_next(')'));
        }
        return is_good ? std::optional(numbers) : std::nullopt;
    }

    std::string_view rest_;
};

std::string described(std::vector<std::uint64_t> const& shape) {
    constexpr std::size_t most_shown = 6;
    std::string text = "(";
    for (std::size_t place = 0; place < std::min(shape.size(), most_shown); ++place) {
        text.append(place == 0 ? "" : ", ").append(std::to_string(shape[place]));
    }
    return text + (shape.size() > most_shown ? ", ...)" : shape.size() == 1 ? ",)" : ")");
}

std::string shown_type(std::string_view type) {
    constexpr std::size_t most_shown = 12;
    return type.empty() ? "a structured type"
                        : "type '" + std::string(type.substr(0, most_shown)) +
                              (type.size() > most_shown ? "...'" : "'");
}

/// What keeps an array from being frames; empty if nothing.
std::string array_problem(Header const& header) {
    constexpr std::array<std::string_view, 3> types = {"|u1", "<u2", ">u2"};
    if (std::find(types.begin(), types.end(), *header.type) == types.end()) {
        return "holds numbers of " + shown_type(*header.type) + "; save it as uint8 or uint16";
    }
    if (*header.is_by_columns) {
        return "lies column by column (fortran_order); save it row by row, as "
               "numpy.ascontiguousarray gives it";
    }
    auto const& shape = *header.shape;
    bool const is_empty = std::find(shape.begin(), shape.end(), 0U) != shape.end();
    if (is_empty || shape.size() < 2 || shape.size() > 3) {
        return "has the shape " + described(shape) +
               (is_empty ? ", in which there is no frame" : "") +
               "; save it as (height, width) or (frames, height, width)";
    }
    return size_problem(shape[shape.size() - 1], shape[shape.size() - 2]);
}

/// @throws File_failure unless the samples are all there, and nothing else is
void check_size(
    Opened_file const& file, Header const& header, Raw_layout const& layout, std::size_t count) {
    std::uint64_t const samples = file.size() - std::min(file.size(), layout.header_bytes);
    std::uint64_t const frame_bytes = layout.frame_bytes();
    if (count > samples / frame_bytes) {
        throw File_failure(
            file.name(), "has " + std::to_string(file.size()) +
                             " bytes, too few for the shape that it tells, " +
                             described(*header.shape) + "; save or copy it again");
    }
    if (samples != count * frame_bytes) {
        throw File_failure(
            file.name(), "has " + std::to_string(samples - count * frame_bytes) +
                             " bytes behind its array; save each array in a file of its own");
    }
}

std::unique_ptr<Frame_source> open_npy(Opened_file file) {
    std::optional<Header_place> const place = header_place(file.start());
    std::string text;
    if (place) {
        file.read(0, place->end, text);
    }
    auto const header = place && text.size() == place->end
                            ? Header_reader(std::string_view(text).substr(place->begin))()
                            : std::nullopt;
    if (!header) {
        throw File_failure(file.name(), damaged_array);
    }
    if (std::string const problem = array_problem(*header); !problem.empty()) {
        throw File_failure(file.name(), problem);
    }
    auto const& shape = *header->shape;
    bool const is_narrow = *header->type == "|u1";
    std::size_t const width = shape[shape.size() - 1];
    Raw_layout const layout{
        is_narrow ? Pixel_format::mono8 : Pixel_format::mono16, width, shape[shape.size() - 2],
        place->end, is_narrow ? width : 2 * width};
    std::size_t const count = shape.size() == 3 ? shape.front() : 1;
    check_size(file, *header, layout, count);
    return stored_frames(
        std::move(file), {layout, is_narrow ? 8U : 16U, *header->type == ">u2"}, count);
}

} // namespace

extern Source_kind const npy;
constinit Source_kind const npy{endings, false, begins_like_npy, open_npy};

} // namespace veldrane_mrv::polarization::recordings
