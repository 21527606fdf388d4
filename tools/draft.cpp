#include "tools/draft.h"

#include <cerrno>
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

// To open a FIFO and close it again would cost its writer what he has written.
bool CanBeRead(const std::string& path) {
  struct stat status {};
  OruGuiBase::ClearLastError();
  if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) {
    if (access(path.c_str(), R_OK) == 0) return true;
    OruGuiBase::SetLastErrorFromErrno();
    return false;
  }
  OruGuiBase::FileReader reader;
  return reader.Open(File(AnsiStr(path)));
}

bool IsStandardOutputToo(const struct stat& status) {
  struct stat output {};
  return fstat(STDOUT_FILENO, &output) == 0 && output.st_dev == status.st_dev &&
         output.st_ino == status.st_ino;
}

}  // namespace

bool Draft::Open(const std::string& source, const std::string& target, bool replace, AnsiStr& errorText) {
  return CheckSource(source, errorText) && Open(target, replace, errorText);
}

bool Draft::Open(const std::string& target, bool replace, AnsiStr& errorText) {
  target_ = target;
  replace_ = replace;
  if (!CheckTarget(target, errorText)) return false;
  if (file_.CreateFor(File(AnsiStr(target_)))) return true;
  errorText = Reason("write", target, OruGuiBase::GetSystemErrorText());
  return false;
}

bool Draft::CheckSource(const std::string& source, AnsiStr& errorText) const {
  if (CanBeRead(source)) return true;
  errorText = Reason("read", source, OruGuiBase::GetSystemErrorText());
  return false;
}

bool Draft::CheckTarget(const std::string& target, AnsiStr& errorText) {
  struct stat status {};
  if (stat(target.c_str(), &status) != 0) {
    if (errno == ENOENT) return true;
    errorText = Reason("write", target, SystemText(errno));
    return false;
  }
  isStandardOutput_ = IsStandardOutputToo(status);
  if (S_ISREG(status.st_mode)) return CheckFile(target, errorText);
  if (S_ISDIR(status.st_mode) || S_ISSOCK(status.st_mode)) {
    errorText = Reason("write", target, S_ISDIR(status.st_mode) ? "Is a directory" : "Is a socket");
    return false;
  }
  replace_ = true;
  return true;
}

bool Draft::CheckFile(const std::string& target, AnsiStr& errorText) {
  if (!replace_) {
    errorText = Reason("write", target, "File exists (--force replaces it)");
    return false;
  }
  // A link stays a link: what it names is replaced. Standard output is written itself, as it is open already.
  std::error_code code;
  if (!isStandardOutput_) target_ = std::filesystem::canonical(target, code).string();
  if (code) errorText = Reason("write", target, SystemText(code.value()));
  return !code;
}

bool Draft::Commit(AnsiStr& errorText) {
  if (GetFile().Move(File(AnsiStr(target_)), !replace_)) {
    file_.GiveUp();
    return true;
  }
  errorText = Reason("write", target_, OruGuiBase::GetSystemErrorText());
  return false;
}

}  // namespace CryptCli
