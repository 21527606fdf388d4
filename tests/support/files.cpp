#include "tests/support/files.h"

#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <stdlib.h>

#include "tests/support/text.h"

namespace TestSupport {

namespace fs = std::filesystem;

void WriteFile(const fs::path& path, std::string_view bytes) {
  std::ofstream stream(path, std::ios::binary | std::ios::trunc);
  stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  stream.close();
  if (!stream) ADD_FAILURE() << "could not write " << path;
}

std::string ReadFile(const fs::path& path) {
  std::ifstream stream(path, std::ios::binary);
  if (!stream) ADD_FAILURE() << "could not read " << path;
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

ScratchDirectory::ScratchDirectory() {
  std::string name = (fs::temp_directory_path() / "cryptcli-test-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) ADD_FAILURE() << "could not make a scratch directory";
  root_ = name;
  temporary_ = root_ / "temporary";
  fs::create_directory(temporary_);
  if (const char* old = getenv("TMPDIR"); old != nullptr) oldTemporary_ = old;
  setenv("TMPDIR", temporary_.c_str(), 1);
}

ScratchDirectory::~ScratchDirectory() {
  for (const std::string& name : GetTemporaryNames()) ADD_FAILURE() << "left a temporary file: " << name;
  if (oldTemporary_) {
    setenv("TMPDIR", oldTemporary_->c_str(), 1);
  } else {
    unsetenv("TMPDIR");
  }
  std::error_code ignored;
  fs::remove_all(root_, ignored);
}

OruGuiBase::File ScratchDirectory::File(std::string_view name) const {
  return OruGuiBase::File(Ansi(Path(name).string()));
}

OruGuiBase::File ScratchDirectory::Make(std::string_view name, std::string_view bytes) const {
  WriteFile(Path(name), bytes);
  return File(name);
}

std::vector<std::string> ScratchDirectory::GetTemporaryNames() const {
  std::vector<std::string> names;
  if (!fs::exists(temporary_)) return names;
  for (const auto& entry : fs::recursive_directory_iterator(temporary_)) {
    names.push_back(entry.path().lexically_relative(temporary_).string());
  }
  return names;
}

void ScratchDirectory::BreakTemporary() const {
  fs::remove_all(temporary_);
}

}  // namespace TestSupport
