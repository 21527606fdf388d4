// What several commands do with the files of their command line, and how they say that it failed.
#include "tools/files.h"

#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <poll.h>
#include <string_view>
#include <unistd.h>

#include "foundation/errorstate.h"
#include "foundation/filehandle.h"
#include "foundation/format.h"
#include "foundation/stream.h"

namespace CryptCli {

using OruGuiBase::AnsiStr;
using OruGuiBase::File;

namespace {

bool WriteToStandardOutput(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(STDOUT_FILENO, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) {
      OruGuiBase::SetLastErrorFromErrno();
      return false;
    }
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

}  // namespace

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

bool ReadFile(const std::string& path, AnsiStr& content) {
  OruGuiBase::FastReadStream stream{File(AnsiStr(path))};
  return stream.Read(content) && stream.Close();
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
