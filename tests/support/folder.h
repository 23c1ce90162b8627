#ifndef TAV_TESTS_SUPPORT_FOLDER_H
#define TAV_TESTS_SUPPORT_FOLDER_H

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace tav_test {

/// A folder of its own that goes with its object.
class Folder {
public:
    Folder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "tav_folder_XXXXXX").string();
        if (::mkdtemp(&pattern[0]) == nullptr) {
            throw std::runtime_error("no temporary folder");
        }
        path_ = pattern;
    }
    ~Folder() { std::filesystem::remove_all(path_); }
    Folder(Folder const &) = delete;
    Folder & operator=(Folder const &) = delete;

    std::string const & path() const { return path_; }
    std::string write(std::string const & name, std::string const & content) const {
        std::ofstream(path_ + "/" + name) << content;
        return path_ + "/" + name;
    }

private:
    std::string path_;
};

} // namespace tav_test

#endif
