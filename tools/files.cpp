// What several commands do with the files of their command line, and how they say that it failed.
#include "tools/files.h"

#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <poll.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/errno_saver.h"
#include "foundation/errorstate.h"
#include "foundation/filehandle.h"
#include "foundation/format.h"
#include "foundation/reference.h"
#include "foundation/stream.h"

namespace CryptCli {

using OruGuiBase::AnsiStr;
using OruGuiBase::File;

namespace {

// Far above any real arguments or headers; keeps an endless pipe from filling the memory.
constexpr std::uint32_t kMaxInput = 64 * 1024 * 1024;

bool WriteToStandardOutput(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(STDOUT_FILENO, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0 && errno == EAGAIN) {
      // Whoever shares the pipe may have made it non-blocking.
      pollfd ready{STDOUT_FILENO, POLLOUT, 0};
      if (poll(&ready, 1, /*timeout=*/-1) >= 0 || errno == EINTR) continue;
    }
    if (written < 0) {
      OruGuiBase::SetLastErrorFromErrno();
      return false;
    }
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

}  // namespace

bool IsFolder(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool CanReadStandardInput() {
  // main() puts something that cannot be read in the place of a standard input that the caller has closed.
  const int flags = fcntl(STDIN_FILENO, F_GETFL);
  if (flags >= 0 && (flags & O_ACCMODE) != O_WRONLY) return true;
  OruGuiBase::SetLastError(EBADF);
  return false;
}

bool WaitForInput(int descriptor, const std::stop_token& stop) {
  // A signal wakes the thread of the watch and not this one, so it looks now and then.
  constexpr int kLookMilliseconds = 50;
  while (!stop.stop_requested()) {
    pollfd ready{descriptor, POLLIN, 0};
    const int count = poll(&ready, 1, kLookMilliseconds);
    if (count > 0) return true;
    if (count < 0 && errno != EINTR) return false;
  }
  errno = ECANCELED;
  return false;
}

int OpenForReading(const std::string& path) {
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  // From here on poll() waits, also for the first writer of a named pipe.
  if (descriptor >= 0) fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) & ~O_NONBLOCK);
  return descriptor;
}

ssize_t ReadUnlessStopped(int descriptor, void* bytes, std::size_t size, const std::stop_token& stop) {
  return WaitForInput(descriptor, stop) ? read(descriptor, bytes, size) : -1;
}

bool ReadToEnd(int descriptor, const std::stop_token& stop, AnsiStr& text, AnsiStr& reason) {
  char chunk[16384];
  ssize_t got = 1;
  while ((got > 0 || (got < 0 && errno == EINTR)) && text.GetLength() <= kMaxInput) {
    got = ReadUnlessStopped(descriptor, chunk, sizeof(chunk), stop);
    if (got > 0) text.Append(chunk, static_cast<std::uint32_t>(got));
  }
  {
    // It may have contained a key or a password.
    const OruGuiBase::ErrnoSaver saver;
    OruGuiBase::WipeMemory(chunk, sizeof(chunk));
  }
  if (text.GetLength() > kMaxInput) {
    reason = "More than 64 MiB";
    return false;
  }
  if (got == 0) return true;
  OruGuiBase::SetLastErrorFromErrno();
  reason = OruGuiBase::GetSystemErrorText();
  return false;
}

bool ReadUnlessStopped(const std::string& path, const std::stop_token& stop, AnsiStr& text, AnsiStr& reason) {
  const int descriptor = OpenForReading(path);
  if (descriptor < 0) {
    OruGuiBase::SetLastErrorFromErrno();
    reason = OruGuiBase::GetSystemErrorText();
    return false;
  }
  const bool isRead = ReadToEnd(descriptor, stop, text, reason);
  close(descriptor);
  return isRead;
}

std::string NameSource(const std::string& name) {
  return name == kStandardStream ? "standard input" : name;
}

std::string NameTarget(const std::string& name) {
  return name == kStandardStream ? "standard output" : name;
}

AnsiStr DescribeFailure(const char* what, const AnsiStr& path) {
  return DescribeFailure(what, path, OruGuiBase::GetSystemErrorText());
}

AnsiStr DescribeFailure(const char* what, const AnsiStr& path, const AnsiStr& reason) {
  const bool isWritten = std::string_view(what) == "write";
  const AnsiStr stream = isWritten ? "to standard output" : "standard input";
  const AnsiStr name = path == kStandardStream ? stream : OruGuiBase::SimpleQuote(path);
  return AnsiStr("Could not ") + what + " " + name + ": " + reason;
}

bool CopyToStandardOutput(const File& file) {
  OruGuiBase::FileReader reader;
  if (!reader.Open(file)) return false;
  const auto buffer = std::make_unique<char[]>(OruGuiBase::kStreamBuffer);
  std::int64_t got = 0;
  while ((got = reader.Read(buffer.get(), OruGuiBase::kStreamBuffer)) > 0) {
    if (!WriteToStandardOutput({buffer.get(), static_cast<std::size_t>(got)})) return false;
  }
  return got == 0 && reader.Close();
}

}  // namespace CryptCli
