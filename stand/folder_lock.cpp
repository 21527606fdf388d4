// The folder of a test environment and who uses it. Two environments on one folder would hand out sequence
// numbers and keep keys in memory without knowing of each other, so Stand takes the lock before anything
// else.
#include "stand/folder_lock.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace CryptStand {
namespace {

std::string ReasonOf(const std::string& path, int code) {
  return path + ": " + std::generic_category().message(code);
}

bool IsStranger(uid_t user) {
  return user != geteuid() && user != 0;
}

// In a directory like /tmp, or in one of their own, another user may have made the folder, and may replace
// what is written into it. A folder of another user below one of root's is usual in containers.
bool IsForeign(std::string folder) {
  while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
  struct stat link = {};
  struct stat found = {};
  struct stat parent = {};
  if (lstat(folder.c_str(), &link) != 0 || stat(folder.c_str(), &found) != 0) return false;
  if (S_ISLNK(link.st_mode) && IsStranger(link.st_uid)) return true;
  if (found.st_uid == geteuid() || stat((folder + "/..").c_str(), &parent) != 0) return false;
  return (parent.st_mode & S_IWOTH) != 0 || IsStranger(parent.st_uid);
}

// The number that the holder of the lock has written; empty in the moment before it has.
std::string ReadHolder(int file) {
  char text[32];
  const ssize_t size = pread(file, text, sizeof text, 0);
  const std::string line(text, static_cast<std::size_t>(size > 0 ? size : 0));
  return line.substr(0, line.find('\n'));
}

// Only a message depends on the number, so a full disk does not prevent the start.
void WriteHolder(int file) {
  const std::string line = std::to_string(getpid()) + "\n";
  if (ftruncate(file, 0) != 0 || pwrite(file, line.data(), line.size(), 0) < 0) errno = 0;
}

}  // namespace

bool MakeFolder(const std::string& folder, std::string& error) {
  if (mkdir(folder.c_str(), 0700) == 0) return true;
  if (errno != EEXIST) {
    error = ReasonOf(folder, errno);
    return false;
  }
  if (!IsForeign(folder)) return true;
  error = folder + ": belongs to another user, who may replace what is written there";
  return false;
}

FolderLock::~FolderLock() {
  // The file stays: another process may have opened it already and be about to lock it.
  if (file_ >= 0) close(file_);
}

FolderLock::Result FolderLock::Take(const std::string& folder, std::string& error) {
  const std::string path = folder + "/lock";
  file_ = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (file_ >= 0 && flock(file_, LOCK_EX | LOCK_NB) == 0) {
    WriteHolder(file_);
    return Result::Taken;
  }
  const int code = errno;
  if (file_ < 0 || code != EWOULDBLOCK) {
    error = ReasonOf(path, code);
    return Result::Failed;
  }
  const std::string holder = ReadHolder(file_);
  error = folder + " is in use by " + (holder.empty() ? "another process" : "process " + holder);
  return Result::InUse;
}

}  // namespace CryptStand
