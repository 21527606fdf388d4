#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "foundation/file.h"

namespace Fuzz {

/// Owns the directory of this process: files of the target in one place, the temporary directory (TMPDIR) in
/// another, so that a file left behind is noticed. Removed at the end of the process.
class Scratch {
 public:
  static Scratch& Get();
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  OruGuiBase::File Make(const char* name, std::string_view bytes) const;
  OruGuiBase::File File(const char* name) const;
  bool Exists(const char* name) const { return std::filesystem::exists(Path(name)); }
  std::string Read(const char* name) const { return ReadFile(Path(name)); }
  void Remove(const char* name) const { std::filesystem::remove(Path(name)); }
  static std::string ReadFile(const std::filesystem::path& path);

  bool IsTemporaryEmpty() const { return std::filesystem::is_empty(temporary_); }

 private:
  Scratch();
  ~Scratch();
  std::filesystem::path Path(const char* name) const { return files_ / name; }

  std::filesystem::path root_;
  std::filesystem::path files_;
  std::filesystem::path temporary_;
};

}  // namespace Fuzz
