#pragma once

#include <filesystem>
#include <sstream>
#include <string>

/// A file of results. It is written in the end, beside its place, and renamed, so that an older one
/// stays as it is until the new one is complete, and an interrupted run leaves nothing behind.
class Result_file {
public:
    /// Tries out whether the place can be written.
    /// @throws Usage_error
    explicit Result_file(std::string const& path);

    std::ostream& stream() { return text_; }

    /// @throws std::runtime_error if something could not be written
    void finish() const;

private:
    std::filesystem::path target_, written_;
    std::ostringstream text_;
};
