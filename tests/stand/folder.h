#pragma once

#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

namespace CryptStand {

/// Owns a folder for a test, and deletes it with its contents.
class Folder {
 public:
  Folder() {
    std::string name = (std::filesystem::temp_directory_path() / "stand-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) ADD_FAILURE() << "no temporary folder";
    path_ = name;
  }
  ~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  std::string Path(const std::string& name = "") const { return name.empty() ? path_ : path_ + "/" + name; }

 private:
  std::string path_;
};

}  // namespace CryptStand
