/// @file
/// Values of a JSON file that know the way to them.
#pragma once

#include "json_parsing.hpp"

#include "veldrane_mrv/polarization/calibration_file.hpp"
#include "veldrane_mrv/polarization/matrices.hpp"

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <limits>
#include <string>
#include <string_view>

namespace veldrane_mrv::polarization {

// One value of the file with the way to it, so that every complaint can name both.
class Node {
public:
    Node(std::filesystem::path const& file, Json const& value, std::string path)
        : file_{&file}, value_{&value}, path_{std::move(path)} {}

    [[noreturn]] void refuse(
        std::string const& problem, std::string const& remedy = damaged) const {
        throw File_error(*file_, 0, path_, problem, remedy);
    }

    bool has(std::string const& key) const { return value_->contains(key); }

    Node operator[](std::string const& key) const {
        auto const member = value_->find(key);
        if (member == value_->end()) {
            refuse("the key \"" + key + "\" is missing");
        }
        return {*file_, *member, path_.empty() ? key : path_ + "/" + key};
    }

    Node operator[](std::size_t index) const {
        return {*file_, value_->at(index), path_ + "/" + std::to_string(index)};
    }

    void require_object(std::initializer_list<std::string_view> keys) const {
        if (!value_->is_object()) {
            refuse("an object is expected");
        }
        for (auto const& member : value_->items()) {
            if (std::ranges::find(keys, member.key()) == keys.end()) {
                (*this)[member.key()].refuse("this key is not known");
            }
        }
    }

    std::size_t array_size() const {
        if (!value_->is_array()) {
            refuse("an array is expected");
        }
        return value_->size();
    }

    void require_array(std::size_t size) const {
        if (array_size() != size) {
            refuse(
                std::to_string(size) + " elements are expected, not " +
                std::to_string(value_->size()));
        }
    }

    bool is_null() const { return value_->is_null(); }

    double number(double least = std::numeric_limits<double>::lowest()) const {
        if (!value_->is_number()) {
            refuse("a number is expected");
        }
        double const number = value_->get<double>();
        if (number < least) {
            refuse("the number is " + value_->dump() + ", below the least possible");
        }
        return number;
    }

    float weight() const {
        double const wide = number();
        if (std::abs(wide) > static_cast<double>(largest_weight)) {
            refuse(
                "the weight is " + value_->dump() + ", above " +
                std::to_string(std::lround(largest_weight)) + " in magnitude");
        }
        return static_cast<float>(wide);
    }

    std::size_t count() const {
        if (!value_->is_number_unsigned()) {
            refuse("a whole number of at least 0 is expected");
        }
        return value_->get<std::size_t>();
    }

    std::string text() const {
        if (!value_->is_string()) {
            refuse("a text is expected");
        }
        return value_->get<std::string>();
    }

private:
    std::filesystem::path const* file_;
    Json const* value_;
    std::string path_;
};

} // namespace veldrane_mrv::polarization
