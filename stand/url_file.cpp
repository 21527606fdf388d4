// The file that scripts wait for. The program checks it before anything else, so that a path that cannot be
// written is found before keys are made. A start that fails must not leave the addresses of an earlier run;
// but those of an environment that still runs in the folder stay.
#include "stand/url_file.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "stand/folder_lock.h"
#include "stand/text_file.h"

namespace CryptStand {
namespace {

bool FailWith(const std::string& path, const std::string& reason, std::string& error) {
  error = path + ": " + reason;
  return false;
}

bool FailWithErrno(const std::string& path, std::string& error) {
  return FailWith(path, std::generic_category().message(errno), error);
}

bool IsInFolder(const std::string& path, const std::string& folder) {
  std::error_code failure;
  const auto parent = std::filesystem::absolute(path, failure).lexically_normal().parent_path();
  // With a slash at its end the folder would be the parent of an empty name.
  const auto wanted = std::filesystem::absolute(folder + "/", failure).lexically_normal().parent_path();
  return !failure && parent == wanted;
}

// Renaming would replace a device or a pipe just like a file. To a superuser even /dev/null.
bool IsReplaceable(const std::string& path, std::string& error) {
  struct stat found = {};
  if (stat(path.c_str(), &found) != 0 || S_ISREG(found.st_mode)) return true;
  errno = EISDIR;
  return S_ISDIR(found.st_mode) ? FailWithErrno(path, error) : FailWith(path, "not a regular file", error);
}

}  // namespace

// Permissions alone do not say whether a file can be written: the file system may be full or read-only.
bool UrlFile::Check(const std::string& folder, std::string& error) const {
  if (path_.empty()) return true;
  if (!IsReplaceable(path_, error)) return false;
  if (IsInFolder(path_, folder) && !MakeFolder(folder, error)) return false;
  const std::string trial = path_ + ".new";
  const int file = open(trial.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
  if (file < 0) return FailWithErrno(path_, error);
  close(file);
  unlink(trial.c_str());
  return true;
}

bool UrlFile::RemoveOld(std::string& error) const {
  return path_.empty() || unlink(path_.c_str()) == 0 || errno == ENOENT || FailWithErrno(path_, error);
}

bool UrlFile::Write(const std::string& addresses, std::string& error) {
  if (path_.empty()) return true;
  written_ = addresses;
  return WriteTextFile(path_, addresses, 0600, error);
}

void UrlFile::Remove() const {
  std::string ignored;  // the file may be gone
  if (!written_.empty() && ReadTextFile(path_, ignored) == written_) unlink(path_.c_str());
}

}  // namespace CryptStand
