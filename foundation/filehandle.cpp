// Open files without a buffer: FileReader, and FileWriter except for staging files (filehandle_staging.cpp).
// Streams, File::Move and the CMS readers and writers work on them.

#include "foundation/filehandle.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "foundation/delivery.h"
#include "foundation/error_state_saver.h"
#include "foundation/errorstate.h"
#include "foundation/posix_file.h"
#include "foundation/threadobserver.h"

namespace OruGuiBase {

namespace {

// True also for a handle that was never opened.
bool CloseOnce(int& handle) {
  const int closing = std::exchange(handle, -1);
  return closing < 0 || CloseHandle(closing) || FailWithErrno();
}

// Preserves the error state: callers report it after cleanup.
void CloseQuietly(int& handle) {
  const ErrorStateSaver saver;
  CloseOnce(handle);
}

bool SetSize(int handle, std::int64_t size) {
  int result = 0;
  do {
    result = ::ftruncate(handle, size);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

// O_TRUNC only after OpenPrivate has checked the file: it might belong to somebody else.
bool OpenPrivateForWriting(int& handle, const AnsiStr& path, int flags) {
  handle = OpenPrivate(path, O_WRONLY | (flags & ~O_TRUNC));
  if (handle < 0) return FailWithErrno();
  if ((flags & O_TRUNC) == 0 || SetSize(handle, 0)) return true;
  FailWithErrno();
  CloseQuietly(handle);
  return false;
}

bool OpenForWriting(int& handle, const File& file, int flags) {
  ClearLastError();
  if (file.IsPrivate()) return OpenPrivateForWriting(handle, file.GetPath(), flags);
  handle = OpenHandle(file.GetPath(), O_WRONLY | O_CREAT | O_NOCTTY | flags, kOrdinaryMode);
  return handle >= 0 || FailWithErrno();
}

std::int64_t Checked(std::int64_t got) {
  if (got < 0) FailWithErrno();
  return got;
}

// Each chunk of a file passes here, so an operation on a large file can be cancelled soon.
bool IsCancelled() {
  IThreadObserver* const observer = GetThreadObserver();
  if (observer == nullptr || !observer->IsCancelled()) return false;
  FailWith(ECANCELED);
  return true;
}

std::int64_t ReadObserved(int handle, void* buffer, std::uint32_t size, std::int64_t offset) {
  if (IsCancelled()) return -1;
  const std::int64_t got = Checked(ReadAll(handle, buffer, size, offset));
  IThreadObserver* const observer = GetThreadObserver();
  if (observer != nullptr && got > 0) observer->OnRead(static_cast<std::uint64_t>(got));
  return got;
}

// Not every file system, and no FIFO or device, can reserve space.
bool IsRefusalToReserve(int code) {
  return code == EOPNOTSUPP || code == ENOSYS || code == EINVAL || code == ENODEV || code == ESPIPE;
}

// ftruncate() fails with EINVAL for a FIFO or a device, which have no size.
bool IsWithoutSize(int handle, int code) {
  struct stat info {};
  return code == EINVAL && ::fstat(handle, &info) == 0 && !S_ISREG(info.st_mode);
}

}  // namespace

FileReader::~FileReader() {
  CloseQuietly(handle_);
}

bool FileReader::Open(const File& file) noexcept {
  CloseQuietly(handle_);
  ClearLastError();
  handle_ = OpenHandle(file.GetPath(), O_RDONLY | O_NOCTTY, 0);
  if (handle_ < 0) return FailWithErrno();
  struct stat info {};
  // By the handle and not by the path, which may name another file by now. A directory can be opened, but not
  // read.
  const int code = ::fstat(handle_, &info) != 0 ? errno : S_ISDIR(info.st_mode) ? EISDIR : 0;
  opened_ = Describe(info);
  if (code == 0) return true;
  CloseQuietly(handle_);
  return FailWith(code);
}

// Everything of a file that changes with its content and costs no reading.
FileReader::Look FileReader::Describe(const struct stat& info) noexcept {
  return {S_ISREG(info.st_mode),
          info.st_size,
          {info.st_mtim.tv_sec, info.st_mtim.tv_nsec, info.st_ctim.tv_sec, info.st_ctim.tv_nsec}};
}

bool FileReader::IsUnchanged() const noexcept {
  ClearLastError();
  struct stat info {};
  if (!opened_.isRegular) return true;
  return ::fstat(handle_, &info) == 0 ? Describe(info) == opened_ : FailWithErrno();
}

std::int64_t FileReader::GetSize() const noexcept {
  ClearLastError();
  struct stat info {};
  return ::fstat(handle_, &info) == 0 ? info.st_size : Checked(-1);
}

std::int64_t FileReader::Read(void* buffer, std::uint32_t size) noexcept {
  ClearLastError();
  return ReadObserved(handle_, buffer, size, -1);
}

std::int64_t FileReader::ReadAt(std::int64_t offset, void* buffer, std::uint32_t size) const noexcept {
  ClearLastError();
  if (offset < 0) {
    FailWith(EINVAL);
    return -1;
  }
  return ReadObserved(handle_, buffer, size, offset);
}

bool FileReader::Close() noexcept {
  return CloseOnce(handle_);
}

FileWriter::~FileWriter() {
  DropFile();
}

bool FileWriter::Open(const File& file) noexcept {
  DropFile();
  return OpenForWriting(handle_, file, O_TRUNC);
}

bool FileWriter::OpenAppend(const File& file) noexcept {
  DropFile();
  return OpenForWriting(handle_, file, O_APPEND);
}

// FALLOC_FL_KEEP_SIZE, so that a reader never takes reserved space for content.
bool FileWriter::Preallocate(std::int64_t size) noexcept {
  ClearLastError();
  if (size <= 0) return true;
  int result = 0;
  do {
    result = ::fallocate(handle_, FALLOC_FL_KEEP_SIZE, 0, size);
  } while (result != 0 && errno == EINTR);
  return result == 0 || IsRefusalToReserve(errno) || FailWithErrno();
}

bool FileWriter::Write(const void* data, std::uint32_t size) noexcept {
  ClearLastError();
  if (IsCancelled()) return false;
  return (handle_ >= 0 || FailWith(EBADF)) && (WriteAll(handle_, data, size) || FailWithErrno());
}

bool FileWriter::Truncate(std::int64_t size) noexcept {
  ClearLastError();
  return SetSize(handle_, size) || IsWithoutSize(handle_, errno) || FailWithErrno();
}

// A staging file is delivered here, so that a writer that is only destroyed leaves the target as it was.
bool FileWriter::Close() noexcept {
  if (!staging_.GetPath().IsEmpty()) return FinishStaging();
  return CloseOnce(handle_);
}

}  // namespace OruGuiBase
