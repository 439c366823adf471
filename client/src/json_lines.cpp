#include "json_lines.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <set>

namespace veldrane_mrv::polarization {
namespace {

using Predicate = std::function<bool(Json_value const&)>;

// The parser passes over it too.
constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";

// Paths name keys as the parser's tree does, however the file spells them.
std::string unescaped(std::string_view key) {
    std::string const text{key};
    if (text.find('\\') == std::string::npos) {
        return text;
    }
    auto const decoded = nlohmann::json::parse('"' + text + '"', nullptr, false);
    return decoded.is_string() ? decoded.get<std::string>() : text;
}

class Scanner {
public:
    Scanner(std::string_view text, Predicate const& is_wanted)
        : text_{text}, is_wanted_{is_wanted}, at_{text.starts_with(byte_order_mark)
                                                      ? byte_order_mark.size()
                                                      : 0} {}

    Json_place search() {
        value(0, false, false);
        return std::move(place_);
    }

private:
    char next() {
        while (at_ < text_.size() && blank(text_[at_])) {
            line_ += text_[at_] == '\n' ? 1U : 0U;
            ++at_;
        }
        return at_ < text_.size() ? text_[at_] : '\0';
    }

    static bool blank(char character) {
        return character == ' ' || character == '\n' || character == '\r' || character == '\t';
    }

    // A scalar to its end, of everything else the first character.
    std::string_view token() const {
        bool const is_long = at_ < text_.size() &&
                             std::string_view{"{[\""}.find(text_[at_]) == std::string_view::npos;
        std::size_t const end = is_long ? text_.find_first_of(",]} \n\r\t", at_) : at_ + 1;
        return text_.substr(std::min(at_, text_.size()), end - at_);
    }

    void value(int depth, bool has_key, bool has_repeated_key) {
        char const first = next();
        if (is_wanted_({token(), path_, depth, has_key, has_repeated_key})) {
            place_ = {line_, path_};
            at_ = text_.size();
        } else if (first == '{' || first == '[') {
            members(first == '{', depth + 1);
        } else if (first == '"') {
            string();
        } else {
            at_ = std::min(at_ + token().size(), text_.size());
        }
    }

    void members(bool object, int depth) {
        ++at_;
        std::size_t const parent = path_.size();
        std::set<std::string> keys;
        for (std::size_t index = 0; next() != '\0'; ++index) {
            if (text_[at_] == '}' || text_[at_] == ']') {
                ++at_;
                return;
            }
            if (text_[at_] == ',') {
                ++at_;
                next();
            }
            std::string key = std::to_string(index);
            if (object) {
                key = unescaped(string());
                next();
                ++at_; // the colon
            }
            path_.append(parent == 0 ? "" : "/").append(key);
            value(depth, object, object && !keys.insert(key).second);
            path_.resize(parent);
        }
    }

    // The string's text as it stands, with its escapes.
    std::string string() {
        std::size_t const begin = std::min(++at_, text_.size());
        while (at_ < text_.size() && text_[at_] != '"') {
            at_ += text_[at_] == '\\' ? 2U : 1U;
        }
        std::size_t const end = std::min(at_, text_.size());
        at_ = std::min(at_ + 1, text_.size());
        return std::string{text_.substr(begin, end - begin)};
    }

    std::string_view text_;
    Predicate is_wanted_;
    Json_place place_{0, {}};
    // Of the value at hand; one for all, so that a long key is not copied for each value below it.
    std::string path_;
    std::size_t at_;
    std::size_t line_ = 1;
};

} // namespace

Json_place find_json_value(std::string_view text, Predicate const& is_wanted) {
    return Scanner{text, is_wanted}.search();
}

std::size_t line_at(std::string_view text, std::size_t byte) {
    std::string_view const before = text.substr(0, std::min(byte, text.size()));
    return 1 + static_cast<std::size_t>(std::ranges::count(before, '\n'));
}

} // namespace veldrane_mrv::polarization
