#include "tools/draft.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "foundation/errorstate.h"
#include "foundation/filehandle.h"
#include "foundation/format.h"

namespace CryptCli {

using OruGuiBase::AnsiStr;
using OruGuiBase::File;

namespace {

AnsiStr Reason(const char* what, const std::string& path, const AnsiStr& reason) {
  return AnsiStr("Could not ") + what + " " + OruGuiBase::SimpleQuote(AnsiStr(path)) + ": " + reason;
}

AnsiStr SystemText(int code) {
  return OruGuiBase::GetErrorMessage(static_cast<std::uint32_t>(code), 0, 1);
}

unsigned ModeOfNewFiles() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666U & ~mask;
}

}  // namespace

Draft::~Draft() {
  if (!path_.empty()) unlink(path_.c_str());
}

bool Draft::Open(const std::string& source, const std::string& target, bool replace, AnsiStr& errorText) {
  return CheckSource(source, errorText) && Open(target, replace, errorText);
}

bool Draft::Open(const std::string& target, bool replace, AnsiStr& errorText) {
  replace_ = replace;
  return CheckTarget(target, errorText) && Make(errorText);
}

bool Draft::CheckSource(const std::string& source, AnsiStr& errorText) const {
  OruGuiBase::FileReader reader;
  if (reader.Open(File(AnsiStr(source)))) return true;
  errorText = Reason("read", source, OruGuiBase::GetSystemErrorText());
  return false;
}

bool Draft::CheckTarget(const std::string& target, AnsiStr& errorText) {
  target_ = target;
  mode_ = ModeOfNewFiles();
  struct stat status {};
  if (stat(target.c_str(), &status) != 0) {
    if (errno == ENOENT) return true;
    errorText = Reason("write", target, SystemText(errno));
    return false;
  }
  if (!S_ISREG(status.st_mode)) {
    errorText = Reason("write", target, S_ISDIR(status.st_mode) ? "Is a directory" : "Is no regular file");
    return false;
  }
  if (!replace_) {
    errorText = Reason("write", target, "File exists (--force replaces it)");
    return false;
  }
  // A link stays a link: what it names is replaced.
  std::error_code code;
  target_ = std::filesystem::canonical(target, code).string();
  mode_ = status.st_mode & 0777U;
  if (code) errorText = Reason("write", target, SystemText(code.value()));
  return !code;
}

bool Draft::Make(AnsiStr& errorText) {
  const std::filesystem::path place = std::filesystem::path(target_).parent_path();
  std::string path = (place / ".cryptcli-XXXXXX").string();
  const int handle = mkostemp(path.data(), O_CLOEXEC);
  if (handle < 0) {
    errorText = Reason("write", target_, SystemText(errno));
    return false;
  }
  close(handle);
  path_ = path;
  return true;
}

bool Draft::Commit(AnsiStr& errorText) {
  if (chmod(path_.c_str(), mode_) != 0) {
    errorText = Reason("write", target_, SystemText(errno));
    return false;
  }
  if (!GetFile().Move(File(AnsiStr(target_)), !replace_)) {
    errorText = Reason("write", target_, OruGuiBase::GetSystemErrorText());
    return false;
  }
  path_.clear();
  return true;
}

}  // namespace CryptCli
