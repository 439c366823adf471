#include "veldrane_mrv/polarization/recording_description.hpp"

#include "description_format.hpp"
#include "source_kind.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/regular_files.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <limits>
#include <set>
#include <system_error>
#include <utility>

namespace veldrane_mrv::polarization {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

using recordings::description_mark;
using recordings::description_version;

// Deeper texts could exhaust the stack; an object finds its keys one by one.
constexpr int deepest_level = 8;
constexpr std::size_t most_keys = 1000;

constexpr char const* remedy =
    "restore it, or move it away and describe the samples with --pixel-format, --width and "
    "--height";

[[noreturn]] void refuse(fs::path const& file, std::string const& key, std::string const& problem) {
    throw File_failure(
        key.empty() ? file.string() : file.string() + ", " + key, problem + "; " + remedy);
}

struct Excess {
    std::string key;
    char const* problem;
};

// What the parser itself lets pass.
class Strictness {
public:
    bool operator()(int depth, Json::parse_event_t event, Json const& parsed) {
        using Event = Json::parse_event_t;
        if (depth > deepest_level) {
            throw Excess{"", "values are nested too deeply"};
        }
        if (event == Event::object_start) {
            keys_.emplace_back();
        } else if (event == Event::object_end) {
            keys_.pop_back();
        } else if (event == Event::key) {
            std::string const key = parsed.get<std::string>();
            if (!keys_.back().insert(key).second) {
                throw Excess{key, "stands there twice"};
            }
            if (++key_count_ > most_keys) {
                throw Excess{"", "has more than 1000 keys"};
            }
        }
        return true;
    }

private:
    std::vector<std::set<std::string>> keys_;
    std::size_t key_count_ = 0;
};

Json parsed(fs::path const& file, std::string const& text) {
    Strictness strictness;
    try {
        return Json::parse(text, [&strictness](int depth, auto event, Json const& value) {
            return strictness(depth, event, value);
        });
    } catch (Excess const& excess) {
        refuse(file, excess.key, excess.problem);
    } catch (Json::parse_error const& error) {
        auto const end = std::min(error.byte == 0 ? 0 : error.byte - 1, text.size());
        auto const line = 1 + std::count(text.begin(), text.begin() + static_cast<long>(end), '\n');
        refuse(file, "line " + std::to_string(line), "this is no valid JSON");
    } catch (Json::out_of_range const&) {
        refuse(file, "", "a number in it is too large");
    }
}

/// An object of the file, and the way to it.
class Fields {
public:
    Fields(fs::path const& file, std::string path, Json const& object)
        : file_{file}, path_{std::move(path)}, object_{object} {}

    /// Null stands for what is not there.
    Json const* find(std::string const& key) const {
        auto const found = object_.find(key);
        return found == object_.end() || found->is_null() ? nullptr : &*found;
    }

    [[noreturn]] void refuse_key(std::string const& key, std::string const& problem) const {
        refuse(file_, path_ + key, problem);
    }

    std::optional<std::uint64_t> whole(
        std::string const& key, std::uint64_t least = 0,
        std::uint64_t largest = std::numeric_limits<std::uint64_t>::max()) const {
        Json const* const value = find(key);
        if (value == nullptr) {
            return std::nullopt;
        }
        if (!value->is_number_unsigned() || value->get<std::uint64_t>() < least ||
            value->get<std::uint64_t>() > largest) {
            refuse_key(
                key, "is no whole number from " + std::to_string(least) + " to " +
                         std::to_string(largest));
        }
        return value->get<std::uint64_t>();
    }

    std::optional<double> number(std::string const& key) const {
        Json const* const value = find(key);
        if (value == nullptr) {
            return std::nullopt;
        }
        if (!value->is_number() || !std::isfinite(value->get<double>())) {
            refuse_key(key, "is no number");
        }
        return value->get<double>();
    }

    std::string text(std::string const& key) const {
        Json const* const value = find(key);
        if (value == nullptr) {
            return {};
        }
        if (!value->is_string()) {
            refuse_key(key, "is no text");
        }
        return value->get<std::string>();
    }

    /// Empty if it is not there.
    Fields object(std::string const& key) const {
        static Json const nothing = Json::object();
        Json const* const value = find(key);
        if (value != nullptr && !value->is_object()) {
            refuse_key(key, "is no object");
        }
        return {file_, path_ + key + "/", value == nullptr ? nothing : *value};
    }

    template <class Value>
    Value required(std::string const& key, std::optional<Value> value) const {
        if (!value) {
            refuse_key(key, "is missing");
        }
        return *value;
    }

    Json const& json() const { return object_; }

private:
    fs::path const& file_;
    std::string path_;
    Json const& object_;
};

Pixel_format format_of(Fields const& fields) {
    try {
        return parse_pixel_format(fields.text("pixel_format"));
    } catch (Argument_error const&) {
        fields.refuse_key("pixel_format", "is none that is read");
    }
}

std::optional<Mosaic> mosaic_of(Fields const& fields) {
    if (fields.find("layout") == nullptr) {
        return std::nullopt;
    }
    try {
        return Mosaic::parse(fields.text("layout"));
    } catch (Argument_error const&) {
        fields.refuse_key("layout", "is no layout of a mosaic, such as 90,45,135,0");
    }
}

Recorded_settings settings_of(Fields const& fields) {
    Recorded_settings settings{
        fields.number("exposure_us"), fields.number("gain"), fields.number("frame_rate"), {}};
    if (fields.find("region") != nullptr) {
        Fields const region = fields.object("region");
        auto const side = [&region](char const* key) {
            return static_cast<std::size_t>(
                region.required(key, region.whole(key, 0, recordings::largest_frame)));
        };
        settings.region = {side("column"), side("row"), side("width"), side("height")};
    }
    return settings;
}

Receiving_counts counts_of(Fields const& fields) {
    Receiving_counts counts{
        fields.whole("received").value_or(0),
        fields.whole("lost").value_or(0),
        fields.whole("dropped").value_or(0),
        {}};
    Fields const incomplete = fields.object("incomplete");
    for (auto const& [cause, ignored] : incomplete.json().items()) {
        counts.incomplete[cause] = incomplete.whole(cause).value_or(0);
    }
    return counts;
}

// An array of `count` numbers; null if it is not there.
Json const* numbers_of(Fields const& fields, char const* key, std::size_t count) {
    Json const* const numbers = fields.find(key);
    if (numbers == nullptr) {
        return nullptr;
    }
    bool const is_good = numbers->is_array() && numbers->size() == count &&
                         std::all_of(numbers->begin(), numbers->end(), [](Json const& number) {
                             return number.is_number_unsigned();
                         });
    if (!is_good) {
        fields.refuse_key(
            key, "is no list of " + std::to_string(count) + " whole numbers, one for each frame");
    }
    return numbers;
}

std::vector<Capture> captures_of(Fields const& fields, std::size_t frames) {
    Json const* const number = numbers_of(fields, "frame_number", frames);
    Json const* const camera_time = numbers_of(fields, "camera_time_ns", frames);
    Json const* const host_time = numbers_of(fields, "host_time_ns", frames);
    std::vector<Capture> captures;
    if (number == nullptr || camera_time == nullptr || host_time == nullptr) {
        return captures;
    }
    captures.reserve(frames);
    for (std::size_t index = 0; index < frames; ++index) {
        captures.push_back(
            {(*number)[index].get<std::uint64_t>(), (*camera_time)[index].get<std::uint64_t>(),
             (*host_time)[index].get<std::uint64_t>()});
    }
    return captures;
}

Recording_description description_of(Fields const& fields) {
    std::uint64_t const its_version = fields.required("version", fields.whole("version", 1));
    if (its_version > description_version) {
        fields.refuse_key(
            "version", "is " + std::to_string(its_version) + ", of a newer program than this one");
    }
    auto const side = [&fields](char const* key) {
        return static_cast<std::size_t>(
            fields.required(key, fields.whole(key, 1, recordings::largest_frame)));
    };
    Recording_description description;
    description.format = format_of(fields);
    description.size = {side("width"), side("height")};
    if (description.size.width > recordings::largest_frame / description.size.height) {
        fields.refuse_key("width", "gives frames of more than 2^30 pixels");
    }
    description.frames = fields.whole("frames");
    description.mosaic = mosaic_of(fields);
    Fields const camera = fields.object("camera");
    description.camera = {
        camera.text("id"), camera.text("vendor"), camera.text("model"), camera.text("serial")};
    description.settings = settings_of(fields.object("settings"));
    description.counts = counts_of(fields.object("counts"));
    description.begin = fields.text("begin");
    description.software = fields.text("software");
    if (description.frames) {
        description.captures = captures_of(fields, *description.frames);
    }
    return description;
}

} // namespace

Raw_layout Recording_description::layout() const {
    return make_raw_layout(std::string(name_of(format)), size.width, size.height, 0, 0);
}

fs::path description_file_of(fs::path const& recording) {
    fs::path file = recording;
    return file += ".json";
}

std::optional<Recording_description> read_recording_description(fs::path const& recording) {
    fs::path const file = description_file_of(recording);
    regular_files::Input const input = regular_files::open_to_read(file);
    if (input.problem == std::generic_category().message(EACCES)) {
        refuse(file, "", "cannot be read: " + input.problem);
    }
    if (!input.problem.empty()) {
        return std::nullopt;
    }
    std::string text;
    if (int const error = regular_files::read_all(input.descriptor, largest_description, text)) {
        refuse(file, "", "cannot be read: " + std::generic_category().message(error));
    }
    if (text.find(description_mark) == std::string::npos) {
        return std::nullopt;
    }
    if (text.size() > largest_description) {
        refuse(file, "", "is larger than 512 MB");
    }
    Json const json = parsed(file, text);
    auto const format = json.is_object() ? json.find("format") : json.end();
    if (format == json.end() || *format != Json(description_mark)) {
        return std::nullopt;
    }
    return description_of({file, "", json});
}

} // namespace veldrane_mrv::polarization
