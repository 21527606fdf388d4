// Decides how a target is replaced, before any server is asked: what can be refused for a local reason is
// refused while nothing has been spent. encrypt, decrypt, sign and audit-log write through it.
#include "tools/staging_file.h"

#include <cerrno>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "foundation/errorstate.h"
#include "foundation/filehandle.h"
#include "tools/files.h"

namespace CryptCli {

using OruGuiBase::AnsiStr;
using OruGuiBase::File;

namespace {

constexpr const char* kExists = "File exists (--force replaces it)";

AnsiStr SystemText(int code) {
  return OruGuiBase::GetErrorMessage(static_cast<std::uint32_t>(code), 0, 1);
}

// Asks with access() and does not open the file: opening a FIFO and closing it again would lose what its
// writer has written.
bool CanBeRead(const std::string& path) {
  struct stat status {};
  OruGuiBase::ClearLastError();
  if (path == kStandardStream) return CanReadStandardInput();
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

// What replaces a file gets its mode, group and access list before it gets its name. So the wanted mode has
// to limit the old file first, or the new content could be opened by more than may do so. Returns the mode to
// restore if the file is not replaced.
std::optional<unsigned> NarrowTarget(const std::string& target, std::optional<unsigned> wanted) {
  struct stat status {};
  if (!wanted || lstat(target.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  const unsigned mode = status.st_mode & 07777;
  // The owner's bits stay: a target that cannot be replaced is opened and written.
  const unsigned narrow = mode & (*wanted | S_IRWXU);
  if (narrow == mode || chmod(target.c_str(), narrow) != 0) return std::nullopt;
  return mode;
}

}  // namespace

bool StagingFile::Open(const std::string& source, const std::string& target, bool replace,
                       AnsiStr& errorText) {
  return CheckSource(source, errorText) && Open(target, replace, errorText);
}

bool StagingFile::Open(const std::string& target, bool replace, AnsiStr& errorText) {
  OruGuiBase::ClearLastError();
  target_ = target;
  replace_ = replace;
  isStandardOutput_ = target == kStandardStream;
  if (!isStandardOutput_ && !CheckTarget(target, errorText)) return false;
  if (Create()) return true;
  errorText = DescribeFailure("write", AnsiStr(target));
  return false;
}

bool StagingFile::Create() {
  if (isStandardOutput_) {
    file_.Take(File(OruGuiBase::FileType::Temporary, "output", /*isPrivate=*/true));
  } else if (!file_.CreateFor(File(AnsiStr(target_)))) {
    return false;
  }
  // An operation that gets the path renames its own staging file over a file with content, and copies into an
  // empty one: that could be the file of somebody who has just made it and holds it open.
  OruGuiBase::FileWriter writer;
  return !file_.GetPath().IsEmpty() && writer.Open(GetFile()) && writer.Write("\n", 1) && writer.Close();
}

bool StagingFile::CheckSource(const std::string& source, AnsiStr& errorText) const {
  if (CanBeRead(source)) return true;
  errorText = DescribeFailure("read", AnsiStr(source));
  return false;
}

bool StagingFile::CheckTarget(const std::string& target, AnsiStr& errorText) {
  struct stat status {};
  if (stat(target.c_str(), &status) != 0) {
    const int reason = errno;
    if (reason == ENOENT && (replace_ || lstat(target.c_str(), &status) != 0)) return true;
    errorText =
        DescribeFailure("write", AnsiStr(target), reason == ENOENT ? AnsiStr(kExists) : SystemText(reason));
    return false;
  }
  // "/dev/stdout", or the file that standard output is redirected to.
  isStandardOutput_ = IsStandardOutputToo(status);
  if (S_ISREG(status.st_mode)) return CheckFile(target, errorText);
  if (S_ISDIR(status.st_mode) || S_ISSOCK(status.st_mode)) {
    errorText =
        DescribeFailure("write", AnsiStr(target), S_ISDIR(status.st_mode) ? "Is a directory" : "Is a socket");
    return false;
  }
  replace_ = true;
  return true;
}

bool StagingFile::CheckFile(const std::string& target, AnsiStr& errorText) {
  // Standard output redirected to this file: it is open already, and writing continues at its position.
  if (isStandardOutput_) return true;
  if (!replace_) {
    errorText = DescribeFailure("write", AnsiStr(target), kExists);
    return false;
  }
  // A symbolic link stays one: the file that it names is replaced.
  std::error_code code;
  target_ = std::filesystem::canonical(target, code).string();
  if (code) errorText = DescribeFailure("write", AnsiStr(target), SystemText(code.value()));
  return !code;
}

bool StagingFile::Commit(AnsiStr& errorText) {
  // Opening standard output again would start at the beginning of a file that others have written to, or
  // empty it.
  if (isStandardOutput_) {
    if (CopyToStandardOutput(GetFile())) return true;
  } else {
    const std::optional<unsigned> before = replace_ ? NarrowTarget(target_, mode_) : std::nullopt;
    if (GetFile().Move(File(AnsiStr(target_)), !replace_)) {
      file_.GiveUp();
      if (GiveMode()) return true;
    } else if (before) {
      chmod(target_.c_str(), *before);
    }
  }
  errorText = DescribeFailure("write", AnsiStr(target_));
  return false;
}

// A device keeps its permissions. Until here a file has had at most the wanted ones: a new one those that the
// umask allows, which RestrictNewFiles has narrowed.
bool StagingFile::GiveMode() const {
  struct stat status {};
  if (!mode_ || (stat(target_.c_str(), &status) == 0 && !S_ISREG(status.st_mode))) return true;
  if (chmod(target_.c_str(), *mode_) == 0) return true;
  OruGuiBase::SetLastErrorFromErrno();
  return false;
}

// Bits of the owner stay: staging files could not be opened again without them.
void RestrictNewFiles(unsigned mode) {
  const mode_t before = umask(0);
  umask(before | (077 & ~mode));
}

}  // namespace CryptCli
