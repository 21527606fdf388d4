#include "tests/faults/system_calls.h"

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

// The linker sends each call from the program's own objects here.
extern "C" {
int __real_open(const char* path, int flags, ...);
ssize_t __real_read(int handle, void* buffer, std::size_t size);
ssize_t __real_pread(int handle, void* buffer, std::size_t size, off_t offset);
ssize_t __real_write(int handle, const void* buffer, std::size_t size);
int __real_close(int handle);
int __real_fstat(int handle, struct stat* info);
int __real_stat(const char* path, struct stat* info);
int __real_lstat(const char* path, struct stat* info);
int __real_fallocate(int handle, int mode, off_t offset, off_t size);
int __real_ftruncate(int handle, off_t size);
int __real_rename(const char* from, const char* to);
int __real_unlink(const char* path);
int __real_rmdir(const char* path);
int __real_fchmod(int handle, mode_t mode);
char* __real_mkdtemp(char* path);
int __real_mkostemp(char* path, int flags);
int __wrap_open(const char* path, int flags, ...);
ssize_t __wrap_read(int handle, void* buffer, std::size_t size);
ssize_t __wrap_pread(int handle, void* buffer, std::size_t size, off_t offset);
ssize_t __wrap_write(int handle, const void* buffer, std::size_t size);
int __wrap_close(int handle);
int __wrap_fstat(int handle, struct stat* info);
int __wrap_stat(const char* path, struct stat* info);
int __wrap_lstat(const char* path, struct stat* info);
int __wrap_fallocate(int handle, int mode, off_t offset, off_t size);
int __wrap_ftruncate(int handle, off_t size);
int __wrap_rename(const char* from, const char* to);
int __wrap_unlink(const char* path);
int __wrap_rmdir(const char* path);
int __wrap_fchmod(int handle, mode_t mode);
char* __wrap_mkdtemp(char* path);
int __wrap_mkostemp(char* path, int flags);
}

namespace FaultTest {
namespace {

constexpr auto kCalls = static_cast<std::size_t>(SystemCall::Count);

bool watching = false;
int shelters = 0;
Fault planned;
std::uint64_t counts[kCalls];
std::uint64_t total = 0;

enum class Verdict { Pass, Fail, Short, Ended };

Verdict Meet(SystemCall call) {
  if (!watching || shelters > 0) return Verdict::Pass;
  const std::uint64_t number = ++counts[static_cast<std::size_t>(call)];
  ++total;
  if (planned.type == Fault::Type::Killed && total == planned.number) ::raise(SIGKILL);
  if (planned.type == Fault::Type::Killed || planned.call != call || planned.number != number)
    return Verdict::Pass;
  if (planned.type == Fault::Type::Short) return Verdict::Short;
  if (planned.type == Fault::Type::Ended) return Verdict::Ended;
  if (planned.type != Fault::Type::Fails) return Verdict::Pass;
  errno = planned.error;
  return Verdict::Fail;
}

bool Fails(SystemCall call) {
  return Meet(call) == Verdict::Fail;
}

}  // namespace

std::string NameOf(SystemCall call) {
  constexpr const char* kNames[] = {"open",      "read",      "pread",  "write",  "close", "fstat",
                                    "fallocate", "ftruncate", "rename", "unlink", "rmdir", "mkdtemp",
                                    "mkostemp",  "fchmod",    "stat",   "lstat"};
  return kNames[static_cast<std::size_t>(call)];
}

void WatchSystemCalls(const Fault& fault) {
  planned = fault;
  std::fill(std::begin(counts), std::end(counts), 0);
  total = 0;
  watching = true;
}

std::vector<std::uint64_t> EndSystemWatch() {
  watching = false;
  return {std::begin(counts), std::end(counts)};
}

Sheltered::Sheltered() {
  ++shelters;
}

Sheltered::~Sheltered() {
  --shelters;
}

}  // namespace FaultTest

using FaultTest::Fails;
using FaultTest::Meet;
using FaultTest::SystemCall;
using FaultTest::Verdict;

int __wrap_open(const char* path, int flags, ...) {
  std::va_list list;
  va_start(list, flags);
  const auto mode = (flags & O_CREAT) != 0 ? va_arg(list, unsigned) : 0;
  va_end(list);
  return Fails(SystemCall::Open) ? -1 : __real_open(path, flags, mode);
}

ssize_t __wrap_read(int handle, void* buffer, std::size_t size) {
  const Verdict verdict = Meet(SystemCall::Read);
  if (verdict == Verdict::Fail) return -1;
  if (verdict == Verdict::Ended) return 0;
  return __real_read(handle, buffer, verdict == Verdict::Short && size > 1 ? 1 : size);
}

ssize_t __wrap_pread(int handle, void* buffer, std::size_t size, off_t offset) {
  const Verdict verdict = Meet(SystemCall::PRead);
  if (verdict == Verdict::Fail) return -1;
  if (verdict == Verdict::Ended) return 0;
  return __real_pread(handle, buffer, verdict == Verdict::Short && size > 1 ? 1 : size, offset);
}

ssize_t __wrap_write(int handle, const void* buffer, std::size_t size) {
  const Verdict verdict = Meet(SystemCall::Write);
  if (verdict == Verdict::Fail) return -1;
  return __real_write(handle, buffer, verdict == Verdict::Short && size > 1 ? 1 : size);
}

// As on Linux: close() closes the handle even if it fails.
int __wrap_close(int handle) {
  const bool fails = Fails(SystemCall::Close);
  const int reason = errno;
  const int result = __real_close(handle);
  if (fails) errno = reason;
  return fails ? -1 : result;
}

int __wrap_fstat(int handle, struct stat* info) {
  return Fails(SystemCall::FStat) ? -1 : __real_fstat(handle, info);
}

int __wrap_stat(const char* path, struct stat* info) {
  return Fails(SystemCall::Stat) ? -1 : __real_stat(path, info);
}

int __wrap_lstat(const char* path, struct stat* info) {
  return Fails(SystemCall::LStat) ? -1 : __real_lstat(path, info);
}

int __wrap_fallocate(int handle, int mode, off_t offset, off_t size) {
  return Fails(SystemCall::Fallocate) ? -1 : __real_fallocate(handle, mode, offset, size);
}

int __wrap_ftruncate(int handle, off_t size) {
  return Fails(SystemCall::FTruncate) ? -1 : __real_ftruncate(handle, size);
}

int __wrap_rename(const char* from, const char* to) {
  return Fails(SystemCall::Rename) ? -1 : __real_rename(from, to);
}

int __wrap_unlink(const char* path) {
  return Fails(SystemCall::Unlink) ? -1 : __real_unlink(path);
}

int __wrap_rmdir(const char* path) {
  return Fails(SystemCall::RmDir) ? -1 : __real_rmdir(path);
}

int __wrap_fchmod(int handle, mode_t mode) {
  return Fails(SystemCall::FChMod) ? -1 : __real_fchmod(handle, mode);
}

char* __wrap_mkdtemp(char* path) {
  return Fails(SystemCall::MkDTemp) ? nullptr : __real_mkdtemp(path);
}

int __wrap_mkostemp(char* path, int flags) {
  return Fails(SystemCall::MkOSTemp) ? -1 : __real_mkostemp(path, flags);
}
