// The list of files that must not stay on the disk when the program is stopped, and their removal. TempFile,
// TempDirectory and the functions that make files for them keep the list; RemoveUnfinishedFiles empties the
// disk of them.
#include "foundation/unfinished_list.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <dirent.h>
#include <fcntl.h>
#include <mutex>
#include <new>
#include <shared_mutex>
#include <string_view>
#include <thread>
#include <unistd.h>
#include <utility>

#include "foundation/errno_saver.h"
#include "foundation/reference.h"

namespace OruGuiBase {

namespace {

using std::chrono::milliseconds;

// Attempts to close the gate, a millisecond apart, and to remove a directory to which others add files.
constexpr int kMostAttempts = 1000;

// One path of the list. The list owns it until DropUnfinished.
struct Entry {
  Entry* next;
  AnsiStr path;
  UnfinishedType type;
  pid_t process;  // that made it: a child inherits the list, but does not own the files
};

// No destructor here does anything: static objects of the application may own temporary files until the
// process ends.
constinit std::shared_mutex gate;  // locked shared while a file is made
constinit std::mutex listMutex;
constinit Entry* newest = nullptr;
constinit std::atomic<bool> isClosed{false};

void RemoveEntry(const Entry& entry) {
  if (entry.process != ::getpid()) return;
  if (entry.type == UnfinishedType::File) {
    ::unlink(entry.path.GetText());
  } else {
    RemoveWithFiles(entry.path);
  }
}

// Gives up after about a second: a thread may be making a file on a file system that hangs, and the files of
// the others must be removed all the same.
bool CloseGate() {
  isClosed = true;
  for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
    if (gate.try_lock()) return true;
    std::this_thread::sleep_for(milliseconds(1));
  }
  return false;
}

// O_NOFOLLOW: a link that somebody put in the place of the directory would lead to files of others.
DIR* OpenDirectory(const AnsiStr& path) {
  const int handle = ::open(path.GetText(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  DIR* const directory = handle >= 0 ? ::fdopendir(handle) : nullptr;
  if (handle >= 0 && directory == nullptr) {
    const ErrnoSaver saver;
    ::close(handle);
  }
  return directory;
}

bool RemoveFilesOf(const AnsiStr& path) {
  DIR* const directory = OpenDirectory(path);
  if (directory == nullptr) return false;
  while (const dirent* const entry = ::readdir(directory)) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") ::unlinkat(::dirfd(directory), entry->d_name, 0);
  }
  ::closedir(directory);
  return true;
}

}  // namespace

void CloseUnfinishedList() noexcept {
  const bool isLocked = CloseGate();
  {
    const std::lock_guard lock(listMutex);
    // Newest first: an older entry may be the directory of a newer one.
    for (const Entry* entry = newest; entry != nullptr; entry = entry->next) RemoveEntry(*entry);
  }
  if (isLocked) gate.unlock();
}

// isClosed is checked again under the lock, as the gate may have been closed while this thread waited for it.
UnfinishedScope::UnfinishedScope() noexcept : isOpen_(false) {
  if (!isClosed) {
    gate.lock_shared();
    isOpen_ = !isClosed;
    if (!isOpen_) gate.unlock_shared();
  }
  if (!isOpen_) errno = ECANCELED;
}

UnfinishedScope::~UnfinishedScope() {
  if (isOpen_) gate.unlock_shared();
}

// Allocates before it locks: nothing that can fail happens under the lock.
bool AddUnfinished(const AnsiStr& path, UnfinishedType type) noexcept {
  void* const memory = AllocParticle(sizeof(Entry));
  if (memory == nullptr) {
    errno = ENOMEM;
    return false;
  }
  const std::lock_guard lock(listMutex);
  newest = new (memory) Entry{newest, path, type, ::getpid()};
  return true;
}

// The entry is freed outside the lock; nobody else can reach it any more.
void DropUnfinished(const AnsiStr& path) noexcept {
  Entry* found = nullptr;
  {
    const std::lock_guard lock(listMutex);
    for (Entry** place = &newest; *place != nullptr && found == nullptr; place = &(*place)->next) {
      if ((*place)->path.View() != path.View()) continue;
      found = std::exchange(*place, (*place)->next);
      break;
    }
  }
  if (found == nullptr) return;
  found->~Entry();
  FreeParticle(sizeof(Entry), found);
}

bool RemoveWithFiles(const AnsiStr& directory) noexcept {
  for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
    // The directory is usually empty: its files were moved or removed before.
    if (::rmdir(directory.GetText()) == 0 || errno == ENOENT) return true;
    if (errno != ENOTEMPTY && errno != EEXIST) return false;
    if (!RemoveFilesOf(directory)) return errno == ENOENT;
  }
  return false;
}

}  // namespace OruGuiBase
