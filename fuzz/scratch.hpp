// A directory of one fuzz program, for as long as it runs: nothing that it does reaches another.
// The library has its data there, too, and without a directory for logs it writes none.
#pragma once

#include "zev/path.h"

#include <cstdlib>
#include <filesystem>
#include <string>

namespace fuzz {

class Scratch {
  public:
    Scratch() {
        std::string path = (std::filesystem::temp_directory_path() / "fuzz-XXXXXX").string();
        if (!mkdtemp(path.data())) abort();
        path_ = path;
        zPathSetAppData(path_.u16string().c_str(), nullptr);
    }
    ~Scratch() {
        std::error_code error;
        std::filesystem::remove_all(path_, error);
    }
    Scratch(const Scratch &) = delete;
    Scratch &operator=(const Scratch &) = delete;

    std::u16string path() const { return path_.u16string(); }
    std::filesystem::path operator/(const char *name) const { return path_ / name; }

  private:
    std::filesystem::path path_;
};

} // namespace fuzz
