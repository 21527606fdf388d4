#include "tools/staging_file.h"

#include <cerrno>
#include <filesystem>
#include <memory>
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

constexpr const char* kExists = "File exists (--force replaces it)";

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

bool WriteToOutput(const char* bytes, std::size_t size) {
  while (size > 0) {
    const ssize_t put = write(STDOUT_FILENO, bytes, size);
    if (put < 0 && errno != EINTR) {
      OruGuiBase::SetLastErrorFromErrno();
      return false;
    }
    bytes += put > 0 ? put : 0;
    size -= put > 0 ? static_cast<std::size_t>(put) : 0;
  }
  return true;
}

// Opening it again would begin at the head of a file that others have written to, or empty it.
bool CopyToOutput(const File& file) {
  OruGuiBase::FileReader reader;
  if (!reader.Open(file)) return false;
  const auto buffer = std::make_unique<char[]>(OruGuiBase::kStreamBuffer);
  std::int64_t got = 0;
  while ((got = reader.Read(buffer.get(), OruGuiBase::kStreamBuffer)) > 0) {
    if (!WriteToOutput(buffer.get(), static_cast<std::size_t>(got))) return false;
  }
  return got == 0;
}

}  // namespace

bool StagingFile::Open(const std::string& source, const std::string& target, bool replace,
                       AnsiStr& errorText) {
  return CheckSource(source, errorText) && Open(target, replace, errorText);
}

bool StagingFile::Open(const std::string& target, bool replace, AnsiStr& errorText) {
  target_ = target;
  replace_ = replace;
  if (!CheckTarget(target, errorText)) return false;
  if (file_.CreateFor(File(AnsiStr(target_)))) return true;
  errorText = Reason("write", target, OruGuiBase::GetSystemErrorText());
  return false;
}

bool StagingFile::CheckSource(const std::string& source, AnsiStr& errorText) const {
  if (CanBeRead(source)) return true;
  errorText = Reason("read", source, OruGuiBase::GetSystemErrorText());
  return false;
}

bool StagingFile::CheckTarget(const std::string& target, AnsiStr& errorText) {
  struct stat status {};
  if (stat(target.c_str(), &status) != 0) {
    const int reason = errno;
    if (reason == ENOENT && (replace_ || lstat(target.c_str(), &status) != 0)) return true;
    errorText = Reason("write", target, reason == ENOENT ? AnsiStr(kExists) : SystemText(reason));
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

bool StagingFile::CheckFile(const std::string& target, AnsiStr& errorText) {
  // It is written itself, as it is open already, and loses nothing.
  if (isStandardOutput_) return true;
  if (!replace_) {
    errorText = Reason("write", target, kExists);
    return false;
  }
  // A link stays a link: what it names is replaced.
  std::error_code code;
  target_ = std::filesystem::canonical(target, code).string();
  if (code) errorText = Reason("write", target, SystemText(code.value()));
  return !code;
}

bool StagingFile::Commit(AnsiStr& errorText) {
  if (isStandardOutput_) {
    if (CopyToOutput(GetFile())) return true;
    errorText = Reason("write", target_, OruGuiBase::GetSystemErrorText());
    return false;
  }
  if (GetFile().Move(File(AnsiStr(target_)), !replace_)) {
    file_.GiveUp();
    return true;
  }
  errorText = Reason("write", target_, OruGuiBase::GetSystemErrorText());
  return false;
}

}  // namespace CryptCli
