// A fresh directory for one test, removed with everything in it afterwards.
#ifndef VELMOR_TESTING_TEMPORARY_DIRECTORY_H_
#define VELMOR_TESTING_TEMPORARY_DIRECTORY_H_

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace velmor::test {

class TemporaryDirectory final {
 public:
  TemporaryDirectory() {
    std::string pattern = (std::filesystem::temp_directory_path() / "velmor-test-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    path_ = pattern;
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::string& path() const { return path_; }
  std::string pathOf(std::string_view name) const { return path_ + "/" + std::string(name); }

  // Writes `contents` to `name` in the directory and returns its path.
  std::string writeFile(std::string_view name, std::string_view contents) const {
    std::string path = pathOf(name);
    std::ofstream(path, std::ios::binary) << contents;
    return path;
  }

 private:
  std::string path_;
};

}  // namespace velmor::test

#endif  // VELMOR_TESTING_TEMPORARY_DIRECTORY_H_
