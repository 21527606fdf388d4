// Sources and targets of file operations: paths and file descriptors become files that the class can work on.
#include "bindings/c/file_ends.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "foundation/errorstate.h"
#include "foundation/filehandle.h"
#include "foundation/reference.h"
#include "foundation/threadobserver.h"

namespace CryptCliC {

using OruGuiBase::AnsiStr;
using OruGuiBase::File;
using OruGuiBase::FileReader;
using OruGuiBase::FileWriter;

namespace {

constexpr const char* kCopyName = "source";
// How often a wait looks for a cancellation.
constexpr int kLookMilliseconds = 50;

/// A buffer for plain content, wiped at its end.
class CopyBuffer {
 public:
  CopyBuffer() : bytes_(OruGuiBase::kStreamBuffer) {}
  CopyBuffer(const CopyBuffer&) = delete;
  CopyBuffer& operator=(const CopyBuffer&) = delete;
  ~CopyBuffer() { OruGuiBase::WipeMemory(bytes_.data(), bytes_.size()); }
  char* GetData() { return bytes_.data(); }
  std::uint32_t GetSize() const { return static_cast<std::uint32_t>(bytes_.size()); }

 private:
  std::vector<char> bytes_;
};

bool FailWithErrno() {
  OruGuiBase::SetLastErrorFromErrno();
  return false;
}

bool Fail(int number) {
  errno = number;
  return FailWithErrno();
}

bool IsCancelled() {
  OruGuiBase::IThreadObserver* const observer = OruGuiBase::GetThreadObserver();
  return observer != nullptr && observer->IsCancelled();
}

// Waits for input or its end. A stream may stall for any time, and nothing wakes this thread when the caller
// cancels, so it looks now and then. What cannot be polled is left to read().
bool WaitForInput(int descriptor) {
  for (;;) {
    if (IsCancelled()) {
      errno = ECANCELED;
      return false;
    }
    pollfd ready{descriptor, POLLIN, 0};
    const int count = ::poll(&ready, 1, kLookMilliseconds);
    if (count > 0 || (count < 0 && errno != EINTR)) return true;
  }
}

std::int64_t ReadSome(int descriptor, char* buffer, std::uint32_t size) {
  while (WaitForInput(descriptor)) {
    const ssize_t got = ::read(descriptor, buffer, size);
    if (got >= 0 || (errno != EINTR && errno != EAGAIN)) return got;
  }
  return -1;
}

bool WaitForSpace(int descriptor) {
  pollfd ready{descriptor, POLLOUT, 0};
  return ::poll(&ready, 1, -1) >= 0 || errno == EINTR;
}

// With O_NONBLOCK, a write takes only what fits at the moment. The rest is written when there is space again:
// a target with only a part of the content would be worse than a wait.
bool WriteWhole(int descriptor, const char* bytes, std::size_t size) {
  while (size > 0) {
    const ssize_t written = ::write(descriptor, bytes, size);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0 && errno == EAGAIN && WaitForSpace(descriptor)) continue;
    if (written < 0) return FailWithErrno();
    bytes += written;
    size -= static_cast<std::size_t>(written);
  }
  return true;
}

// A path that does not exist or is a directory is no stream here: opening it reports why it cannot be read.
bool IsStream(const char* path) {
  struct stat info {};
  return ::stat(path, &info) == 0 && !S_ISREG(info.st_mode) && !S_ISDIR(info.st_mode);
}

// The file that a link points to: that file is replaced, and the link stays a link.
AnsiStr ResolveLink(const char* path) {
  struct stat link {};
  struct stat info {};
  if (::lstat(path, &link) != 0 || !S_ISLNK(link.st_mode) || ::stat(path, &info) != 0 ||
      !S_ISREG(info.st_mode)) {
    return path;
  }
  char* const resolved = ::realpath(path, nullptr);
  if (resolved == nullptr) return path;
  AnsiStr result(resolved);
  std::free(resolved);  // NOLINT: the C library made it
  return result;
}

FileIdentity Identify(const File& file) {
  struct stat info {};
  if (::lstat(file.GetPath().GetText(), &info) != 0) return {};
  return {true, info.st_dev, info.st_ino, info.st_size, info.st_mtim, info.st_ctim};
}

bool IsSame(const timespec& a, const timespec& b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

bool IsSame(const FileIdentity& a, const FileIdentity& b) {
  return a.exists == b.exists && a.device == b.device && a.inode == b.inode && a.size == b.size &&
         IsSame(a.modified, b.modified) && IsSame(a.changed, b.changed);
}

std::uint64_t SizeOf(const File& file) {
  const std::int64_t size = file.GetSize();
  return size > 0 ? static_cast<std::uint64_t>(size) : 0;
}

}  // namespace

bool Source::Open(const cryptcli_file& file) {
  if (file.path == nullptr) return CopyFrom(file.descriptor);
  if (*file.path == '\0') return Fail(ENOENT);
  file_ = File(file.path);
  return !IsStream(file.path) || CopyFrom(file_);
}

std::uint64_t Source::GetSize() const {
  return SizeOf(file_);
}

bool Source::CopyFrom(const File& stream) {
  const int descriptor = ::open(stream.GetPath().GetText(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  if (descriptor < 0) return FailWithErrno();
  // Only opening must not wait, for the first writer of a named pipe: ReadSome does, and can be cancelled.
  ::fcntl(descriptor, F_SETFL, ::fcntl(descriptor, F_GETFL) & ~O_NONBLOCK);
  const bool isCopied = CopyFrom(descriptor);
  ::close(descriptor);
  return isCopied;
}

// Reads from the current position: a program may have read a header from the descriptor before the call.
bool Source::CopyFrom(int descriptor) {
  if (descriptor < 0) return Fail(EBADF);
  copy_.Take(File(OruGuiBase::FileType::Temporary, kCopyName, /*isPrivate=*/true));
  file_ = copy_.GetFile();
  hasNoCopy_ = true;
  FileWriter writer;
  if (file_.IsEmpty() || !writer.Open(file_)) return false;
  CopyBuffer buffer;
  std::int64_t got = 0;
  while ((got = ReadSome(descriptor, buffer.GetData(), buffer.GetSize())) > 0) {
    if (!writer.Write(buffer.GetData(), static_cast<std::uint32_t>(got))) return false;
  }
  if (got == 0) return writer.Close();
  hasNoCopy_ = false;
  return FailWithErrno();
}

bool Target::Open(const cryptcli_file& file) {
  if (file.path == nullptr) {
    descriptor_ = file.descriptor;
    const int flags = ::fcntl(descriptor_, F_GETFL);
    return flags >= 0 && (flags & O_ACCMODE) != O_RDONLY ? OpenNowhere() : Fail(EBADF);
  }
  if (*file.path == '\0') return Fail(ENOENT);
  target_ = File(ResolveLink(file.path));
  found_ = Identify(target_);
  return staging_.CreateFor(target_);
}

// The staging file lies beside a target that it will replace, and in the temporary directory otherwise.
bool Target::IsReplaceable() const {
  std::error_code ignored;
  const auto directoryOf = [&](const File& file) {
    return std::filesystem::absolute(file.GetPath().GetText(), ignored).parent_path();
  };
  return !target_.IsEmpty() &&
         std::filesystem::equivalent(directoryOf(staging_.GetFile()), directoryOf(target_), ignored);
}

bool Target::OpenNowhere() {
  staging_.Take(File(OruGuiBase::FileType::Temporary, "content", /*isPrivate=*/true));
  return !staging_.GetPath().IsEmpty();
}

std::uint64_t Target::GetSize() const {
  return SizeOf(staging_.GetFile());
}

bool Target::Replace() {
  if (!IsSame(found_, Identify(target_))) return Fail(ESTALE);
  if (!staging_.GetFile().Replace(target_)) return false;
  staging_.GiveUp();
  return true;
}

Target::~Target() {
  if (isOurs_) ::close(descriptor_);
}

// Opening a named pipe for writing waits for its first reader, and nothing ends that wait. So it is opened
// without waiting, again and again. From then on it is a target by descriptor.
bool Target::AwaitReader() {
  struct stat info {};
  const char* const path = target_.GetPath().GetText();
  if (target_.IsEmpty() || ::stat(path, &info) != 0 || !S_ISFIFO(info.st_mode)) return true;
  while (descriptor_ < 0) {
    if (IsCancelled()) return Fail(ECANCELED);
    descriptor_ = ::open(path, O_WRONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (descriptor_ >= 0) break;
    if (errno != ENXIO && errno != EINTR) return FailWithErrno();
    ::poll(nullptr, 0, kLookMilliseconds);
  }
  isOurs_ = true;
  // A file that came in its place meanwhile would keep the end of its old content.
  return (::fstat(descriptor_, &info) == 0 && S_ISFIFO(info.st_mode)) || Fail(ESTALE);
}

bool Target::Deliver() {
  if (descriptor_ < 0) {
    if (!staging_.GetFile().Move(target_, /*keepTarget=*/false)) return false;
    staging_.GiveUp();
    return true;
  }
  FileReader reader;
  if (!reader.Open(staging_.GetFile())) return false;
  CopyBuffer buffer;
  std::int64_t got = 0;
  while ((got = reader.Read(buffer.GetData(), buffer.GetSize())) > 0) {
    if (!WriteWhole(descriptor_, buffer.GetData(), static_cast<std::size_t>(got))) return false;
  }
  return got == 0;
}

}  // namespace CryptCliC
