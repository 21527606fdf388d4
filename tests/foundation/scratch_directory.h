#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <sys/stat.h>

#include "foundation/ansistr.h"
#include "foundation/file.h"

namespace OruGuiBase {

/// A directory of one test, removed with its contents on destruction. It is TMPDIR while it lives.
class ScratchDirectory {
 public:
  explicit ScratchDirectory(const char* parent = "/tmp")
      : path_(std::string(parent) + "/foundation-test-XXXXXX") {
    if (::mkdtemp(path_.data()) == nullptr) std::abort();
    const char* const named = std::getenv("TMPDIR");
    had_ = named != nullptr;
    if (had_) before_ = named;
    ::setenv("TMPDIR", path_.c_str(), 1);
  }
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;
  ~ScratchDirectory() {
    if (had_) {
      ::setenv("TMPDIR", before_.c_str(), 1);
    } else {
      ::unsetenv("TMPDIR");
    }
    std::filesystem::remove_all(path_);
  }

  const std::string& GetPath() const { return path_; }
  std::string operator/(std::string_view name) const { return path_ + "/" + std::string(name); }
  File FileOf(std::string_view name) const { return File(AnsiStr(*this / name)); }
  /// Makes a file with the content.
  File MakeFile(std::string_view name, std::string_view content) const {
    std::ofstream(*this / name, std::ios::binary) << content;
    return FileOf(name);
  }
  /// How many entries there are, including directories and their entries.
  std::size_t CountEntries() const {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::recursive_directory_iterator(path_)) ++count;
    return count;
  }

 private:
  std::string path_;
  std::string before_;
  bool had_ = false;
};

inline std::string ContentOf(const File& file) {
  std::ifstream stream(file.GetPath().GetText(), std::ios::binary);
  std::ostringstream content;
  content << stream.rdbuf();
  return content.str();
}

inline bool Exists(const AnsiStr& path) {
  return std::filesystem::exists(std::filesystem::symlink_status(path.GetText()));
}

/// The permission bits of a path, or -1 if it does not exist.
inline int ModeOf(const AnsiStr& path) {
  struct stat info {};
  return ::lstat(path.GetText(), &info) == 0 ? static_cast<int>(info.st_mode & 07777) : -1;
}

/// Sets the mask of new files for a scope.
class FileMask {
 public:
  explicit FileMask(mode_t mask) : before_(::umask(mask)) {}
  FileMask(const FileMask&) = delete;
  FileMask& operator=(const FileMask&) = delete;
  ~FileMask() { ::umask(before_); }

 private:
  mode_t before_;
};

}  // namespace OruGuiBase
