#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/file.h"

namespace TestSupport {

void WriteFile(const std::filesystem::path& path, std::string_view bytes);
/// The bytes of a file; fails the test when it cannot be read.
std::string ReadFile(const std::filesystem::path& path);

/// A directory of one test, removed with all it holds at the end. While it lives it holds the system's
/// temporary directory as well (TMPDIR), and at the end the test fails if anything was left there.
class ScratchDirectory {
 public:
  ScratchDirectory();
  ~ScratchDirectory();
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;

  /// The path of a name in the directory; nothing is made.
  std::filesystem::path Path(std::string_view name) const { return root_ / name; }
  OruGuiBase::File File(std::string_view name) const;
  /// Makes a file in the directory.
  OruGuiBase::File Make(std::string_view name, std::string_view bytes) const;
  std::string Read(std::string_view name) const { return ReadFile(Path(name)); }
  bool Exists(std::string_view name) const { return std::filesystem::exists(Path(name)); }

  /// All files and directories below the temporary directory, by their paths in it.
  std::vector<std::string> GetTemporaryNames() const;
  /// Takes the temporary directory away, so that no temporary file can be made.
  void BreakTemporary() const;

 private:
  std::filesystem::path root_;
  std::filesystem::path temporary_;
  std::optional<std::string> oldTemporary_;
};

}  // namespace TestSupport
