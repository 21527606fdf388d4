// The files that contain the control token. Used for the folder's own file and for the program's --url-file.
#include "stand/private_file.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

namespace CryptStand {
namespace {

// Created, never opened: a file that somebody else put there could be readable by others, or lead elsewhere.
bool WriteNewFile(const std::string& path, const std::string& content) {
  const int handle = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (handle < 0) return false;
  const bool isWritten =
      write(handle, content.data(), content.size()) == static_cast<ssize_t>(content.size());
  return close(handle) == 0 && isWritten;
}

}  // namespace

bool WritePrivateFile(const std::string& path, const std::string& content, std::string& error) {
  const std::string staging = path + ".new";
  unlink(staging.c_str());
  if (WriteNewFile(staging, content) && std::rename(staging.c_str(), path.c_str()) == 0) return true;
  error = path + ": " + std::generic_category().message(errno);
  return false;
}

}  // namespace CryptStand
