#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/file.h"

namespace TestSupport {

void WriteFile(const std::filesystem::path& path, std::string_view bytes);
/// The bytes of a file. Fails the test if it cannot be read.
std::string ReadFile(const std::filesystem::path& path);

/// A directory of one test, removed with its contents on destruction. While it lives, the system's temporary
/// directory (TMPDIR) is in it; the test fails if anything is left there at the end.
class ScratchDirectory {
 public:
  ScratchDirectory();
  ~ScratchDirectory();
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;

  /// The path of a name in the directory. Makes nothing.
  std::filesystem::path Path(std::string_view name) const { return root_ / name; }
  OruGuiBase::File File(std::string_view name) const;
  /// Makes a file in the directory.
  OruGuiBase::File Make(std::string_view name, std::string_view bytes) const;
  std::string Read(std::string_view name) const { return ReadFile(Path(name)); }
  bool Exists(std::string_view name) const { return std::filesystem::exists(Path(name)); }

  /// All files and directories below the temporary directory, by their paths in it.
  std::vector<std::string> GetTemporaryNames() const;
  /// Removes the temporary directory, so that no temporary file can be made.
  void BreakTemporary() const;

 private:
  std::filesystem::path root_;
  std::filesystem::path temporary_;
  std::optional<std::string> oldTemporary_;
};

}  // namespace TestSupport
