#include "comparison/result_file.hpp"

#include "comparison/usage_error.hpp"

#include <fstream>
#include <stdexcept>
#include <unistd.h>

namespace fs = std::filesystem;

Result_file::Result_file(std::string const& path) {
    std::error_code error;
    // Through a symbolic link to what it stands for: renaming would replace the link.
    target_ = fs::weakly_canonical(path, error);
    fs::file_status const status = fs::status(target_, error);
    if (path.empty() || fs::is_directory(status)) {
        throw Usage_error("cannot write '" + path + "', a folder; give the name of a file");
    }
    written_ = target_;
    if (fs::exists(status) && !fs::is_regular_file(status)) {
        return; // a device or a pipe, which a file must not take the place of
    }
    written_ += ".part" + std::to_string(getpid());
    bool const is_writable = std::ofstream(written_).is_open();
    fs::remove(written_, error);
    if (!is_writable) {
        throw Usage_error(
            "cannot write '" + path + "'; choose a file in a folder that you may write to");
    }
}

void Result_file::finish() const {
    std::ofstream file(written_);
    file << text_.str();
    file.close();
    std::error_code error, ignored;
    if (file && written_ != target_) {
        fs::rename(written_, target_, error);
    }
    if (!file || error) {
        if (written_ != target_) {
            fs::remove(written_, ignored);
        }
        throw std::runtime_error(
            "cannot write '" + target_.string() + "'; free room there or choose another file");
    }
}
