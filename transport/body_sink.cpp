// Receives response bodies for CurlExchange. libcurl calls it with each chunk; it never keeps more than one
// chunk of a body that goes to a file.
#include "transport/body_sink.h"

#include <cerrno>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

#include "foundation/errorstate.h"
#include "foundation/format.h"

namespace OruKalvix {

using OruGuiBase::AnsiStr;

BodySink::~BodySink() {
  if (file_ < 0) return;
  // Best effort: a device cannot be truncated, and the exchange has failed already.
  if (ftruncate(file_, 0) != 0) errno = 0;
  close(file_);
}

bool BodySink::OpenFile(const AnsiStr& path) {
  path_ = path;
  if (path.View().find('\0') != std::string_view::npos) return FailFile("open", EINVAL);
  // O_NOCTTY: a terminal as target must not become the controlling terminal of the process.
  do {
    file_ = open(path.GetText(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY, S_IRUSR | S_IWUSR);
  } while (file_ < 0 && errno == EINTR);
  return file_ >= 0 || FailFile("open", errno);
}

bool BodySink::Put(const char* data, std::size_t size) {
  return file_ >= 0 ? PutInFile(data, size) : PutInMemory(data, size);
}

bool BodySink::PutInMemory(const char* data, std::size_t size) {
  if (size > limit_ - body_.GetLength()) {
    error_ = OruGuiBase::FmtArgs("the response is longer than %u bytes, the limit for a response in memory",
                                 limit_);
    return false;
  }
  body_.Append(data, static_cast<std::uint32_t>(size));
  return true;
}

bool BodySink::PutInFile(const char* data, std::size_t size) {
  while (size > 0) {
    const ssize_t written = write(file_, data, size);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return FailFile("write", errno);
    if (written == 0) return FailFile("write", ENOSPC);
    data += written;
    size -= static_cast<std::size_t>(written);
  }
  return true;
}

bool BodySink::Finish() {
  if (file_ < 0) return true;
  // Some file systems report a failed write only when the file is closed.
  // EINTR is no failure: Linux has closed the descriptor all the same, and it may be in use again already.
  const int file = file_;
  file_ = -1;
  return close(file) == 0 || errno == EINTR || FailFile("write", errno);
}

bool BodySink::FailFile(const char* what, int code) {
  const AnsiStr reason = OruGuiBase::GetErrorMessage(static_cast<std::uint32_t>(code), 0, 1);
  error_ = AnsiStr("could not ") + what + " " + OruGuiBase::SimpleQuote(path_) + ": " + reason;
  return false;
}

}  // namespace OruKalvix
