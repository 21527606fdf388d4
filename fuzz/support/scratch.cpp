// The files of the targets. TMPDIR of the process is set here, so that the library creates its temporary
// files where the targets look for them.
#include "fuzz/support/scratch.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <system_error>
#include <unistd.h>

#include "fuzz/support/require.h"
#include "fuzz/support/text.h"

namespace Fuzz {

Scratch& Scratch::Get() {
  static Scratch scratch;
  return scratch;
}

Scratch::Scratch() {
  std::string name = (std::filesystem::temp_directory_path() / "cryptcli-fuzz-XXXXXX").string();
  Require(::mkdtemp(name.data()) != nullptr, "a scratch directory can be made");
  root_ = name;
  files_ = root_ / "files";
  temporary_ = root_ / "temporary";
  std::filesystem::create_directory(files_);
  std::filesystem::create_directory(temporary_);
  ::setenv("TMPDIR", temporary_.c_str(), 1);
}

Scratch::~Scratch() {
  std::error_code ignored;
  std::filesystem::remove_all(root_, ignored);
}

OruGuiBase::File Scratch::File(const char* name) const {
  return OruGuiBase::File(Ansi(Path(name).string()));
}

OruGuiBase::File Scratch::Make(const char* name, std::string_view bytes) const {
  std::ofstream out(Path(name), std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  out.close();
  Require(out.good(), "a scratch file can be written");
  return File(name);
}

std::string Scratch::ReadFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

}  // namespace Fuzz
