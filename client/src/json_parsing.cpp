#include "json_parsing.hpp"

#include "veldrane_mrv/polarization/calibration_file.hpp"

#include <algorithm>
#include <optional>
#include <set>
#include <vector>

namespace veldrane_mrv::polarization {
namespace {

// A calibration has three levels; deeper texts could exhaust the stack.
constexpr int deepest_level = 16;

// A calibration has fewer than a hundred; an object finds its keys one by one.
constexpr std::size_t most_keys = 1000;

struct Excess {
    char const* problem;
};

// Where the parser is: what it throws tells no key, and its tree has lost a key's first value.
class Place {
public:
    void follow(int depth, Json::parse_event_t event, Json const& parsed) {
        using Event = Json::parse_event_t;
        if (event == Event::key) {
            enter_key(parsed.get<std::string>());
        }
        if (depth > deepest_level) {
            throw Excess{"values are nested too deeply"};
        }
        if (event == Event::object_start || event == Event::array_start) {
            levels_.push_back({event == Event::array_start, 0, {}, {}});
            return;
        }
        if (event == Event::object_end || event == Event::array_end) {
            levels_.pop_back();
        }
        if (event != Event::key && !levels_.empty()) {
            ++levels_.back().index;
        }
    }

    std::string path() const {
        std::string path;
        for (Level const& level : levels_) {
            path.append(path.empty() ? "" : "/")
                .append(level.is_array ? std::to_string(level.index) : level.key);
        }
        return path;
    }

    /// The path of the first key that its object has had before.
    std::optional<std::string> const& repeated() const { return repeated_; }

private:
    struct Level {
        bool is_array;
        std::size_t index;
        std::string key;
        std::set<std::string> keys;
    };

    void enter_key(std::string const& key) {
        Level& level = levels_.back();
        level.key = key;
        if (!level.keys.insert(key).second && !repeated_) {
            repeated_ = path();
        }
        if (++key_count_ > most_keys) {
            throw Excess{"there are more than 1000 keys, which no calibration has"};
        }
    }

    std::vector<Level> levels_;
    std::optional<std::string> repeated_;
    std::size_t key_count_ = 0;
};

// Of a byte counted from 1, or 0 for none.
std::size_t line_at(std::string const& text, std::size_t byte) {
    auto const before = std::min(byte == 0 ? 0 : byte - 1, text.size());
    auto const end = text.begin() + static_cast<std::ptrdiff_t>(before);
    return 1 + static_cast<std::size_t>(std::count(text.begin(), end, '\n'));
}

} // namespace

Json parse_json(std::string const& text, std::filesystem::path const& name) {
    Place place;
    auto const follow = [&place](int depth, Json::parse_event_t event, Json const& parsed) {
        place.follow(depth, event, parsed);
        return true;
    };
    try {
        Json json = Json::parse(text, follow);
        if (place.repeated()) {
            throw File_error(name, 0, *place.repeated(), "this key stands there twice", damaged);
        }
        return json;
    } catch (Json::parse_error const& error) {
        throw File_error(name, line_at(text, error.byte), "", "this is no valid JSON", damaged);
    } catch (Json::out_of_range const&) {
        throw File_error(name, 0, place.path(), "the number is too large", damaged);
    } catch (Excess const& excess) {
        throw File_error(name, 0, place.path(), excess.problem, damaged);
    }
}

} // namespace veldrane_mrv::polarization
