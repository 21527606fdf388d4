// Small files beside the store that users hand to other programs, and that they hand to this one.
#include "stand/text_file.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace CryptStand {
namespace {

std::string FileError(const std::string& path) {
  return path + ": " + std::generic_category().message(errno);
}

bool WriteWhole(int file, const std::string& text) {
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t count = write(file, text.data() + done, text.size() - done);
    if (count < 0 && errno != EINTR) return false;
    if (count > 0) done += static_cast<std::size_t>(count);
  }
  return true;
}

}  // namespace

bool WriteTextFile(const std::string& path, const std::string& text, mode_t mode, std::string& error) {
  const std::string staging = path + ".new";
  // Removed first: an existing file would keep its mode, which may let others read a key.
  unlink(staging.c_str());
  const int file = open(staging.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
  const bool isWritten = file >= 0 && fchmod(file, mode) == 0 && WriteWhole(file, text);
  if (!isWritten) error = FileError(staging);
  if (file >= 0) close(file);
  if (!isWritten) return false;
  if (std::rename(staging.c_str(), path.c_str()) == 0) return true;
  error = FileError(path);
  unlink(staging.c_str());
  return false;
}

std::optional<std::string> ReadTextFile(const std::string& path, std::string& error) {
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  std::string text(std::istreambuf_iterator<char>(file), {});
  // A folder opens, but cannot be read.
  if (file.is_open() && !file.bad()) return text;
  error = FileError(path);
  return std::nullopt;
}

}  // namespace CryptStand
